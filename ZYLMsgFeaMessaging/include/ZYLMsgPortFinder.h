#ifndef ZYLMSGPORTFINDER_H
#define ZYLMSGPORTFINDER_H

#include <cstdint>
#include <utility>
#include <vector>

#include "QORUnicodeString.h"
#include "ZYLMsgModulesExport.h"

/// Picks a free network port from a port specification: "," separates items, each a port ("700") or a
/// range ("700-702").
///
/// Numbers are decimal; leading white space and a sign are allowed, trailing characters are not. An item
/// is silently skipped if its low number is not positive, or its high number is malformed or below the low
/// one. A third number is ignored. Parsing stops at the first empty item. The finder is used on one thread
/// and holds no socket between calls.
class ZYLMSGMODULES_EXPORT ZYLMsgPortFinder {
  public:
    /// Parses `spec`, which the finder does not keep.
    ZYLMsgPortFinder(const QORUnicodeString& spec);

    /// Returns the next port that a socket can be declared on, round-robin over the ranges from where the
    /// last call stopped. Without ranges it makes one attempt with a port of the system's choice. The port
    /// is free, not reserved, when this returns.
    ///
    /// Of a candidate above 65535 only the low 16 bits are used. After a failed attempt the search gives
    /// up if those bits of the next candidate are 0, or if every candidate was tried once.
    /// @return the port, or 0 if none was found
    int FindOpenPort();

  private:
    void AddRange(const QORUnicodeString& item);
    /// Advances the cursor and returns it: low to high in each range, cycling over the ranges; 0 if there
    /// are no ranges.
    int GetPort();
    /// The number of candidates in all ranges together.
    std::int64_t CandidatesPerRound() const;
    static bool empty(const QORUnicodeString& s);
    /// Parses all of `s` as a decimal number, clamped to 32 bits; 0 if it is malformed.
    static int toInt(const QORUnicodeString& s);

    std::vector<std::pair<std::int32_t, std::int32_t>> m_ranges;  ///< (low, high) with 1 <= low <= high
    std::uint64_t m_index = 0;                                    ///< the range that holds the cursor
    std::int32_t m_port = 0;                                      ///< the cursor: the last candidate
};

#endif

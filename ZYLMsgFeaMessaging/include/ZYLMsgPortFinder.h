#ifndef ZYLMSGPORTFINDER_H
#define ZYLMSGPORTFINDER_H

#include <cstdint>
#include <utility>
#include <vector>

#include "QORUnicodeString.h"
#include "ZYLMsgModulesExport.h"

/// Picks a free network port from a port specification: "," separates items, each a port ("700") or a range
/// ("700-702").
///
/// Numbers are decimal, with leading white space and a sign allowed and nothing after the digits. An item
/// whose low number is not a positive number, or whose high number is not a number or below the low one, is
/// skipped without a report; a third number is ignored; reading stops at the first empty item. The finder
/// belongs to its caller, is used on one thread and holds no socket between calls.
class ZYLMSGMODULES_EXPORT ZYLMsgPortFinder {
  public:
    /// Reads `spec` once; nothing of it is needed afterwards.
    ZYLMsgPortFinder(const QORUnicodeString& spec);

    /// Returns the next port that a socket can be declared on, going round the ranges from where the last
    /// call stopped. Without any range it makes one attempt with a port of the system's choice. The port is
    /// free, not held, when this returns.
    ///
    /// Of a candidate above 65535 only the low 16 bits are tried. The search ends with 0 after a failed
    /// attempt when those bits of the next candidate are 0, and when every candidate has been tried once.
    /// @return the port, or 0 when none was found
    int FindOpenPort();

  private:
    void AddRange(const QORUnicodeString& item);
    /// Advances the cursor and returns it: low to high in each range, one range after the other, round and
    /// round; 0 when there are no ranges.
    int GetPort();
    /// The number of candidates in one round over all ranges.
    std::int64_t CandidatesPerRound() const;
    static bool empty(const QORUnicodeString& s);
    /// The decimal number that is the whole of `s`, at the ends of the 32-bit range when beyond it; else 0.
    static int toInt(const QORUnicodeString& s);

    std::vector<std::pair<std::int32_t, std::int32_t>> m_ranges;  ///< (low, high) with 1 <= low <= high
    std::uint64_t m_index = 0;                                    ///< the range that holds the cursor
    std::int32_t m_port = 0;  ///< the cursor: the candidate given out last
};

#endif

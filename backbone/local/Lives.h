#ifndef ZYL_BACKBONE_LOCAL_LIVES_H
#define ZYL_BACKBONE_LOCAL_LIVES_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "transport/Transport.h"

/// What is known of the other processes of a domain: their applications, whose end is near, and who has taken
/// over whose name. A life is a process from the first that is heard of it until its end is reported.

namespace zyl::backbone::local {

class Lives {
  public:
    /// A process is met. What it says of itself later counts.
    void Meet(int pid, const std::string& host, const std::string& user);
    void Greet(int pid, const std::string& host, const std::string& user);
    /// It has an application. A passing helper is not announced.
    void Name(int pid, const std::string& application, bool announced);

    std::size_t CountOfNames(int pid) const;

    /// It has ended, but may have left something to be read. False when that is known, or the process is not.
    bool End(int pid);
    bool SomeEnding() const { return m_ending > 0; }
    std::vector<int> Ending() const;
    /// Nothing of it is left to be read: forgets it, and gives the reports of its end.
    std::vector<PeerLost> Bury(int pid);
    /// Whether it was buried a moment ago: what is still open of it belongs to that life.
    bool EndedJustNow(int pid) const;

    /// The processes that are known to have had the name, in the order in which they were met under it.
    std::vector<int> Holders(const std::string& application) const;
    /// `earlier` had a name of `later` just before it. Not when the contrary is known.
    void PutBefore(int earlier, int later);
    /// Whether somebody who was put before it is still to be buried.
    bool HasToWait(int pid) const;

  private:
    struct Life {
        std::string host;
        std::string user;
        std::map<std::string, bool> applications;  // and whether they are announced
        std::vector<int> predecessors{};           // one for each name at most
        bool ending = false;
    };

    bool Precedes(int earlier, int later) const;

    std::map<int, Life> m_lives;
    /// Whether somebody may have to wait: most often nobody does.
    bool m_someWait = false;
    std::map<std::string, std::vector<int>> m_holders;
    int m_ending = 0;
    std::map<int, Clock::time_point> m_buried;
};

}  // namespace zyl::backbone::local

#endif

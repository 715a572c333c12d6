#ifndef ZYL_BACKBONE_LOCAL_PRESENCE_H
#define ZYL_BACKBONE_LOCAL_PRESENCE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "system/System.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

/// What is known of the other processes of a domain: who they are, the names they hold, whose life is over,
/// and who came after whom under a name.
///
/// A life is an identity. It is living until it is known to be over, and over until its end is reported. A
/// name has its holders in their order; all but the last one of them are over.
class Presence {
  public:
    /// A process is met, or says who it is.
    void Meet(const system::Identity& life, int pid, const std::string& host, const std::string& user);
    bool Knows(const system::Identity& life) const { return m_lives.contains(life); }
    /// It has no name that is known, and no link: nothing of it is ever to be reported.
    void Forget(const system::Identity& life) { m_lives.erase(life); }
    /// It holds a name. A passing helper is not announced. True: others are known to hold or have held it, too.
    bool AddName(const system::Identity& life, const std::string& name, std::uint64_t order, bool announced);
    std::size_t CountOfNames(const system::Identity& life) const;

    struct Holding {
        std::string name;
        std::uint64_t order = 0;
        bool announced = false;
    };
    std::vector<Holding> NamesOf(const system::Identity& life) const;
    /// The other ones that are known to hold the name, or to have held it, and are not known to be over.
    std::vector<system::Identity> LivingRivals(const std::string& name, const system::Identity& life) const;
    /// Those that are known to have held one of its names after it.
    std::vector<system::Identity> Successors(const system::Identity& life) const;
    /// Whether others are said to hold, or to have held, the name that come after the life in its order.
    bool HasSuccessorsIn(const std::string& name, const system::Identity& life) const;
    /// The life holds the name now, so those never did.
    void RemoveSuccessorsIn(const std::string& name, const system::Identity& life);
    /// Whether a holder of the name is over, and that is still to be reported.
    bool OwesEndOf(const std::string& name) const;

    /// Its life is over, but it may have left something to be read. False when that is known, or the process
    /// is not.
    bool SetOver(const system::Identity& life);
    bool IsOver(const system::Identity& life) const;
    const std::set<system::Identity>& Over() const { return m_over; }
    /// Whether an earlier holder of one of its names is still to be reported, or found out to be over.
    bool HasToWait(const system::Identity& life) const { return m_contested > 0 && IsBehindAnother(life); }
    /// Nothing of it is left to be read: forgets it, and gives the reports of its end.
    std::vector<PeerLost> Report(const system::Identity& life);
    /// It has lied: forgets it, and nothing of it is to be reported, now or later.
    void ForgetLiar(const system::Identity& life);
    /// Whether one of the two has happened; what stands under a name may be older.
    bool WasReported(const system::Identity& life) const { return m_reported.contains(life); }
    /// A name of it is heard of only now. True: its end is to be reported under that name as well.
    bool RememberName(const system::Identity& life, const std::string& name);

  private:
    using Holders = std::set<std::pair<std::uint64_t, system::Identity>>;
    Holders::const_iterator FirstSuccessorIn(const std::string& name, const system::Identity& life) const;
    bool IsBehindAnother(const system::Identity& life) const;
    std::vector<system::Identity> Predecessors(const system::Identity& life) const;
    bool ComesBefore(const system::Identity& life, const system::Identity& other) const;
    void RemoveHolder(const std::string& name, const system::Identity& life);
    void Remember(const system::Identity& life, const std::map<std::string, Holding>& names);

    struct Life {
        int pid = 0;
        std::string host;
        std::string user;
        std::map<std::string, Holding> names;
    };

    std::map<system::Identity, Life> m_lives;
    std::set<system::Identity> m_over;
    struct Reported {
        bool liar = false;
        std::set<std::string> names;
    };
    /// The lives that were reported or forgotten last, and their order.
    std::map<system::Identity, Reported> m_reported;
    std::deque<system::Identity> m_reportedInOrder;
    /// By name: its holders in their order.
    std::map<std::string, Holders> m_holders;
    /// How many names have more than one: most often none.
    int m_contested = 0;
};

}  // namespace zyl::backbone::local

#endif

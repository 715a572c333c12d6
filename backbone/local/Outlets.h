#ifndef ZYL_BACKBONE_LOCAL_OUTLETS_H
#define ZYL_BACKBONE_LOCAL_OUTLETS_H

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Blocks.h"
#include "LocalTransport.h"
#include "Outgoing.h"
#include "system/System.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

/// What the domain knows, and these links have to know; and what it makes of what they come to.
class OutletsOwner : public OutgoingOwner {
  public:
    /// Whether the process's life is over, so that nobody may connect to it any more.
    virtual bool IsGone(const system::Identity& life) const = 0;
    /// The control frames that announce this process's applications.
    virtual std::string Announcements() const = 0;
    /// This process is connected to the entry's holder, or wants to be.
    virtual void Know(const system::Entry& entry) = 0;
    /// A process that was to be reached was not: it may have ended meanwhile.
    virtual void NotReached(const system::Identity& life) = 0;
};

/// The links that this process has opened in one domain, and the processes that it still has to reach.
///
/// To each application there is one living link at most, and it is the last one that was opened. A link stays
/// here until its peer's end was reported, or another one has taken its place and the switchboard let go of it.
class Outlets {
  public:
    /// All outlive this object.
    Outlets(OutletsOwner& owner, system::System& system, const LocalSettings& settings, KeptBlocks& kept,
            system::Names& names);

    /// A link to the application for the switchboard; null when it is not there, or is this process.
    std::unique_ptr<Link> Open(const std::string& target);

    /// Sends a control frame over every link.
    void SendToAll(const std::string& frame);
    /// This process wants to hear of every process's end: those that cannot be reached now are tried again.
    void WantAll() { m_wantsAll = true; }
    bool WantsAll() const { return m_wantsAll; }
    /// Sees to a link to the process: one is enough to see its end, and to tell it our names, unless they would be
    /// read late.
    void Reach(const system::Entry& entry);
    /// A shortage may be over.
    void TryAgain();

    /// Whether there is a link to the process whose end was not seen.
    bool HasOpenLink(const system::Identity& life) const;
    /// The process is known to be gone: its links are lost.
    void SetLost(const system::Identity& life);
    /// Its end was reported: they go.
    void Forget(const system::Identity& life);

    /// For the links that the switchboard holds: a message was sent over it, or found no room.
    void Sent(const std::shared_ptr<Outgoing>& outgoing) {
        if (m_lastSent != outgoing) {
            m_lastSent = outgoing;
        }
    }
    /// Whether a send over the link last used, which found no room in its lane, may get on. True once for each.
    bool RoomHasCome() { return m_lastSent != nullptr && m_lastSent->RoomHasCome(); }
    /// The lane of the link last used; null: none.
    LaneWriter* LastLane() const { return m_lastSent != nullptr ? m_lastSent->Lane() : nullptr; }

  private:
    std::shared_ptr<Outgoing> LivingLinkTo(const std::string& target);
    std::shared_ptr<Outgoing> Connect(const system::Entry& entry);
    Outgoing* LastLinkTo(const system::Identity& life) const;

    OutletsOwner& m_owner;
    system::System& m_system;
    const LocalSettings& m_settings;
    KeptBlocks& m_kept;
    system::Names& m_names;
    bool m_wantsAll = false;
    /// All links that may still be used, to each process in the order in which they were opened; and the last
    /// one to each application.
    std::multimap<system::Identity, std::shared_ptr<Outgoing>> m_links;
    std::map<std::string, std::shared_ptr<Outgoing>> m_byName;
    std::shared_ptr<Outgoing> m_lastSent;
    /// Processes that are to be reached because they, or we, watch, and could not be yet.
    std::map<std::pair<system::Identity, std::string>, system::Entry> m_toReach;
};

}  // namespace zyl::backbone::local

#endif

#ifndef ZYL_BACKBONE_LOCAL_LOCALDOMAIN_H
#define ZYL_BACKBONE_LOCAL_LOCALDOMAIN_H

#include <deque>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Connections.h"
#include "DomainDirectory.h"
#include "Listener.h"
#include "Lives.h"
#include "Poller.h"
#include "transport/Settings.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

/// One domain of the local transport: the applications of this process, the links from and to it, and what it
/// knows of the processes at their other ends.
///
/// A process ends when any link to or from it does. Then everything it has sent is taken in first:
/// connections that are still to be accepted, then what the accepted ones hold. Only after that its
/// applications are reported, once.
class LocalDomain final : public Domain {
  public:
    /// `bell` is the process's, and outlives the domain.
    LocalDomain(const Settings& settings, const std::string& name, const Greeting& greeting, Doorbell& bell);
    ~LocalDomain() override;

    void Announce(int number, const std::string& name, bool announced) override;
    void Deliver(int number) override;
    void Watch(int number) override;
    std::unique_ptr<Link> Open(const std::string& target) override;
    bool OwesLossOf(const std::string& name) override;
    std::optional<Event> Next(Take take) override;
    std::string WhereItLooks() const override;

    /// Whether Next, or a send that waits for room, may get on without a wait.
    bool HasNews(Take take) const;
    /// The part of it that comes without a call of the system, and so may be looked for in a busy loop.
    bool HasLaneNews(Take take) const;
    /// Before a wait: lets the writers have the room in the lanes that is free.
    void GiveBackRoom();
    /// The bell of the process that this domain last exchanged a message with through a lane; null: there was
    /// none.
    const PeerDoorbell* LastMet() const { return m_lastMet.get(); }
    /// How long a wait may last at most, as far as this domain is concerned.
    std::optional<std::chrono::milliseconds> LongestWait() const;
    Poller& Poll() { return m_poller; }

    /// For the connections: there is something to read; the process at the other end is gone; a send waits
    /// for room in the lane, or does no longer; a message was exchanged with that process.
    void Readable(Incoming& incoming);
    void Ended(int pid);
    void LaneIsFull(const Outgoing& outgoing, bool full);
    /// A bell could not be given or taken for want of something: it is to be tried again.
    void OweBells();
    void Met(const std::shared_ptr<PeerDoorbell>& peer);
    const Doorbell& OwnBell() const { return m_bell; }
    bool OpensLanes() const { return m_opensLanes; }

  private:
    /// A bell ends the wait; the news is in the lanes.
    class BellRung final : public Watched {
      public:
        void Ready(const Readiness& /*readiness*/) override {}
    };
    using Incomings = std::list<std::unique_ptr<Incoming>>;

    std::shared_ptr<Outgoing> OutgoingTo(const std::string& target);
    bool IsOwn(const std::string& name) const;
    void Accept();
    bool MayAccept() const;
    void SayOutOfDescriptors(int application);
    void SeeWhetherShortageIsOver();
    bool MaySettleBells() const;
    void SettleBells();
    bool AcceptOne(const Listener& listener);
    void Admit(FileDescriptor socket, int pid, int application);
    std::optional<Event> NextMessage(Take take);
    std::optional<Event> TakeReport();
    std::optional<Message> TakeFrom(Incoming& incoming, Take take);
    void Park(Incoming& incoming);
    void Starve(Incoming& incoming);
    void Feed();
    std::optional<Event> NextInLanes(Take take);
    std::optional<Event> TakeFromLane(Incoming& incoming, Take take);
    bool IsWanted(const Incoming& incoming, Take take) const;
    bool MayTakeFromLane(const Incoming& incoming, Take take) const;
    std::set<int> Unread() const;
    void HearNewcomers();
    void HandleControl(Incoming& incoming, const FrameView& frame);
    void Succeed(const std::string& name, int pid);
    void LetSuccessorsGo();
    void HandleEnd(Incoming& incoming);
    void Break(Incoming& incoming, const std::string& complaint);
    void Remove(Incoming& incoming);
    void Unpark();
    void ReportEnds();
    void ReportEnd(int pid);

    Greeting m_greeting;
    Doorbell& m_bell;
    bool m_opensLanes;
    DomainDirectory m_directory;
    Poller m_poller;
    BellRung m_bellRung;
    PollerEntry m_bellEntry;
    std::map<int, std::unique_ptr<Listener>> m_listeners;
    Incomings m_incoming;
    std::map<std::string, std::shared_ptr<Outgoing>> m_outgoing;
    Lives m_lives;
    /// Incoming links with something to read, and those that wait until their application gets a handler.
    std::deque<Incoming*> m_readable;
    std::deque<Incoming*> m_parked;
    /// Incoming links that are not read while descriptors are short: one may come with more of them.
    std::deque<Incoming*> m_starved;
    /// Incoming links of an application that has come back while its last life is not yet reported.
    std::deque<Incoming*> m_successors;
    std::deque<PeerLost> m_reports;
    /// Incoming links with a lane; the next one to be looked into.
    std::vector<Incoming*> m_lanes;
    std::size_t m_nextLane = 0;
    /// The link whose lane a send finds full.
    const Outgoing* m_fullLane = nullptr;
    std::shared_ptr<PeerDoorbell> m_lastMet;
    bool m_knocking = false;
    /// A process has ended: what it may have connected before is to be accepted before that is reported.
    bool m_endUnexamined = false;
    /// Whether links wait because there are no descriptors for them, which was said then; and the next try.
    bool m_outOfDescriptors = false;
    Clock::time_point m_nextTry{};
    /// When what OweBells was told of is tried again.
    std::optional<Clock::time_point> m_bellsDue;
    bool m_lanesFirst = false;
    int m_sinceLook = 0;
};

}  // namespace zyl::backbone::local

#endif

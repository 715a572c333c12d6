#ifndef ZYL_BACKBONE_LOCAL_LOCALDOMAIN_H
#define ZYL_BACKBONE_LOCAL_LOCALDOMAIN_H

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Intake.h"
#include "LocalTransport.h"
#include "Outgoing.h"
#include "Presence.h"
#include "system/System.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

/// One domain of the local transport: the applications of this process, the links from and to it, and what it
/// knows of the processes at their other ends.
///
/// The end of a channel is the reason to look whether a process's life is over; its names, which nobody holds
/// any more, are the proof. Then everything it has sent is taken in first: channels that are still to be
/// accepted, then what the accepted ones hold. Only after that the end of its applications is reported, once.
class LocalDomain final : public Domain, IntakeOwner, IncomingOwner, OutgoingOwner, system::Watcher {
  public:
    /// `system`, `settings` and `kept` are the transport's, and outlive the domain.
    LocalDomain(system::System& system, const LocalSettings& settings, KeptBlocks& kept,
                const std::string& name);
    ~LocalDomain() override;

    void Announce(int number, const std::string& name, bool announced) override;
    void Deliver(int number) override;
    void Watch(int number) override;
    std::unique_ptr<Link> Open(const std::string& target) override;
    bool OwesLossOf(const std::string& name) override;
    std::optional<Event> Next(Take take) override;
    std::string WhereItLooks() const override;

    /// Whether Next, or a send that waits for room, may get on without a wait.
    bool HasNews(Take take);
    /// The part of it that comes without a call of the system, and so may be looked for in a busy loop.
    bool HasLaneNews(Take take);
    /// Asks for what wakes a sleeping process. False: there is news meanwhile.
    bool FallAsleep(Take take);
    /// Lets the writers have what is free, and does what is due.
    void BeforeWait();
    /// When this domain wants to be asked again, whatever happens; once it was waited for, a target that was
    /// looked for in vain is forgotten.
    system::Deadline NextTry() const;
    void WasWaitedFor() {
        m_lookForTarget.reset();
        m_sendMayGetOn = false;
    }
    void SayHeldUp(std::uint64_t token);
    /// Lets the peers that a message was last exchanged with through a lane know where this thread runs.
    /// True: one of them was seen on another processor.
    bool PeerRunsElsewhere(int processor);

    /// For the links that the switchboard holds: a message was sent, or found no room.
    void Sent(const std::shared_ptr<Outgoing>& outgoing) {
        if (m_lastSent != outgoing) {
            m_lastSent = outgoing;
        }
    }

  private:
    struct Application {
        std::string name;
        bool announced = false;
        std::uint64_t order = 0;
        bool delivered = false;
    };
    /// A process of which a channel has ended, although its names are held: when to look again, and how long
    /// then.
    struct Suspicion {
        system::Clock::time_point next;
        std::chrono::milliseconds pause;
        system::Clock::time_point reconnect;  ///< when we may connect to it again, to see its end
    };

    // What the links and the names tell.
    void Greeted(Incoming& link, const Greeting& greeting) override;
    void Announced(Incoming& link, const Announcement& announcement) override;
    void Ended(const Incoming& link) override;
    void Broken(const Incoming& link, const std::string& complaint) override;
    bool IsWanted(const Incoming& link, Take take) const override;
    bool HasToWait(const Incoming& link) const override;
    bool IsOver(const Incoming& link) const override;
    void MayBeRead(Incoming& link) override { m_intake.MayBeRead(link); }
    void ChannelEnded(const system::Identity& life) override;
    void Lost(const Outgoing& link) override;
    void SendMayGetOn() override { m_sendMayGetOn = true; }
    void TryAgainSoon() override;
    void Ready(const system::Readiness& /*readiness*/) override { m_somebodyWaits = true; }

    system::Names::Claimed Claim(const std::string& name, bool announced);
    std::shared_ptr<Outgoing> OutgoingTo(const std::string& target);
    std::shared_ptr<Outgoing> Connect(const system::Entry& entry);
    void Reach(const system::Entry& entry);
    void Know(const system::Entry& entry);
    void ReachAgain();
    void ReportLinksGivenUp(const system::Identity& life);
    void ReconnectTo(const system::Identity& life, const std::string& name);
    bool HasOpenLink(const system::Identity& life) const;
    bool Accept();
    void SayShortage(const std::string& problem);
    void TryAgain();

    void ResolveRivals(const std::string& name, const system::Identity& newcomer);
    bool IsDoubtful(Incoming& link, const Announcement& announcement);
    bool LookWhetherHeld(const std::string& name, const system::Identity& life);
    void EndDoubts(system::Clock::time_point now);
    void ExamineSuspects(system::Clock::time_point now);
    bool IsCleared(const system::Identity& suspect);
    void SetOver(const system::Identity& life);
    void ReportEnds();
    bool MayReport(const system::Identity& life) const;
    bool MayReportSome() const;
    bool HasAcceptedAll(const system::Identity& life) const;
    void ReportEnd(const system::Identity& life);
    std::optional<Event> TakeReport();

    system::System& m_system;
    const LocalSettings& m_settings;
    KeptBlocks& m_kept;
    std::unique_ptr<system::Names> m_names;
    std::map<int, Application> m_applications;
    Intake m_intake;
    /// All links that this process has opened and that may still be used; and the last one to each
    /// application, and to each process.
    std::vector<std::shared_ptr<Outgoing>> m_links;
    std::map<std::string, std::shared_ptr<Outgoing>> m_outgoing;
    std::map<system::Identity, std::shared_ptr<Outgoing>> m_outgoingByHolder;
    std::shared_ptr<Outgoing> m_lastSent;
    Presence m_presence;
    std::deque<PeerLost> m_reports;
    bool m_watches = false;

    /// A send that waits may get on; this ends the next wait, should it have been seen outside of one.
    bool m_sendMayGetOn = false;
    bool m_somebodyWaits = false;
    bool m_saidShortage = false;
    std::optional<system::Clock::time_point> m_tryAgain;
    std::optional<system::Clock::time_point> m_lookForTarget;
    /// Processes that are to be reached because they, or we, watch, and could not be yet.
    std::map<std::pair<system::Identity, std::string>, system::Entry> m_toReach;
    std::map<system::Identity, Suspicion> m_suspects;
    /// Processes that have announced a name which a living one holds: they have held it before, and are about
    /// to end, or else they lie, which is clear at that time.
    std::map<system::Identity, system::Clock::time_point> m_doubts;
    /// How long the next reconnection waits, for processes that were connected to again.
    std::map<system::Identity, std::chrono::milliseconds> m_patience;
    /// Links to processes that are not known to be over, which were lost with what they carried; and whether
    /// their targets are announced.
    std::multimap<system::Identity, std::pair<Peer, bool>> m_lostWithMessages;
    /// A life is over, and what it connected before is still to be accepted.
    bool m_acceptBeforeReports = false;
    std::uint64_t m_heldUp = 0;
    int m_sinceLook = 0;
};

}  // namespace zyl::backbone::local

#endif

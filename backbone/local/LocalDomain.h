#ifndef ZYL_BACKBONE_LOCAL_LOCALDOMAIN_H
#define ZYL_BACKBONE_LOCAL_LOCALDOMAIN_H

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Blocks.h"
#include "Intake.h"
#include "Lives.h"
#include "LocalTransport.h"
#include "Outlets.h"
#include "system/System.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

/// One domain of the local transport: the applications of this process, and what is due. What concerns the links
/// from and to it, and the lives of the processes at their other ends, it leaves to its parts.
class LocalDomain final : public Domain, IntakeOwner, IncomingOwner, OutletsOwner, system::Watcher {
  public:
    /// `system`, `settings` and `kept` are the transport's, and outlive the domain, as does `joined`: all domains of
    /// the transport, among which this one is while it lives.
    LocalDomain(system::System& system, const LocalSettings& settings, KeptBlocks& kept,
                std::vector<LocalDomain*>& joined, const std::string& name);
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
    /// When this domain wants to be asked again, whatever happens; after the wait, a target that was looked for in
    /// vain is forgotten.
    system::Deadline NextTry() const;
    void AfterWait() {
        m_lookForTarget.reset();
        m_sendMayGetOn = false;
    }
    void SayHeldUp(std::uint64_t token);
    /// Lets the peers that a message was last exchanged with through a lane know where this thread runs.
    /// True: one of them was seen on another processor.
    bool PeerRunsElsewhere(int processor);

  private:
    struct Application {
        std::string name;
        bool announced = false;
        std::uint64_t order = 0;
        bool delivered = false;
    };
    // What the links and the names tell, and ask.
    void Greeted(Incoming& link, const Greeting& greeting) override;
    void Announced(Incoming& link, const Announcement& announcement) override {
        m_lives.Announced(link, announcement);
    }
    void Ended(const Incoming& link) override { m_lives.LinkEnded(link); }
    void Broken(const Incoming& link, const std::string& complaint) override;
    bool IsWanted(const Incoming& link, Take take) const override;
    bool HasToWait(const Incoming& link) const override { return m_lives.HasToWait(link); }
    bool IsOver(const Incoming& link) const override { return m_lives.IsOver(link); }
    void MayBeRead(Incoming& link) override { m_intake.MayBeRead(link); }
    void ChannelEnded(const system::Identity& life) override { m_lives.ChannelEnded(life); }
    void Lost(const Outgoing& link) override { m_lives.LinkEnded(link); }
    void SendMayGetOn() override { m_sendMayGetOn = true; }
    void TryAgainSoon() override;
    bool IsGone(const system::Identity& life) const override { return m_lives.IsGone(life); }
    std::string Announcements() const override;
    void Know(const system::Entry& entry) override { m_lives.Know(entry); }
    void NotReached(const system::Identity& life) override;
    void Ready(const system::Readiness& /*readiness*/) override { m_somebodyWaits = true; }

    system::Names::Claimed Claim(const std::string& name, bool announced);
    void ReachAll(bool (*whom)(const system::Entry& entry), std::optional<int> known);
    void HearNewcomers();
    bool Accept();
    void SayShortage(const std::string& problem);
    void TryAgain();
    void ReportEnds();

    system::System& m_system;
    const LocalSettings& m_settings;
    std::vector<LocalDomain*>& m_joined;
    std::unique_ptr<system::Names> m_names;
    std::map<int, Application> m_applications;
    Intake m_intake;
    Outlets m_outlets;
    Lives m_lives;

    /// A send that waits may get on; this ends the next wait, should it have been seen outside of one.
    bool m_sendMayGetOn = false;
    bool m_somebodyWaits = false;
    bool m_saidShortage = false;
    system::Deadline m_tryAgain;
    system::Deadline m_lookForTarget;
    std::uint64_t m_heldUp = 0;
    int m_sinceLook = 0;
    int m_untilReports = 0;
};

}  // namespace zyl::backbone::local

#endif

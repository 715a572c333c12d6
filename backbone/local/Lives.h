#ifndef ZYL_BACKBONE_LOCAL_LIVES_H
#define ZYL_BACKBONE_LOCAL_LIVES_H

#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Intake.h"
#include "Outlets.h"
#include "Presence.h"
#include "system/System.h"
#include "transport/Transport.h"

namespace zyl::backbone::local {

/// Whose life in a domain is over, and when that is reported.
///
/// The end of a channel is the reason to look whether a process's life is over; its names, which nobody holds
/// any more, are the proof. Then everything it has sent is taken in first: channels that are still to be
/// accepted, then what the accepted ones hold. Only after that the end of its applications is reported, once.
///
///   a life is   from where                                    goes to
///   living      met                                           suspect: a channel ended; doubtful; over
///   suspect     living: one of its channels has ended         living: its names are held; over: they are not
///   doubtful    living: it announces a name that a living     over: its channel ends within a second;
///               process holds                                 reported, in silence: it does not
///   over        suspect, or a rival holds its name            reported: nothing of it is unread
class Lives {
  public:
    /// All outlive this object.
    Lives(system::System& system, system::Names& names, Intake& intake, Outlets& outlets);

    // What is heard.
    void Greeted(Incoming& link, const Greeting& greeting);
    void Know(const system::Entry& entry);
    /// Throws BadFrame.
    void Announced(Incoming& link, const Announcement& announcement);
    void LinkEnded(const Incoming& link);
    void LinkEnded(const Outgoing& link);
    void ChannelEnded(const system::Identity& life);

    // What it comes to.
    bool IsOver(const Incoming& link) const;
    /// Whether a message of the link has to wait until the end of an earlier life is reported.
    bool HasToWait(const Incoming& link) const;
    /// Whether the life is over, and was perhaps reported.
    bool IsGone(const system::Identity& life) const {
        return m_presence.IsOver(life) || m_presence.WasReported(life);
    }
    /// Whether the end of a holder of the name is still to be reported.
    bool OwesEndOf(const std::string& name) const;

    /// Looks at those whose time has come.
    void Examine();
    bool HasSomeToExamine() const { return !m_suspects.empty() || !m_doubts.empty(); }
    system::Deadline NextExamination() const;

    /// Whether a life is over, and what it connected before may still be to be accepted.
    bool AwaitsAcceptance() const { return m_acceptBeforeReports && !m_presence.Over().empty(); }
    /// Nobody waited to be accepted a moment ago.
    void AllWereAccepted() { m_acceptBeforeReports = false; }
    /// Makes the reports of every life that is over and of which nothing is left to read. What waits for a
    /// handler stays: its time comes with that.
    void MakeReports();
    /// Whether MakeReports has something to do.
    bool MayReportSome() const;
    bool HasReports() const { return !m_reports.empty(); }
    std::optional<Event> TakeReport();

  private:
    /// A process of which a channel has ended, although its names are held: when to look again, and how long
    /// then.
    struct Suspicion {
        system::Clock::time_point next;
        std::chrono::milliseconds pause;
        system::Clock::time_point reconnect;  ///< when we may connect to it again, to see its end
    };

    /// A process that may have lied: when to look again, and how often that was done.
    struct Doubt {
        system::Clock::time_point next;
        int looks = 0;
    };

    void ResolveRivals(const std::string& name, const system::Identity& newcomer);
    bool IsDoubtful(Incoming& link, const Announcement& announcement);
    system::Names::Holding HoldingOf(const std::string& name, const system::Identity& life);
    bool LookWhetherHeld(const std::string& name, const system::Identity& life);
    void EndDoubts(system::Clock::time_point now);
    void ExamineSuspects(system::Clock::time_point now);
    bool IsCleared(const system::Identity& suspect);
    bool HasOpenLink(const system::Identity& life) const;
    void ReportLinksGivenUp(const system::Identity& life);
    void ReconnectTo(const system::Identity& life, const std::string& name);
    void SetOver(const system::Identity& life);
    bool MayReport(const system::Identity& life) const;
    bool HasAcceptedAll(const system::Identity& life) const;
    void ReportEnd(const system::Identity& life);

    system::System& m_system;
    system::Names& m_names;
    Intake& m_intake;
    Outlets& m_outlets;
    Presence m_presence;
    std::map<system::Identity, Suspicion> m_suspects;
    /// Processes that have announced a name which a living one holds: they have held it before, and are about
    /// to end, or else they lie, which is clear after some looks.
    std::map<system::Identity, Doubt> m_doubts;
    /// How long the next reconnection waits, for processes that were connected to again.
    std::map<system::Identity, std::chrono::milliseconds> m_patience;
    /// Links to processes that are not known to be over, which were lost with what they carried; and whether
    /// their targets are announced.
    std::multimap<system::Identity, std::pair<Peer, bool>> m_lostWithMessages;
    bool m_acceptBeforeReports = false;
    std::deque<PeerLost> m_reports;
};

}  // namespace zyl::backbone::local

#endif

#include "Lives.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace zyl::backbone::local {

namespace {

using std::chrono::milliseconds;

/// A process whose channel has ended is looked at again after so long, and then at intervals that double. One
/// that goes on living has closed the channel for a reason of its own.
constexpr milliseconds kFirstPause{1};
constexpr milliseconds kLongestPause{1000};
/// At this pause it was looked at for some tenths of a second: it does not end.
constexpr milliseconds kGivenUpLinkPause{256};

/// The channels of a process that dies are closed one after the other, and its names are given up among them;
/// all of that before it was looked at so often, with this time between two looks. It is not the time that
/// counts: all of this machine may stand still for a while.
constexpr int kLooksAtTheDying = 10;
constexpr milliseconds kDyingInterval{100};

/// A peer that announces more, or as many over one link, is none of this library, or has lost its way; each is
/// kept while it lives.
constexpr std::size_t kMostNames = 4096;

}  // namespace

Lives::Lives(system::System& system, system::Names& names, Intake& intake, Outlets& outlets)
    : m_system(system), m_names(names), m_intake(intake), m_outlets(outlets) {}

void Lives::Know(const system::Entry& entry) {
    m_presence.Meet(entry.identity, entry.pid, entry.host, m_system.Me().user);
    if (m_presence.AddName(entry.identity, entry.name, entry.order, entry.announced)) {
        ResolveRivals(entry.name, entry.identity);
    }
}

void Lives::Greeted(Incoming& link, const Greeting& greeting) {
    link.lifeReported = m_presence.WasReported(greeting.identity);
    if (!link.lifeReported) {
        m_presence.Meet(greeting.identity, greeting.pid, greeting.host, greeting.user);
    }
}

void Lives::Announced(Incoming& link, const Announcement& announcement) {
    const std::size_t others = std::max(m_presence.CountOfNames(link.Opener()), link.announcements++);
    if (announcement.application.size() > kLongestName || others >= kMostNames) {
        throw BadFrame(fmt::format("it announces an application with a name of {} bytes after {} others",
                                   announcement.application.size(), others));
    }
    if (link.lifeReported && !m_presence.RememberName(link.Opener(), announcement.application)) {
        return;
    }
    if (link.lifeReported) {
        Peer peer = link.OpenedBy();
        peer.application = announcement.application;
        m_reports.push_back({std::make_unique<Peer>(std::move(peer)), true});
        return;
    }
    if (m_presence.AddName(link.Opener(), announcement.application, announcement.order, true)) {
        if (IsDoubtful(link, announcement)) {
            m_doubts.emplace(link.Opener(), Doubt{m_system.Now() + kDyingInterval});
        }
        ResolveRivals(announcement.application, link.Opener());
    }
}

/// Whether a process announces a name that a living one holds. It may have held it before, and be about to
/// end just now; else it lies.
bool Lives::IsDoubtful(Incoming& link, const Announcement& announcement) {
    const std::string& name = announcement.application;
    const std::vector<system::Identity> rivals = m_presence.LivingRivals(name, link.Opener());
    return !rivals.empty() && HoldingOf(name, link.Opener()) == system::Names::Holding::kNo &&
           !link.ChannelHasEnded() &&
           std::any_of(rivals.begin(), rivals.end(), [&](const system::Identity& rival) {
               return HoldingOf(name, rival) == system::Names::Holding::kYes;
           });
}

void Lives::LinkEnded(const Incoming& link) {
    m_doubts.erase(link.Opener());
    if (link.Greeted() && !link.lifeReported) {
        ChannelEnded(link.Opener());
    }
}

void Lives::LinkEnded(const Outgoing& link) {
    if (link.HasCarriedMessages() && !m_presence.IsOver(link.Holder())) {
        m_lostWithMessages.emplace(link.Holder(), std::pair(link.To(), link.Announced()));
    }
    ChannelEnded(link.Holder());
}

void Lives::ChannelEnded(const system::Identity& life) {
    m_doubts.erase(life);
    if (m_presence.Knows(life) && !m_presence.IsOver(life)) {
        const system::Clock::time_point now = m_system.Now();
        const auto patience = m_patience.find(life);
        const milliseconds pause = patience != m_patience.end() ? patience->second : kFirstPause;
        m_suspects.try_emplace(life, Suspicion{now, kFirstPause, now + pause});
    }
}

bool Lives::IsOver(const Incoming& link) const {
    return link.lifeReported ||
           (link.Greeted() && m_presence.IsOver(link.Opener()) && !m_doubts.contains(link.Opener()));
}

bool Lives::HasToWait(const Incoming& link) const {
    return m_intake.EarlierIsUnknown(link) ||
           (link.Greeted() && !link.lifeReported && m_presence.HasToWait(link.Opener()));
}

bool Lives::OwesEndOf(const std::string& name) const {
    return m_presence.OwesEndOf(name) ||
           std::any_of(m_reports.begin(), m_reports.end(),
                       [&](const PeerLost& report) { return report.peer->application == name; });
}

/// Of all that are known under a name, one at most holds it, and that is the last one.
void Lives::ResolveRivals(const std::string& name, const system::Identity& newcomer) {
    const std::vector<system::Identity> rivals = m_presence.LivingRivals(name, newcomer);
    if (rivals.empty() && !m_presence.HasSuccessorsIn(name, newcomer)) {
        return;
    }
    const bool newcomerHolds = LookWhetherHeld(name, newcomer);
    for (const system::Identity& rival : rivals) {
        if (newcomerHolds) {
            SetOver(rival);
        } else if (LookWhetherHeld(name, rival)) {
            SetOver(newcomer);
        }
    }
    m_intake.PredecessorReported();  // whom they may have removed from its place in the order
}

system::Names::Holding Lives::HoldingOf(const std::string& name, const system::Identity& life) {
    system::Entry entry;
    entry.name = name;
    entry.identity = life;
    return m_names.IsHeld(entry);
}

/// True when it is, and then nobody has held the name after it. A life that is seen not to hold it is over.
bool Lives::LookWhetherHeld(const std::string& name, const system::Identity& life) {
    const system::Names::Holding holding = HoldingOf(name, life);
    if (holding == system::Names::Holding::kNo) {
        SetOver(life);
    } else if (holding == system::Names::Holding::kUnknown) {
        ChannelEnded(life);
    } else {
        m_presence.RemoveSuccessorsIn(name, life);
    }
    return holding == system::Names::Holding::kYes;
}

void Lives::Examine() {
    if (HasSomeToExamine()) {
        const system::Clock::time_point now = m_system.Now();
        ExamineSuspects(now);
        EndDoubts(now);
    }
}

/// Who lives on without the names that it announced has never held them. Nothing of it is reported, now or
/// later.
void Lives::EndDoubts(system::Clock::time_point now) {
    std::vector<system::Identity> due;
    for (auto& [life, doubt] : m_doubts) {
        if (now >= doubt.next) {
            doubt.next = now + kDyingInterval;
            if (++doubt.looks == kLooksAtTheDying) {
                due.push_back(life);
            }
        }
    }
    for (const system::Identity& liar : due) {
        m_doubts.erase(liar);
        if (m_intake.HasEndedLinkOf(liar)) {
            continue;  // this process was stopped, and did not hear of it in time
        }
        m_suspects.erase(liar);
        m_presence.ForgetLiar(liar);
        m_intake.SetReported(liar);
        m_intake.PredecessorReported();
    }
}

void Lives::ExamineSuspects(system::Clock::time_point now) {
    std::vector<system::Identity> due;
    for (const auto& [life, suspicion] : m_suspects) {
        if (now >= suspicion.next) {
            due.push_back(life);
        }
    }
    for (const system::Identity& life : due) {
        if (IsCleared(life)) {
            m_suspects.erase(life);
        } else if (const auto suspect = m_suspects.find(life); suspect != m_suspects.end()) {
            suspect->second.next = now + suspect->second.pause;
            suspect->second.pause = std::min(2 * suspect->second.pause, kLongestPause);
        }
    }
}

/// Whether no further look is needed: it is over, or will be seen to end by another link.
bool Lives::IsCleared(const system::Identity& suspect) {
    const std::vector<Presence::Holding> names = m_presence.NamesOf(suspect);
    if (names.empty() && !m_presence.IsOver(suspect) && !m_intake.HasAccepted(suspect)) {
        m_presence.Forget(suspect);
    }
    if (names.empty() || m_presence.IsOver(suspect)) {
        return true;
    }
    bool lives = true;  // as far as that can be seen now
    for (const Presence::Holding& holding : names) {
        if (&holding == &names.front() || m_presence.HasSuccessorsIn(holding.name, suspect)) {
            lives = LookWhetherHeld(holding.name, suspect) && lives;
        }
    }
    if (m_presence.IsOver(suspect)) {
        return true;
    }
    if (lives && m_suspects.at(suspect).pause >= kGivenUpLinkPause) {
        ReportLinksGivenUp(suspect);
    }
    if (HasOpenLink(suspect)) {
        return lives && !m_lostWithMessages.contains(suspect);
    }
    const auto announced =
        std::find_if(names.begin(), names.end(), [](const auto& one) { return one.announced; });
    if (!m_outlets.WantsAll() || announced == names.end()) {
        return m_suspects.at(suspect).pause >= kLongestPause && !m_lostWithMessages.contains(suspect);
    }
    if (m_system.Now() >= m_suspects.at(suspect).reconnect) {
        ReconnectTo(suspect, announced->name);
    }
    return false;
}

bool Lives::HasOpenLink(const system::Identity& life) const {
    return m_outlets.HasOpenLink(life) || m_intake.HasLinkOf(life);
}

/// A living process that closes a link over which we have sent has lost what it had not read: for us that is
/// as if it had ended, and come back.
void Lives::ReportLinksGivenUp(const system::Identity& life) {
    const auto [begin, end] = m_lostWithMessages.equal_range(life);
    for (auto lost = begin; lost != end; ++lost) {
        m_reports.push_back({std::make_unique<Peer>(lost->second.first), lost->second.second});
    }
    m_lostWithMessages.erase(begin, end);
}

/// One that closes its channels again and again is connected to less and less often.
void Lives::ReconnectTo(const system::Identity& life, const std::string& name) {
    milliseconds& patience = m_patience.try_emplace(life, kFirstPause).first->second;
    patience = std::min(4 * patience, kLongestPause);
    if (const std::optional<system::Entry> entry = m_names.Find(name)) {
        m_outlets.Reach(*entry);
    }
}

system::Deadline Lives::NextExamination() const {
    system::Deadline next;
    const auto also = [&](system::Clock::time_point time) { next = std::min(next.value_or(time), time); };
    for (const auto& [life, suspicion] : m_suspects) {
        also(suspicion.next);
    }
    for (const auto& [life, doubt] : m_doubts) {
        also(doubt.next);
    }
    return next;
}

void Lives::SetOver(const system::Identity& life) {
    if (!m_presence.SetOver(life)) {
        return;
    }
    m_acceptBeforeReports = true;
    m_intake.LookAtAll(life);
    m_outlets.SetLost(life);
}

void Lives::MakeReports() {
    const std::vector<system::Identity> over(m_presence.Over().begin(), m_presence.Over().end());
    for (const system::Identity& life : over) {
        if (MayReport(life)) {
            ReportEnd(life);
        }
    }
}

bool Lives::MayReport(const system::Identity& life) const {
    return !m_presence.HasToWait(life) && !m_intake.MayHaveUnread(life) && !m_doubts.contains(life) &&
           HasAcceptedAll(life);
}

/// Whether no connection of a life that is over is still to be accepted. They come in the order in which they
/// were made; so all of them have come once one of a successor has, though others may wait for descriptors.
bool Lives::HasAcceptedAll(const system::Identity& life) const {
    const std::vector<system::Identity> successors = m_presence.Successors(life);
    return !m_acceptBeforeReports ||
           std::any_of(successors.begin(), successors.end(),
                       [&](const system::Identity& successor) { return m_intake.HasAccepted(successor); });
}

bool Lives::MayReportSome() const {
    const std::set<system::Identity>& over = m_presence.Over();
    return std::any_of(over.begin(), over.end(),
                       [&](const system::Identity& life) { return MayReport(life); });
}

void Lives::ReportEnd(const system::Identity& life) {
    m_intake.SetReported(life);
    m_outlets.Forget(life);
    m_suspects.erase(life);
    m_patience.erase(life);
    m_lostWithMessages.erase(life);
    for (PeerLost& report : m_presence.Report(life)) {
        m_reports.push_back(std::move(report));
    }
    m_intake.PredecessorReported();
}

std::optional<Event> Lives::TakeReport() {
    if (m_reports.empty()) {
        return std::nullopt;
    }
    PeerLost report = std::move(m_reports.front());
    m_reports.pop_front();
    return report;
}

}  // namespace zyl::backbone::local

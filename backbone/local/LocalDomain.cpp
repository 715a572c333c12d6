#include "LocalDomain.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Diagnostics.h"

namespace zyl::backbone::local {

namespace {

using std::chrono::milliseconds;

/// How long until the next try, where something was short, or a peer had no room for a connection.
constexpr milliseconds kShortagePause{50};

/// How often a sender looks whether its target has come: short beside the start of a process, long beside a
/// look.
constexpr milliseconds kLookInterval{5};

/// A name that is found held so often, with this time between two looks, is not held by a process that is
/// just about to end.
constexpr int kLooksAtAName = 500;
constexpr milliseconds kNameInterval{2};

/// Where all start at once, others connect while this process does: it looks for them after so many.
constexpr int kReachedBetweenLooks = 16;

/// So many newcomers are accepted before those who are there have their turn: somebody may connect without
/// end.
constexpr int kMostAcceptedAtOnce = 256;

}  // namespace

LocalDomain::LocalDomain(system::System& system, const LocalSettings& settings, KeptBlocks& kept,
                         std::vector<LocalDomain*>& joined, const std::string& name)
    : m_system(system),
      m_settings(settings),
      m_joined(joined),
      m_names(system.Join(settings.directory, name)),
      m_intake(*this, settings.limits.pace),
      m_outlets(*this, system, settings, kept, *m_names),
      m_lives(system, *m_names, m_intake, m_outlets) {
    m_names->Watch(*this);
    m_joined.push_back(this);
}

/// The names go before the links, so that who sees the end of a link finds nobody under the name.
LocalDomain::~LocalDomain() {
    std::erase(m_joined, this);
    m_names.reset();
}

void LocalDomain::Announce(int number, const std::string& name, bool announced) {
    const system::Names::Claimed claimed = Claim(name, announced);
    if (!claimed.taken) {
        throw NameTaken(claimed.entry.pid, claimed.entry.host);
    }
    m_applications[number] = {name, announced, claimed.entry.order};
    if (!announced) {
        return;
    }
    m_outlets.SendToAll(AnnounceFrame({claimed.entry.order, name}));
    ReachAll([](const system::Entry& entry) { return entry.watches; }, number);
}

/// A holder that is dying lets go in a moment. This counts looks, not time: this process may have been
/// stopped between two of them.
system::Names::Claimed LocalDomain::Claim(const std::string& name, bool announced) {
    system::Names::Claimed claimed = m_names->Claim(name, announced);
    for (int looks = 1; !claimed.taken && looks < kLooksAtAName; ++looks) {
        m_system.Wait(m_system.Now() + kNameInterval);
        claimed = m_names->Claim(name, announced);
    }
    return claimed;
}

void LocalDomain::Deliver(int number) {
    m_applications.at(number).delivered = true;
    m_intake.HandlerCame();
}

/// First our mark, then the look around: a newcomer claims its name first and then looks for marks, so at
/// least one of the two finds the other.
void LocalDomain::Watch(int number) {
    m_outlets.WantAll();
    m_names->MarkWatcher(m_applications.at(number).name);
    ReachAll([](const system::Entry& entry) { return entry.announced; }, std::nullopt);
}

/// A process that has a link to us is not linked again. That link shows its end, and where it leads to the
/// application `known`, it proves that its opener knows that name.
void LocalDomain::ReachAll(bool (*whom)(const system::Entry& entry), std::optional<int> known) {
    int sinceLook = kReachedBetweenLooks;
    for (const system::Entry& entry : m_names->List()) {
        if (!whom(entry) || entry.identity == m_system.Me().identity) {
            continue;
        }
        if (++sinceLook > kReachedBetweenLooks) {
            sinceLook = 0;
            HearNewcomers();
        }
        if (!m_intake.HasLinkOf(entry, known)) {
            m_outlets.Reach(entry);
        } else if (!m_lives.IsGone(entry.identity)) {
            m_lives.Know(entry);
        }
    }
}

/// Accepts who has connected, and reads who that is.
void LocalDomain::HearNewcomers() {
    m_system.Wait(m_system.Now());
    Accept();
    m_intake.Next(Take::kNothing);
}

std::unique_ptr<Link> LocalDomain::Open(const std::string& target) {
    std::unique_ptr<Link> link = m_outlets.Open(target);
    if (link == nullptr) {
        m_lookForTarget = m_system.Now() + kLookInterval;
    }
    return link;
}

bool LocalDomain::OwesLossOf(const std::string& name) {
    HearNewcomers();
    return m_lives.OwesEndOf(name);
}

std::string LocalDomain::WhereItLooks() const {
    return fmt::format(
        "it looks in {}; most often such an application was not started, or runs as another user or with "
        "another ZYL_BACKBONE_DIR or XDG_RUNTIME_DIR",
        QuotedPath(m_names->Place()));
}

void LocalDomain::BeforeWait() {
    m_intake.GiveBack();
    if (m_somebodyWaits) {
        Accept();
    }
    TryAgain();
}

bool LocalDomain::HasNews(Take take) {
    if (take == Take::kNothing) {
        return m_sendMayGetOn || HasLaneNews(take);
    }
    return m_sendMayGetOn || m_lives.HasReports() || m_somebodyWaits || m_intake.HasNews(take) ||
           HasLaneNews(take) || (m_lives.AwaitsAcceptance() && !m_tryAgain) || m_lives.MayReportSome();
}

bool LocalDomain::HasLaneNews(Take take) {
    return m_outlets.RoomHasCome() || m_intake.HasLaneNews(take);
}

bool LocalDomain::FallAsleep(Take take) {
    return take == Take::kNothing || m_intake.FallAsleep();
}

system::Deadline LocalDomain::NextTry() const {
    system::Deadline next;
    for (const system::Deadline& time : {m_tryAgain, m_lookForTarget, m_lives.NextExamination()}) {
        if (time) {
            next = std::min(next.value_or(*time), *time);
        }
    }
    return next;
}

void LocalDomain::SayHeldUp(std::uint64_t token) {
    m_heldUp = token;
    m_intake.SayHeldUp(token);
}

bool LocalDomain::PeerRunsElsewhere(int processor) {
    bool elsewhere = false;
    const auto consider = [&](int theirs) { elsewhere = elsewhere || (theirs >= 0 && theirs != processor); };
    if (LaneWriter* lane = m_outlets.LastLane()) {
        lane->PublishProcessor(processor);
        consider(lane->ReadersProcessor());
    }
    if (Incoming* incoming = m_intake.LastInLane(); incoming != nullptr && incoming->HasLane()) {
        incoming->Lane()->PublishProcessor(processor);
        consider(incoming->Lane()->WritersProcessor());
    }
    return elsewhere;
}

std::optional<Event> LocalDomain::Next(Take take) {
    if (++m_sinceLook > m_settings.limits.pace.messagesBetweenLooks) {
        m_sinceLook = 0;
        m_system.Wait(m_system.Now());
        TryAgain();
    }
    if (m_somebodyWaits) {
        Accept();
    }
    if (--m_untilReports <= 0) {
        m_untilReports = m_settings.limits.pace.messagesBetweenReports;
        ReportEnds();
    }
    if (m_lives.HasReports()) {
        return m_lives.TakeReport();
    }
    if (std::optional<Message> message = m_intake.Next(take)) {
        return message;
    }
    TryAgain();
    ReportEnds();
    return m_lives.TakeReport();
}

/// What is due: a shortage that may be over, peers to be reached, processes that may have ended.
void LocalDomain::TryAgain() {
    if (m_tryAgain && m_system.Now() >= *m_tryAgain) {
        m_tryAgain.reset();
        m_sendMayGetOn = true;
        m_somebodyWaits = true;
        Accept();
        m_intake.TryAgain();
        m_outlets.TryAgain();
    }
    m_lives.Examine();
}

/// What a life that is over has connected is accepted first.
void LocalDomain::ReportEnds() {
    if (m_lives.AwaitsAcceptance() && !m_tryAgain && Accept()) {
        m_lives.AllWereAccepted();
    }
    m_lives.MakeReports();
}

void LocalDomain::TryAgainSoon() {
    if (!m_tryAgain) {
        m_tryAgain = m_system.Now() + kShortagePause;
    }
}

/// False when somebody waits who is not accepted now.
bool LocalDomain::Accept() {
    for (int accepted = 0; accepted < kMostAcceptedAtOnce; ++accepted) {
        system::Names::Acceptance acceptance = m_names->Accept();
        switch (acceptance.welcome) {
            case system::Names::Welcome::kAccepted: {
                IncomingOwner& owner = *this;
                auto link = std::make_unique<Incoming>(
                    owner, m_settings.limits.lane, m_settings.limits.blocks, std::move(acceptance.channel));
                link->pid = acceptance.pid;
                link->SayHeldUp(m_heldUp);
                if (accepted == 0) {
                    m_intake.LookAtUngreeted();
                }
                m_intake.Add(std::move(link));
                break;
            }
            case system::Names::Welcome::kRefused:
                break;
            case system::Names::Welcome::kNobody:
                m_somebodyWaits = false;
                m_saidShortage = false;
                return true;
            case system::Names::Welcome::kShortage:
                m_somebodyWaits = false;
                SayShortage(acceptance.problem);
                TryAgainSoon();
                return false;
        }
    }
    TryAgainSoon();  // a wait that only minds its own sends does not look for newcomers
    return false;
}

void LocalDomain::SayShortage(const std::string& problem) {
    if (!std::exchange(m_saidShortage, true)) {
        Report(fmt::format("cannot accept a link to application {}: {}; will try again",
                           Quoted(m_applications.empty() ? "" : m_applications.begin()->second.name),
                           problem));
    }
}

void LocalDomain::Greeted(Incoming& link, const Greeting& greeting) {
    const auto application =
        std::find_if(m_applications.begin(), m_applications.end(),
                     [&](const auto& entry) { return entry.second.name == greeting.application; });
    if (application == m_applications.end()) {
        throw BadFrame(
            fmt::format("it is for application {}, which is not here", Quoted(greeting.application)));
    }
    if (greeting.identity == m_system.Me().identity) {
        throw BadFrame("it greets as the process that it has connected to");
    }
    link.application = application->first;
    m_lives.Greeted(link, greeting);
}

void LocalDomain::Broken(const Incoming& link, const std::string& complaint) {
    const auto application = m_applications.find(link.application);
    Report(fmt::format("the link from process {} to application {} is closed: {}", link.OpenedBy().pid,
                       Quoted(application != m_applications.end() ? application->second.name : ""),
                       complaint));
    m_lives.LinkEnded(link);
}

bool LocalDomain::IsWanted(const Incoming& link, Take take) const {
    if (take == Take::kDelivered) {
        const auto application = m_applications.find(link.application);
        return application != m_applications.end() && application->second.delivered;
    }
    return take == Take::kAll;
}

void LocalDomain::NotReached(const system::Identity& life) {
    if (!m_intake.HasLinkOf(life)) {
        m_lives.ChannelEnded(life);
    }
}

std::string LocalDomain::Announcements() const {
    std::string frames;
    for (const auto& [number, application] : m_applications) {
        if (application.announced) {
            frames += AnnounceFrame({application.order, application.name});
        }
    }
    return frames;
}

}  // namespace zyl::backbone::local

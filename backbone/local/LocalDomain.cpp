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

/// A process whose channel has ended is looked at again after so long, and then at intervals that double. One
/// that goes on living has closed the channel for a reason of its own.
constexpr milliseconds kFirstPause{1};
constexpr milliseconds kLongestPause{1000};
/// At this pause it was looked at for some tenths of a second: it does not end.
constexpr milliseconds kGivenUpLinkPause{256};

/// The channels of a process that dies are closed one after the other, and its names are given up among them;
/// all of that in less than this time.
constexpr milliseconds kDying{1000};

/// A peer that announces more is none of this library, or has lost its way; each is kept while it lives.
constexpr std::size_t kMostNames = 4096;

/// After this many messages in a row a look at the other links is due, so that a busy one hides none.
constexpr int kMessagesBetweenLooks = 256;

/// While messages come, it is seen after so many of them whether an end can be reported: with hundreds of dead
/// senders that costs more than a message.
constexpr int kMessagesBetweenReports = 64;

/// The switchboard's handle on a connection, which the domain keeps for as long as the peer lives.
class OpenLink final : public Link {
  public:
    OpenLink(LocalDomain& domain, std::shared_ptr<Outgoing> outgoing)
        : m_domain(domain), m_outgoing(std::move(outgoing)) {}
    const Peer& To() const override { return m_outgoing->To(); }
    bool Announced() const override { return m_outgoing->Announced(); }
    bool Alive() override { return m_outgoing->Alive(); }
    void* Reserve(const char* type, int size) override {
        void* room = m_outgoing->Reserve(type, size);
        if (room == nullptr) {
            m_domain.Sent(m_outgoing);
        }
        return room;
    }
    Progress Commit() override {
        m_domain.Sent(m_outgoing);
        return m_outgoing->Commit();
    }
    std::uint64_t HeldUp() const override { return m_outgoing->HeldUp(); }

  private:
    LocalDomain& m_domain;
    std::shared_ptr<Outgoing> m_outgoing;
};

}  // namespace

LocalDomain::LocalDomain(system::System& system, const LocalSettings& settings, KeptBlocks& kept,
                         const std::string& name)
    : m_system(system),
      m_settings(settings),
      m_kept(kept),
      m_names(system.Join(settings.directory, name)),
      m_intake(*this) {
    m_names->Watch(*this);
}

/// The names go before the links, so that who sees the end of a link finds nobody under the name.
LocalDomain::~LocalDomain() {
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
    for (const auto& outgoing : m_links) {
        outgoing->SendControl(AnnounceFrame({claimed.entry.order, name}));
    }
    for (const system::Entry& entry : m_names->List()) {
        if (entry.watches) {
            Reach(entry);
        }
    }
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
    m_watches = true;
    m_names->MarkWatcher(m_applications.at(number).name);
    for (const system::Entry& entry : m_names->List()) {
        if (entry.announced) {
            Reach(entry);
        }
    }
}

/// One link to a process is enough to see its end, and to tell it our names, unless they would be read late.
void LocalDomain::Reach(const system::Entry& entry) {
    const auto known = m_outgoingByHolder.find(entry.identity);
    if (known == m_outgoingByHolder.end() || !known->second->Alive() || known->second->IsSlow()) {
        Connect(entry);
    } else if (!m_presence.IsOver(entry.identity)) {
        Know(entry);
    }
}

void LocalDomain::ReachAgain() {
    for (const auto& [key, entry] : std::exchange(m_toReach, {})) {
        Reach(entry);
        if (!HasOpenLink(entry.identity)) {
            ChannelEnded(entry.identity);  // it may have ended meanwhile
        }
    }
}

std::unique_ptr<Link> LocalDomain::Open(const std::string& target) {
    std::shared_ptr<Outgoing> outgoing = OutgoingTo(target);
    if (outgoing == nullptr) {
        m_lookForTarget = m_system.Now() + kLookInterval;
        return nullptr;
    }
    return std::make_unique<OpenLink>(*this, std::move(outgoing));
}

/// The living connection to the application, made if there is none; null when it is not there, or is this
/// process.
std::shared_ptr<Outgoing> LocalDomain::OutgoingTo(const std::string& target) {
    const auto known = m_outgoing.find(target);
    if (known != m_outgoing.end() && known->second->Alive()) {
        return known->second;
    }
    const std::optional<system::Entry> entry = m_names->Find(target);
    return entry ? Connect(*entry) : nullptr;
}

std::shared_ptr<Outgoing> LocalDomain::Connect(const system::Entry& entry) {
    const system::Self& me = m_system.Me();
    if (entry.identity == me.identity || m_presence.IsOver(entry.identity) ||
        m_presence.WasReported(entry.identity)) {
        return nullptr;
    }
    system::Names::Connection connection = m_names->Connect(entry);
    // Who was forked from a dead holder may still have what can be connected to.
    const system::Names::Holding holding = connection.reached == system::Names::Reached::kNobody
                                               ? system::Names::Holding::kNo
                                               : m_names->IsHeld(entry);
    if (holding == system::Names::Holding::kNo) {
        return nullptr;
    }
    if (connection.reached == system::Names::Reached::kNotNow ||
        holding == system::Names::Holding::kUnknown) {
        if (entry.watches || m_watches) {
            m_toReach[{entry.identity, entry.name}] = entry;
            Know(entry);
            TryAgainSoon();
        }
        return nullptr;
    }
    OutgoingOwner& owner = *this;
    auto outgoing =
        std::make_shared<Outgoing>(owner, m_system, m_settings, m_kept, std::move(connection.channel), entry,
                                   Peer{entry.name, entry.pid, entry.host, me.user});
    std::string hello = GreetingFrame({kProtocolVersion, me.identity, me.pid, me.host, me.user, entry.name});
    for (const auto& [number, application] : m_applications) {
        if (application.announced) {
            hello += AnnounceFrame({application.order, application.name});
        }
    }
    outgoing->SendControl(hello);
    std::erase_if(m_links, [](const auto& link) { return link.use_count() == 1; });
    m_links.push_back(outgoing);
    m_outgoing[entry.name] = outgoing;
    m_outgoingByHolder[entry.identity] = outgoing;
    Know(entry);
    return outgoing;
}

void LocalDomain::Know(const system::Entry& entry) {
    m_presence.Meet(entry.identity, entry.pid, entry.host, m_system.Me().user);
    m_presence.AddName(entry.identity, entry.name, entry.order, entry.announced);
    ResolveRivals(entry.name, entry.identity);
}

bool LocalDomain::OwesLossOf(const std::string& name) {
    m_system.Wait(m_system.Now());
    Accept();
    m_intake.Next(Take::kNothing);
    return m_presence.OwesEndOf(name) ||
           std::any_of(m_reports.begin(), m_reports.end(),
                       [&](const PeerLost& report) { return report.peer->application == name; });
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
    return m_sendMayGetOn || !m_reports.empty() || m_somebodyWaits || m_intake.HasNews(take) ||
           HasLaneNews(take) || MayReportSome();
}

bool LocalDomain::HasLaneNews(Take take) {
    return (m_lastSent != nullptr && m_lastSent->RoomHasCome()) || m_intake.HasLaneNews(take);
}

bool LocalDomain::FallAsleep(Take take) {
    return take == Take::kNothing || m_intake.FallAsleep();
}

system::Deadline LocalDomain::NextTry() const {
    system::Deadline next = m_tryAgain;
    const auto also = [&](system::Clock::time_point time) { next = std::min(next.value_or(time), time); };
    if (m_lookForTarget) {
        also(*m_lookForTarget);
    }
    for (const auto& [life, suspicion] : m_suspects) {
        also(suspicion.next);
    }
    for (const auto& [life, until] : m_doubts) {
        also(until);
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
    if (m_lastSent != nullptr && m_lastSent->Lane() != nullptr) {
        m_lastSent->Lane()->PublishProcessor(processor);
        consider(m_lastSent->Lane()->ReadersProcessor());
    }
    if (Incoming* incoming = m_intake.LastInLane(); incoming != nullptr && incoming->HasLane()) {
        incoming->Lane()->PublishProcessor(processor);
        consider(incoming->Lane()->WritersProcessor());
    }
    return elsewhere;
}

std::optional<Event> LocalDomain::Next(Take take) {
    if (++m_sinceLook > kMessagesBetweenLooks) {
        m_sinceLook = 0;
        m_system.Wait(m_system.Now());
        TryAgain();
    }
    if (m_somebodyWaits) {
        Accept();
    }
    if (m_sinceLook % kMessagesBetweenReports == 0) {
        ReportEnds();
    }
    if (!m_reports.empty()) {
        return TakeReport();
    }
    if (std::optional<Message> message = m_intake.Next(take)) {
        return message;
    }
    TryAgain();
    ReportEnds();
    return TakeReport();
}

/// What is due: a shortage that may be over, peers to be reached, processes that may have ended.
void LocalDomain::TryAgain() {
    if (!m_tryAgain && m_suspects.empty() && m_doubts.empty()) {
        return;
    }
    const system::Clock::time_point now = m_system.Now();
    if (m_tryAgain && now >= *m_tryAgain) {
        m_tryAgain.reset();
        m_sendMayGetOn = true;
        m_somebodyWaits = true;
        Accept();
        m_intake.TryAgain();
        for (const auto& outgoing : m_links) {
            outgoing->TryAgain();
        }
        ReachAgain();
    }
    ExamineSuspects(now);
    EndDoubts(now);
}

/// Who lives on without the names that it announced has never held them. Nothing of it is reported, now or
/// later.
void LocalDomain::EndDoubts(system::Clock::time_point now) {
    std::vector<system::Identity> liars;
    for (const auto& [life, until] : m_doubts) {
        if (now >= until) {
            liars.push_back(life);
        }
    }
    for (const system::Identity& liar : liars) {
        m_doubts.erase(liar);
        m_suspects.erase(liar);
        m_presence.Report(liar);
        m_intake.SetReported(liar);
        m_intake.PredecessorReported();
    }
}

void LocalDomain::TryAgainSoon() {
    if (!m_tryAgain) {
        m_tryAgain = m_system.Now() + kShortagePause;
    }
}

/// False when somebody waits who cannot be accepted now.
bool LocalDomain::Accept() {
    for (;;) {
        system::Names::Acceptance acceptance = m_names->Accept();
        switch (acceptance.welcome) {
            case system::Names::Welcome::kAccepted: {
                IncomingOwner& owner = *this;
                auto link = std::make_unique<Incoming>(
                    owner, m_settings.limits.lane, m_settings.limits.blocks, std::move(acceptance.channel));
                link->SayHeldUp(m_heldUp);
                m_intake.LookAtUngreeted();
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
    link.application = application->first;
    m_presence.Meet(greeting.identity, greeting.pid, greeting.host, greeting.user);
}

void LocalDomain::Announced(Incoming& link, const Announcement& announcement) {
    const std::size_t count = m_presence.CountOfNames(link.Opener());
    if (announcement.application.size() > kLongestName || count >= kMostNames) {
        throw BadFrame(fmt::format("it announces an application with a name of {} bytes after {} others",
                                   announcement.application.size(), count));
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
    if (IsDoubtful(link, announcement)) {
        m_doubts.emplace(link.Opener(), m_system.Now() + kDying);
    }
    m_presence.AddName(link.Opener(), announcement.application, announcement.order, true);
    ResolveRivals(announcement.application, link.Opener());
}

/// Whether a process announces a name that a living one holds. It may have held it before, and be about to
/// end just now; else it lies.
bool LocalDomain::IsDoubtful(Incoming& link, const Announcement& announcement) {
    const auto holds = [&](const system::Identity& life) {
        system::Entry entry;
        entry.name = announcement.application;
        entry.identity = life;
        return m_names->IsHeld(entry);
    };
    const std::vector<system::Identity> rivals =
        m_presence.LivingRivals(announcement.application, link.Opener());
    return !rivals.empty() && holds(link.Opener()) == system::Names::Holding::kNo &&
           !link.ChannelHasEnded() &&
           std::any_of(rivals.begin(), rivals.end(), [&](const system::Identity& rival) {
               return holds(rival) == system::Names::Holding::kYes;
           });
}

void LocalDomain::Ended(const Incoming& link) {
    m_doubts.erase(link.Opener());
    if (link.Greeted() && !link.lifeReported) {
        ChannelEnded(link.Opener());
    }
}

void LocalDomain::Broken(const Incoming& link, const std::string& complaint) {
    const auto application = m_applications.find(link.application);
    Report(fmt::format("the link from process {} to application {} is closed: {}", link.OpenedBy().pid,
                       Quoted(application != m_applications.end() ? application->second.name : ""),
                       complaint));
    Ended(link);
}

bool LocalDomain::IsWanted(const Incoming& link, Take take) const {
    if (take == Take::kDelivered) {
        const auto application = m_applications.find(link.application);
        return application != m_applications.end() && application->second.delivered;
    }
    return take == Take::kAll;
}

bool LocalDomain::HasToWait(const Incoming& link) const {
    return m_intake.EarlierIsUnknown(link) ||
           (link.Greeted() && !link.lifeReported && m_presence.HasToWait(link.Opener()));
}

bool LocalDomain::IsOver(const Incoming& link) const {
    return link.lifeReported ||
           (link.Greeted() && m_presence.IsOver(link.Opener()) && !m_doubts.contains(link.Opener()));
}

/// Of all that are known under a name, one at most holds it.
void LocalDomain::ResolveRivals(const std::string& name, const system::Identity& newcomer) {
    const std::vector<system::Identity> rivals = m_presence.LivingRivals(name, newcomer);
    if (rivals.empty()) {
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
}

/// True when it is. A life that is seen not to hold the name is over.
bool LocalDomain::LookWhetherHeld(const std::string& name, const system::Identity& life) {
    system::Entry entry;
    entry.name = name;
    entry.identity = life;
    const system::Names::Holding holding = m_names->IsHeld(entry);
    if (holding == system::Names::Holding::kNo) {
        SetOver(life);
    } else if (holding == system::Names::Holding::kUnknown) {
        ChannelEnded(life);
    }
    return holding == system::Names::Holding::kYes;
}

void LocalDomain::ChannelEnded(const system::Identity& life) {
    m_doubts.erase(life);
    if (m_presence.Knows(life) && !m_presence.IsOver(life)) {
        const system::Clock::time_point now = m_system.Now();
        const auto patience = m_patience.find(life);
        const milliseconds pause = patience != m_patience.end() ? patience->second : kFirstPause;
        m_suspects.try_emplace(life, Suspicion{now, kFirstPause, now + pause});
    }
}

void LocalDomain::ExamineSuspects(system::Clock::time_point now) {
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
bool LocalDomain::IsCleared(const system::Identity& suspect) {
    const std::vector<Presence::Holding> names = m_presence.NamesOf(suspect);
    if (names.empty() || m_presence.IsOver(suspect)) {
        return true;
    }
    LookWhetherHeld(names.front().name, suspect);
    if (m_presence.IsOver(suspect)) {
        return true;
    }
    if (m_suspects.at(suspect).pause >= kGivenUpLinkPause) {
        ReportLinksGivenUp(suspect);
    }
    if (HasOpenLink(suspect)) {
        return !m_lostWithMessages.contains(suspect);
    }
    const auto announced =
        std::find_if(names.begin(), names.end(), [](const auto& one) { return one.announced; });
    if (!m_watches || announced == names.end()) {
        return m_suspects.at(suspect).pause >= kLongestPause;
    }
    if (m_system.Now() >= m_suspects.at(suspect).reconnect) {
        ReconnectTo(suspect, announced->name);
    }
    return false;
}

void LocalDomain::Lost(const Outgoing& link) {
    if (link.HasCarriedMessages() && !m_presence.IsOver(link.Holder())) {
        m_lostWithMessages.emplace(link.Holder(), std::pair(link.To(), link.Announced()));
    }
    ChannelEnded(link.Holder());
}

/// A living process that closes a link over which we have sent has lost what it had not read: for us that is
/// as if it had ended, and come back.
void LocalDomain::ReportLinksGivenUp(const system::Identity& life) {
    const auto [begin, end] = m_lostWithMessages.equal_range(life);
    for (auto lost = begin; lost != end; ++lost) {
        m_reports.push_back({std::make_unique<Peer>(lost->second.first), lost->second.second});
    }
    m_lostWithMessages.erase(begin, end);
}

/// One that closes its channels again and again is connected to less and less often.
void LocalDomain::ReconnectTo(const system::Identity& life, const std::string& name) {
    milliseconds& patience = m_patience.try_emplace(life, kFirstPause).first->second;
    patience = std::min(4 * patience, kLongestPause);
    if (const std::optional<system::Entry> entry = m_names->Find(name)) {
        Reach(*entry);
    }
}

bool LocalDomain::HasOpenLink(const system::Identity& life) const {
    const auto outgoing = m_outgoingByHolder.find(life);
    return (outgoing != m_outgoingByHolder.end() && outgoing->second->Alive()) || m_intake.HasLinkOf(life);
}

void LocalDomain::SetOver(const system::Identity& life) {
    if (!m_presence.SetOver(life)) {
        return;
    }
    m_acceptBeforeReports = true;
    m_intake.LookAtAll(life);
    for (const auto& outgoing : m_links) {
        if (outgoing->Holder() == life) {
            outgoing->SetLost();
        }
    }
}

/// Reports every life that is over and of which nothing is left to read. What waits for a handler stays: its
/// time comes with that.
void LocalDomain::ReportEnds() {
    if (m_presence.Over().empty()) {
        return;
    }
    if (m_acceptBeforeReports && !m_tryAgain && Accept()) {
        m_acceptBeforeReports = false;
    }
    const std::vector<system::Identity> over(m_presence.Over().begin(), m_presence.Over().end());
    for (const system::Identity& life : over) {
        if (MayReport(life)) {
            ReportEnd(life);
        }
    }
}

bool LocalDomain::MayReport(const system::Identity& life) const {
    return !m_presence.HasToWait(life) && !m_intake.MayHaveUnread(life) && !m_doubts.contains(life) &&
           HasAcceptedAll(life);
}

/// Whether no connection of a life that is over is still to be accepted. They come in the order in which they
/// were made; so all of them have come once one of a successor has, though others may wait for descriptors.
bool LocalDomain::HasAcceptedAll(const system::Identity& life) const {
    const std::vector<system::Identity> successors = m_presence.Successors(life);
    return !m_acceptBeforeReports ||
           std::any_of(successors.begin(), successors.end(),
                       [&](const system::Identity& successor) { return m_intake.HasAccepted(successor); });
}

bool LocalDomain::MayReportSome() const {
    const std::set<system::Identity>& over = m_presence.Over();
    return (!over.empty() && m_acceptBeforeReports && !m_tryAgain) ||
           std::any_of(over.begin(), over.end(),
                       [&](const system::Identity& life) { return MayReport(life); });
}

void LocalDomain::ReportEnd(const system::Identity& life) {
    m_intake.SetReported(life);
    std::erase_if(m_links, [&](const auto& link) { return link->Holder() == life; });
    std::erase_if(m_outgoing, [&](const auto& entry) { return entry.second->Holder() == life; });
    m_outgoingByHolder.erase(life);
    m_suspects.erase(life);
    m_patience.erase(life);
    m_lostWithMessages.erase(life);
    if (m_lastSent != nullptr && m_lastSent->Holder() == life) {
        m_lastSent.reset();
    }
    for (PeerLost& report : m_presence.Report(life)) {
        m_reports.push_back(std::move(report));
    }
    m_intake.PredecessorReported();
}

std::optional<Event> LocalDomain::TakeReport() {
    if (m_reports.empty()) {
        return std::nullopt;
    }
    PeerLost report = std::move(m_reports.front());
    m_reports.pop_front();
    return report;
}

}  // namespace zyl::backbone::local

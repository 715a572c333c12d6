#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "Descriptors.h"
#include "Diagnostics.h"
#include "LocalDomain.h"

namespace zyl::backbone::local {

namespace {

/// Out of descriptors: how long until the next try to accept.
constexpr std::chrono::milliseconds kDescriptorPause{100};

/// A peer that announces more is none of this library, or has lost its way; each is kept while it lives.
constexpr std::size_t kMostNames = 4096;

/// After this many messages in a row a look at the other links is due, so that a busy one hides none.
constexpr int kMessagesBetweenLooks = 256;

}  // namespace

LocalDomain::LocalDomain(const Settings& settings, const std::string& name, const Greeting& greeting,
                         Doorbell& bell)
    : m_greeting(greeting),
      m_bell(bell),
      m_opensLanes(settings.lane == Settings::Lane::kMemory),
      m_directory(settings.directory, name),
      m_bellEntry(m_poller, m_bell.Bell(), m_bellRung) {}

/// The names go before the links, so that who sees the end of a link finds nobody under the name.
LocalDomain::~LocalDomain() {
    m_listeners.clear();
}

void LocalDomain::Announce(int number, const std::string& name, bool announced) {
    Claim claim = m_directory.Take(name, announced);
    m_listeners.emplace(
        number, std::make_unique<Listener>(m_poller, m_knocking, number, name, announced, std::move(claim)));
    if (!announced) {
        return;
    }
    const std::string frame = AnnounceFrame(name);
    for (const auto& [target, outgoing] : m_outgoing) {
        outgoing->SendControl(frame);
    }
    for (const std::string& watcher : m_directory.Watchers()) {
        OutgoingTo(watcher);
    }
}

void LocalDomain::Deliver(int number) {
    m_listeners.at(number)->delivered = true;
    Unpark();
}

/// First our mark, then the look around: a newcomer makes its socket first and then looks for marks, so at
/// least one of the two finds the other.
void LocalDomain::Watch(int number) {
    m_directory.MarkWatcher(m_listeners.at(number)->Name());
    for (const std::string& application : m_directory.Announced()) {
        OutgoingTo(application);
    }
}

std::unique_ptr<Link> LocalDomain::Open(const std::string& target) {
    std::shared_ptr<Outgoing> outgoing = OutgoingTo(target);
    return outgoing != nullptr ? std::make_unique<OpenLink>(std::move(outgoing)) : nullptr;
}

bool LocalDomain::IsOwn(const std::string& name) const {
    return std::any_of(m_listeners.begin(), m_listeners.end(),
                       [&](const auto& entry) { return entry.second->Name() == name; });
}

/// The living connection to the application, made if there is none; null when it is not there, or is this
/// process.
std::shared_ptr<Outgoing> LocalDomain::OutgoingTo(const std::string& target) {
    const auto known = m_outgoing.find(target);
    if (known != m_outgoing.end() && known->second->Alive()) {
        return known->second;
    }
    if (IsOwn(target)) {
        return nullptr;
    }
    Connected connected = m_directory.Connect(target);
    if (!connected.socket.IsOpen() || m_lives.EndedJustNow(connected.pid)) {
        return nullptr;
    }
    const Peer peer{target, connected.pid, m_greeting.host, m_greeting.user};
    auto outgoing = std::make_shared<Outgoing>(*this, std::move(connected.socket), peer, connected.announced);
    outgoing->SendControl(GreetingFrame(m_greeting));
    for (const auto& [number, listener] : m_listeners) {
        if (listener->Announced()) {
            outgoing->SendControl(AnnounceFrame(listener->Name()));
        }
    }
    m_lives.Meet(peer.pid, peer.host, peer.user);
    m_lives.Name(peer.pid, target, connected.announced);
    m_outgoing[target] = outgoing;
    Succeed(target, peer.pid);
    return outgoing;
}

bool LocalDomain::OwesLossOf(const std::string& name) {
    HearNewcomers();
    return m_lives.Holders(name).size() > 1 ||
           std::any_of(m_reports.begin(), m_reports.end(),
                       [&](const PeerLost& report) { return report.peer->application == name; });
}

bool LocalDomain::HasNews(Take take) const {
    if (take == Take::kNothing) {
        return HasLaneNews(take);
    }
    return !m_readable.empty() || !m_reports.empty() || (m_lives.SomeEnding() && m_starved.empty()) ||
           MayAccept() || MaySettleBells() || (take == Take::kAll && !m_parked.empty()) || HasLaneNews(take);
}

bool LocalDomain::HasLaneNews(Take take) const {
    return (m_fullLane != nullptr && m_fullLane->LaneHasRoom()) ||
           std::any_of(m_lanes.begin(), m_lanes.end(),
                       [&](const Incoming* incoming) { return MayTakeFromLane(*incoming, take); });
}

void LocalDomain::GiveBackRoom() {
    for (const Incoming* incoming : m_lanes) {
        incoming->Lane()->GiveBack();
        if (incoming->Lane()->WriterWaits()) {
            incoming->WritersBell()->Ring();
        }
    }
}

void LocalDomain::LaneIsFull(const Outgoing& outgoing, bool full) {
    if (full) {
        m_fullLane = &outgoing;
    } else if (m_fullLane == &outgoing) {
        m_fullLane = nullptr;
    }
}

void LocalDomain::Met(const std::shared_ptr<PeerDoorbell>& peer) {
    if (m_lastMet != peer) {
        m_lastMet = peer;
    }
    m_bell.PublishProcessor();
}

bool LocalDomain::IsWanted(const Incoming& incoming, Take take) const {
    return take == Take::kAll ||
           (take == Take::kDelivered && m_listeners.at(incoming.Application())->delivered);
}

std::optional<std::chrono::milliseconds> LocalDomain::LongestWait() const {
    const bool isShort = m_outOfDescriptors || !m_starved.empty() || m_bellsDue;
    return isShort ? std::optional(kDescriptorPause) : std::nullopt;
}

void LocalDomain::Readable(Incoming& incoming) {
    if (!incoming.queued) {
        incoming.queued = true;
        m_readable.push_back(&incoming);
    }
}

void LocalDomain::Ended(int pid) {
    if (!m_lives.End(pid)) {
        return;
    }
    m_endUnexamined = true;
    for (const auto& incoming : m_incoming) {
        if (incoming->Pid() == pid) {
            incoming->Recheck();
        }
    }
}

std::string LocalDomain::WhereItLooks() const {
    return "it looks in " + QuotedPath(m_directory.Path()) +
           "; most often such an application was not started, or runs as another user or with another "
           "ZYL_BACKBONE_DIR or XDG_RUNTIME_DIR";
}

std::optional<Event> LocalDomain::Next(Take take) {
    if (++m_sinceLook > kMessagesBetweenLooks) {
        m_sinceLook = 0;
        m_poller.Wait(std::chrono::milliseconds(0));
        m_endUnexamined = m_endUnexamined || m_lives.SomeEnding();
    }
    if (m_endUnexamined) {
        ReportEnds();
    }
    if (MaySettleBells()) {
        SettleBells();
    }
    if (MayAccept()) {
        Accept();
    }
    if (!m_reports.empty()) {
        return TakeReport();
    }
    if (take == Take::kAll) {
        Unpark();
    }
    Feed();
    m_lanesFirst = !m_lanesFirst;
    for (const bool inLanes : {m_lanesFirst, !m_lanesFirst}) {
        if (std::optional<Event> event = inLanes ? NextInLanes(take) : NextMessage(take)) {
            return event;
        }
    }
    if (m_lives.SomeEnding()) {
        ReportEnds();
    }
    return TakeReport();
}

void LocalDomain::Accept() {
    m_knocking = false;
    for (const auto& [number, listener] : m_listeners) {
        while (AcceptOne(*listener)) {
        }
    }
    SeeWhetherShortageIsOver();
}

bool LocalDomain::MayAccept() const {
    return m_knocking && Clock::now() >= m_nextTry;
}

bool LocalDomain::AcceptOne(const Listener& listener) {
    Listener::Accepted accepted = listener.Accept();
    switch (accepted.outcome) {
        case Listener::Outcome::kAccepted:
            Admit(std::move(accepted.socket), accepted.pid, listener.Number());
            return true;
        case Listener::Outcome::kRefused:
            return true;
        case Listener::Outcome::kShortage:
            SayOutOfDescriptors(listener.Number());
            m_knocking = true;
            return false;
        case Listener::Outcome::kNobody:
            break;
    }
    return false;
}

void LocalDomain::Admit(FileDescriptor socket, int pid, int application) {
    m_incoming.push_back(std::make_unique<Incoming>(*this, std::move(socket), pid, application));
    Incoming& incoming = *m_incoming.back();
    incoming.orphaned = m_lives.EndedJustNow(pid);
    Readable(incoming);
}

/// The links take turns, a message each.
std::optional<Event> LocalDomain::NextMessage(Take take) {
    while (!m_readable.empty()) {
        Incoming& incoming = *m_readable.front();
        m_readable.pop_front();
        incoming.queued = false;
        if (std::optional<Message> message = TakeFrom(incoming, take)) {
            Readable(incoming);
            return message;
        }
        if (m_lives.SomeEnding()) {
            ReportEnds();
        }
        if (std::optional<Event> report = TakeReport()) {
            return report;
        }
    }
    return std::nullopt;
}

/// Leaves the link's messages where they are until their application gets a handler.
void LocalDomain::Park(Incoming& incoming) {
    incoming.queued = true;
    m_parked.push_back(&incoming);
    if (incoming.HungUp()) {
        Ended(incoming.Pid());
    }
}

/// What came with the link's next bytes would be lost: they wait until there are descriptors again.
void LocalDomain::Starve(Incoming& incoming) {
    SayOutOfDescriptors(incoming.Application());
    incoming.queued = true;
    m_starved.push_back(&incoming);
}

void LocalDomain::Feed() {
    if (!m_starved.empty() && CanOpen(kMostDescriptors)) {
        m_readable.insert(m_readable.end(), m_starved.begin(), m_starved.end());
        m_starved.clear();
        SeeWhetherShortageIsOver();
    }
}

void LocalDomain::SayOutOfDescriptors(int application) {
    if (!m_outOfDescriptors) {
        Report("cannot accept a link to application " + Quoted(m_listeners.at(application)->Name()) + ": " +
               std::generic_category().message(errno) + "; will try again");
    }
    m_outOfDescriptors = true;
    m_nextTry = Clock::now() + kDescriptorPause;
}

/// It lasts while a link waits for descriptors, of whatever application.
void LocalDomain::SeeWhetherShortageIsOver() {
    m_outOfDescriptors = m_outOfDescriptors && (m_knocking || !m_starved.empty());
}

void LocalDomain::OweBells() {
    m_bellsDue = Clock::now() + kDescriptorPause;
}

bool LocalDomain::MaySettleBells() const {
    return m_bellsDue && Clock::now() >= *m_bellsDue;
}

void LocalDomain::SettleBells() {
    m_bellsDue.reset();
    for (const auto& incoming : m_incoming) {
        if (incoming->OwesBell()) {
            incoming->AnswerWithBell(m_bell);
        }
    }
    for (const auto& [target, outgoing] : m_outgoing) {
        outgoing->ReceiveBell();
    }
}

void LocalDomain::Unpark() {
    m_readable.insert(m_readable.end(), m_parked.begin(), m_parked.end());
    m_parked.clear();
}

/// The next message of the link, if it has a whole one. A link that has come to its end, or to a bad frame,
/// is closed.
std::optional<Message> LocalDomain::TakeFrom(Incoming& incoming, Take take) {
    const bool wanted = IsWanted(incoming, take);
    std::optional<FrameView> frame;
    try {
        for (;;) {
            const Incoming::Intake intake = incoming.Take(frame, wanted);
            if (intake == Incoming::Intake::kEnded) {
                HandleEnd(incoming);
            }
            if (intake == Incoming::Intake::kHeld) {
                take == Take::kNothing ? Readable(incoming) : Park(incoming);
            }
            if (intake == Incoming::Intake::kStarved) {
                Starve(incoming);
            }
            if (intake != Incoming::Intake::kFrame) {
                return std::nullopt;
            }
            if (frame->kind == FrameKind::kMessage) {
                return Message(incoming.Application(), frame->type, frame->body.data(),
                               static_cast<int>(frame->body.size()), std::move(frame->storage));
            }
            HandleControl(incoming, *frame);
            if (m_lives.HasToWait(incoming.Pid())) {
                incoming.queued = true;
                m_successors.push_back(&incoming);
                return std::nullopt;
            }
        }
    } catch (const BadFrame& bad) {
        Break(incoming, bad.what());
    } catch (const std::bad_alloc&) {
        Break(incoming, "there is no memory for its next message");
    }
    return std::nullopt;
}

/// Reads what the links say of who is at their other end, and leaves their messages where they are.
void LocalDomain::HearNewcomers() {
    m_poller.Wait(std::chrono::milliseconds(0));
    Accept();
    for (Incoming* incoming : std::exchange(m_readable, {})) {
        incoming->queued = false;
        TakeFrom(*incoming, Take::kNothing);
    }
}

/// What the socket beside it says comes first, as who is at the other end may have to wait.
bool LocalDomain::MayTakeFromLane(const Incoming& incoming, Take take) const {
    return incoming.Lane()->HasNews() && IsWanted(incoming, take) && !incoming.queued &&
           !m_lives.HasToWait(incoming.Pid());
}

/// The lanes take turns, too.
std::optional<Event> LocalDomain::NextInLanes(Take take) {
    for (std::size_t looked = 0; looked < m_lanes.size(); ++looked) {
        m_nextLane = m_nextLane + 1 < m_lanes.size() ? m_nextLane + 1 : 0;
        Incoming& incoming = *m_lanes[m_nextLane];
        if (incoming.orphaned && !incoming.Lane()->HasNews()) {
            Remove(incoming);
            break;
        }
        if (MayTakeFromLane(incoming, take)) {
            return TakeFromLane(incoming,
                                take);  // without a message the link may be gone: the others come next time
        }
    }
    return std::nullopt;
}

std::optional<Event> LocalDomain::TakeFromLane(Incoming& incoming, Take take) {
    try {
        std::optional<LaneMessage> message = incoming.Lane()->Take();
        if (incoming.Lane()->WriterWaits()) {
            incoming.WritersBell()->Ring();
        }
        Met(incoming.WritersBell());
        if (message && take == Take::kAll) {
            message = message->Copy();
        }
        if (message) {
            return Message(incoming.Application(), message->type, message->body.data(),
                           static_cast<int>(message->body.size()), std::move(message->storage));
        }
    } catch (const BadFrame& bad) {
        Break(incoming, bad.what());
    } catch (const std::bad_alloc&) {
        Break(incoming, "there is no memory for its next message");
    }
    return std::nullopt;
}

void LocalDomain::HandleControl(Incoming& incoming, const FrameView& frame) {
    if (frame.kind == FrameKind::kLane) {
        incoming.OpenLane(frame, m_bell);
        m_lanes.push_back(&incoming);
        return;
    }
    if (frame.kind == FrameKind::kBell) {
        incoming.AnswerWithBell(m_bell);
        return;
    }
    if (incoming.orphaned) {
        return;
    }
    if (frame.kind == FrameKind::kGreeting) {
        const Greeting greeting = ReadGreeting(frame.body);
        m_lives.Greet(incoming.Pid(), greeting.host, greeting.user);
    } else {
        if (frame.body.size() > kLongestName || m_lives.CountOfNames(incoming.Pid()) >= kMostNames) {
            throw BadFrame("it announces an application with a name of " + std::to_string(frame.body.size()) +
                           " bytes after " + std::to_string(m_lives.CountOfNames(incoming.Pid())) +
                           " others");
        }
        const std::string name(frame.body.data(), frame.body.size());
        m_lives.Name(incoming.Pid(), name, true);
        Succeed(name, incoming.Pid());
    }
}

/// Of all that have had a name only its holder may still live. Of those that are gone, the one that was met
/// first is taken for the earlier one, and each waits for the one before it.
void LocalDomain::Succeed(const std::string& name, int pid) {
    const std::vector<int> known = m_lives.Holders(name);
    const std::optional<int> holder = known.size() > 1 ? m_directory.Holder(name) : std::nullopt;
    if (!holder) {
        return;
    }
    bool later = false;
    std::optional<int> before;
    for (const int one : known) {
        if (one == pid) {
            later = true;
        } else if (one != *holder) {
            Ended(one);
            before = later ? before : one;
        }
    }
    if (before) {
        m_lives.PutBefore(*before, pid);
    }
}

/// What a lane holds outlives the socket beside it.
void LocalDomain::HandleEnd(Incoming& incoming) {
    const int pid = incoming.Pid();
    if (incoming.Lane() == nullptr || !incoming.Lane()->HasNews()) {
        Remove(incoming);
    }
    Ended(pid);
}

void LocalDomain::Break(Incoming& incoming, const std::string& complaint) {
    Report("the link from process " + std::to_string(incoming.Pid()) + " to application " +
           Quoted(m_listeners.at(incoming.Application())->Name()) + " is closed: " + complaint);
    Remove(incoming);
}

void LocalDomain::Remove(Incoming& incoming) {
    m_lastMet.reset();  // the bell may be this link's, and is a descriptor
    std::erase(m_readable, &incoming);
    std::erase(m_parked, &incoming);
    std::erase(m_starved, &incoming);
    std::erase(m_successors, &incoming);
    std::erase(m_lanes, &incoming);
    m_incoming.remove_if([&](const auto& one) { return one.get() == &incoming; });
    m_nextTry = {};  // with its descriptors another one may be accepted
    SeeWhetherShortageIsOver();
}

/// Reports every ended process of which nothing is left to read. What is parked stays: its time comes with
/// the handler.
void LocalDomain::ReportEnds() {
    if (m_endUnexamined) {
        m_endUnexamined = false;
        Accept();
    }
    const std::set<int> unread = Unread();
    for (const int pid : m_lives.Ending()) {
        if (!unread.contains(pid)) {
            ReportEnd(pid);
        }
    }
}

/// The processes of which something is left to read.
std::set<int> LocalDomain::Unread() const {
    std::set<int> unread;
    for (const auto* queue : {&m_readable, &m_starved, &m_successors}) {
        for (const Incoming* incoming : *queue) {
            unread.insert(incoming->Pid());
        }
    }
    for (const Incoming* incoming : m_lanes) {
        if (incoming->Lane()->HasNews() && IsWanted(*incoming, Take::kDelivered)) {
            unread.insert(incoming->Pid());
        }
    }
    return unread;
}

void LocalDomain::ReportEnd(int pid) {
    for (Incoming* parked : m_parked) {
        parked->orphaned = parked->orphaned || parked->Pid() == pid;
    }
    for (Incoming* incoming : m_lanes) {
        incoming->orphaned = incoming->orphaned || (incoming->Pid() == pid && incoming->Lane()->HasNews());
    }
    m_lastMet.reset();
    const auto over = [&](const Incoming& incoming) { return incoming.Pid() == pid && !incoming.orphaned; };
    std::erase_if(m_lanes, [&](const Incoming* incoming) { return over(*incoming); });
    m_incoming.remove_if([&](const auto& incoming) { return over(*incoming); });
    std::erase_if(m_outgoing, [&](const auto& entry) {
        const bool theirs = entry.second->To().pid == pid;
        if (theirs) {
            entry.second->SetLost();
        }
        return theirs;
    });
    for (PeerLost& report : m_lives.Bury(pid)) {
        m_reports.push_back(std::move(report));
    }
    LetSuccessorsGo();
}

/// An application that has come back is heard when all that its last life has sent was taken, and the end of
/// that life reported.
void LocalDomain::LetSuccessorsGo() {
    std::erase_if(m_successors, [&](Incoming* incoming) {
        const bool free = !m_lives.HasToWait(incoming->Pid());
        if (free) {
            m_readable.push_back(incoming);
        }
        return free;
    });
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

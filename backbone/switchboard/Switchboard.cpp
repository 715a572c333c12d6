#include "switchboard/Switchboard.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <iterator>
#include <map>
#include <utility>

#include "Diagnostics.h"
#include "QORText.h"

namespace zyl::backbone {

namespace {

constexpr const char* kSourceFile = "backbone/switchboard/Switchboard";

/// A type name and its terminator are counted in 16 bits on the wire.
constexpr std::size_t kLongestType = 65534;

/// After this long a sender says for whom it waits.
constexpr auto kPatience = std::chrono::seconds(2);

/// When a circle of processes that wait for one another was found, this part of the budget is added: finding
/// it took a while, so this is not little.
constexpr std::size_t kCircleShare = 4;

/// What a message costs besides its body, about.
constexpr std::size_t kMessageOverhead = 256;

/// Messages that are dropped for one target are one line, and then at most one more in such an interval.
constexpr auto kDropLineInterval = std::chrono::seconds(1);

/// Of more names than this it is not noted any more that they were lost before anything was sent to them.
constexpr std::size_t kMostTargetsNoted = 4096;

/// What had come when the limit of a loop was over is still delivered, but a flood does not hold the loop for
/// ever.
constexpr int kDispatchesPastLimit = 1000;

/// The body of a message that an application of this process sends to another one of it.
struct OwnedBytes final : MessageStorage {
    explicit OwnedBytes(const std::string& typeName, int size)
        : type(typeName),
          body(std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(size) + kGuardSize)) {}
    std::string type;
    std::unique_ptr<char[]> body;
};

void CheckName(std::string_view name, const char* what) {
    if (name.size() > kLongestName) {
        Fatal(std::string(what) + " name " + Quoted(std::string(name)) + " has " +
                  std::to_string(name.size()) + " bytes; the most is " + std::to_string(kLongestName),
              kSourceFile, __LINE__);
    }
}

/// What an event that waits costs in memory, about.
std::size_t Weight(const Event& event) {
    const auto* message = std::get_if<Message>(&event);
    return message != nullptr ? static_cast<std::size_t>(message->Size()) + kMessageOverhead : 0;
}

/// Counts who is inside, for as long as it lives: a callback may throw.
class Inside {
  public:
    explicit Inside(int& count) : m_count(count) { ++m_count; }
    ~Inside() { --m_count; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

  private:
    int& m_count;
};

/// A signal handler may change the condition as well.
int ValueOf(const int* condition) {
    return *static_cast<const volatile int*>(condition);
}

}  // namespace

/// Something that was taken in, and the how manieth it was.
struct Switchboard::Numbered {
    std::uint64_t number;
    Event event;
};

struct Switchboard::Application {
    int number = 0;
    std::string name;
    ZYLFeaBackbone_ReceiveCallback receive = nullptr;
    ZYLFeaBackbone_DisconnectCallback disconnect = nullptr;
    /// What came before there was a handler: from peers, and from this process.
    std::deque<Numbered> waiting;
    std::deque<Numbered> waitingFromSelf;
};

/// An application that this process has sent to.
struct Switchboard::Target {
    std::string name;
    std::unique_ptr<Link> link{};
    /// Its last life is over, or it did not come in time: sends fail at once until it is there again.
    bool lost = false;
    /// Its absence has been reported, or the transport is going to.
    bool reported = false;
    /// Messages dropped since it was last there, how many of them a line has told of, and when it did.
    long dropped = 0;
    long droppedAndSaid = 0;
    Clock::time_point said{};
};

struct Switchboard::Membership {
    std::string name;
    std::unique_ptr<Domain> domain;
    std::deque<Application> applications;  // stays in place while it grows: callbacks may declare more
    std::map<std::string, Target, std::less<>> targets;
    /// The one sent to last: no application of this process.
    Target* lastTarget = nullptr;
    /// Taken in while a send waited; older than anything the domain still holds.
    std::deque<Numbered> inbox;
    /// Sent within this process. Takes turns with the rest, so that neither starves.
    std::deque<Numbered> fromSelf;
    bool selfIsNext = false;
    std::uint64_t lastNumber = 0;
    /// What all of that, and what waits for handlers, costs in memory, about.
    std::size_t takenIn = 0;

    Application* Find(std::string_view wanted) {
        const auto found = std::find_if(applications.begin(), applications.end(),
                                        [&](const Application& one) { return one.name == wanted; });
        return found != applications.end() ? &*found : nullptr;
    }
    /// What to dispatch next, if there is anything.
    std::optional<Event> Next() {
        selfIsNext = !selfIsNext;
        if (fromSelf.empty() || !selfIsNext) {
            if (!inbox.empty()) {
                return Pop(inbox);
            }
            if (fromSelf.empty()) {
                return domain->Next(Take::kDelivered);
            }
            if (std::optional<Event> event = domain->Next(Take::kDelivered)) {
                return event;
            }
        }
        return Pop(fromSelf);
    }
    Event Pop(std::deque<Numbered>& queue) {
        Event event = std::move(queue.front().event);
        queue.pop_front();
        takenIn -= Weight(event);
        return event;
    }
    /// Puts an event where it waits for its turn.
    void TakeIn(std::deque<Numbered>& queue, Event event) {
        const std::uint64_t number = ++lastNumber;
        takenIn += Weight(event);
        if (const auto* lost = std::get_if<PeerLost>(&event)) {
            NoteLoss(*lost);
        }
        if (const auto* message = std::get_if<Message>(&event)) {
            Application& receiver = applications[static_cast<std::size_t>(message->Application())];
            if (receiver.receive == nullptr) {
                (&queue == &fromSelf ? receiver.waitingFromSelf : receiver.waiting)
                    .push_back({number, std::move(event)});
                return;
            }
        }
        queue.push_back({number, std::move(event)});
    }
    /// What has waited for a handler takes its place among the others.
    static void Release(std::deque<Numbered>& waiting, std::deque<Numbered>& queue) {
        std::deque<Numbered> merged;
        std::merge(std::make_move_iterator(waiting.begin()), std::make_move_iterator(waiting.end()),
                   std::make_move_iterator(queue.begin()), std::make_move_iterator(queue.end()),
                   std::back_inserter(merged),
                   [](const Numbered& one, const Numbered& other) { return one.number < other.number; });
        waiting.clear();
        queue = std::move(merged);
    }
    bool Watches() const {
        return std::any_of(applications.begin(), applications.end(),
                           [](const Application& one) { return one.disconnect != nullptr; });
    }
    /// Whether the end of a life of that peer is still to be dispatched. The reports that this object has
    /// made itself are of no life: their peer has no process number.
    bool OwesLossOf(const std::string& peer) const {
        return domain->OwesLossOf(peer) || std::any_of(inbox.begin(), inbox.end(), [&](const Numbered& one) {
                   const auto* lost = std::get_if<PeerLost>(&one.event);
                   return lost != nullptr && lost->peer->pid != 0 && lost->peer->application == peer;
               });
    }
    /// A life is over: sends to that peer fail at once until it is there again, also first ones. A passing
    /// helper that was never sent to is nobody's loss; and a link that is still there tells by itself that
    /// its peer is gone.
    void NoteLoss(const PeerLost& lost) {
        auto found = targets.find(lost.peer->application);
        if (found == targets.end() && lost.announced && targets.size() < kMostTargetsNoted) {
            found = targets.emplace(lost.peer->application, Target{lost.peer->application}).first;
        }
        if (found == targets.end()) {
            return;
        }
        Target& target = found->second;
        if (target.link == nullptr) {
            target.reported = lost.announced || target.reported;
            target.lost = true;
        }
    }
    /// The last word on the messages that were dropped for a target.
    void SayHowManyWereDropped(Target& target) const {
        if (target.dropped != target.droppedAndSaid) {
            Report("in all " + std::to_string(target.dropped) + " messages for application " +
                   Quoted(target.name) + " in domain " + Quoted(name) + " were dropped");
        }
        target.dropped = 0;
        target.droppedAndSaid = 0;
    }
};

struct Switchboard::Request {
    const char* type;
    int size;
    ZYLFeaBackbone_StreamCallback stream;

    /// Has the message written to `room`, and makes sure that it ends where it said it would.
    void Fill(void* room, const std::string& target) const {
        constexpr std::array<char, kGuardSize> kGuard = {'Z', 'Y', 'L', '-', 'e', 'n', 'd', '\1'};
        char* const guard = static_cast<char*>(room) + size;
        std::memcpy(guard, kGuard.data(), kGuardSize);
        stream(room, size);
        if (std::memcmp(guard, kGuard.data(), kGuardSize) != 0) {
            Fatal("a message of type " + Quoted(type) + " for application " + Quoted(target) +
                      " wrote more than the " + std::to_string(size) +
                      " bytes that it had announced; its RequiredBufferSize and Stream must agree",
                  kSourceFile, __LINE__);
        }
    }
};

Switchboard::Switchboard(std::unique_ptr<Transport> transport, const Settings& settings)
    : m_transport(std::move(transport)), m_settings(settings), m_allowance(settings.takenInBudget) {}

Switchboard::~Switchboard() {
    Leave();
}

void Switchboard::Leave() {
    for (const auto& member : m_memberships) {
        for (auto& [name, target] : member->targets) {
            member->SayHowManyWereDropped(target);
        }
        member->targets.clear();
        member->domain.reset();
    }
}

void Switchboard::CheckOwner() const {
    if (m_abandoned) {
        Fatal(
            "this process was forked from one that uses the backbone and cannot use it itself; "
            "execute a program first",
            kSourceFile, __LINE__);
    }
}

int Switchboard::RegisterCommunicator(const std::string& name) {
    CheckName(name, "domain");
    const auto known = std::find_if(m_memberships.begin(), m_memberships.end(),
                                    [&](const auto& member) { return member->name == name; });
    if (known == m_memberships.end()) {
        auto member = std::make_unique<Membership>();
        member->name = name;
        member->domain = m_transport->Join(name);
        m_all.push_back(member.get());
        m_domains.push_back(member->domain.get());
        m_memberships.push_back(std::move(member));
        return static_cast<int>(m_memberships.size());
    }
    return static_cast<int>(known - m_memberships.begin()) + 1;
}

void Switchboard::DeclareApplicationId(int communicator, const std::string& name, bool announce) {
    Declared(MembershipOf(communicator, "DeclareApplicationId"), name, announce);
}

void Switchboard::AssociateHandler(int communicator, const std::string& name,
                                   ZYLFeaBackbone_ReceiveCallback callback) {
    Membership& member = MembershipOf(communicator, "AssociateHandler");
    Application& application = Declared(member, name, true);
    application.receive = callback;
    member.domain->Deliver(application.number);
    Membership::Release(application.waiting, member.inbox);
    Membership::Release(application.waitingFromSelf, member.fromSelf);
}

void Switchboard::AssociateDisconnectHandler(int communicator, const std::string& name,
                                             ZYLFeaBackbone_DisconnectCallback callback) {
    Membership& member = MembershipOf(communicator, "AssociateDisconnectHandler");
    Application& application = Declared(member, name, true);
    application.disconnect = callback;
    member.domain->Watch(application.number);
}

Switchboard::Membership& Switchboard::MembershipOf(int communicator, const char* function) {
    if (communicator < 1 || static_cast<std::size_t>(communicator) > m_memberships.size()) {
        Fatal(std::string(function) + ": there is no communicator " + std::to_string(communicator) +
                  "; RegisterCommunicator gives one",
              kSourceFile, __LINE__);
    }
    return *m_memberships[static_cast<std::size_t>(communicator) - 1];
}

Switchboard::Application& Switchboard::Declared(Membership& member, const std::string& name, bool announce) {
    CheckName(name, "application");
    if (Application* known = member.Find(name)) {
        return *known;
    }
    const int number = static_cast<int>(member.applications.size());
    try {
        member.domain->Announce(number, name, announce);
    } catch (const NameTaken& taken) {
        Fatal("application " + Quoted(name) + " of domain " + Quoted(member.name) +
                  " is held by the living process " + std::to_string(taken.Pid()) + " on " + taken.Host() +
                  "; end that process or choose another name",
              kSourceFile, __LINE__);
    }
    member.lastTarget = nullptr;  // it may have been this name, of a process that has gone
    Application& application = member.applications.emplace_back();
    application.number = number;
    application.name = name;
    return application;
}

void Switchboard::SendRequest(int communicator, std::string_view name, ZYLFeaBackbone_StreamCallback stream,
                              ZYLFeaBackbone_SizeCallback size, ZYLFeaBackbone_TypeCallback type) {
    Membership& member = MembershipOf(communicator, "SendRequest");
    CheckName(name, "application");
    if (m_writing > 0) {
        Fatal("SendRequest was called for application " + Quoted(std::string(name)) +
                  " by a callback that writes another message; send the one after the other",
              kSourceFile, __LINE__);
    }
    const Request request{QORText::OrEmpty(type()), size(), stream};
    CheckOwner();
    const std::size_t typeSize = std::strlen(request.type);
    if (request.size < 0 || typeSize > kLongestType) {
        Fatal("a message of type " + Quoted(request.type) + " for " + Quoted(std::string(name)) +
                  " has size " + std::to_string(request.size) + " and a type name of " +
                  std::to_string(typeSize) + " bytes; the size must be 0 or more and the name at most " +
                  std::to_string(kLongestType),
              kSourceFile, __LINE__);
    }
    if (member.lastTarget != nullptr && member.lastTarget->name == name) {
        SendToPeer(member, *member.lastTarget, request);
    } else if (const Application* own = member.Find(name)) {
        SendToSelf(member, *own, request);
    } else {
        member.lastTarget = &TargetOf(member, name);
        SendToPeer(member, *member.lastTarget, request);
    }
}

void Switchboard::SendToSelf(Membership& member, const Application& application, const Request& request) {
    auto bytes = std::make_shared<OwnedBytes>(request.type, request.size);
    {
        const Inside writing(m_writing);
        request.Fill(bytes->body.get(), application.name);
    }
    member.TakeIn(member.fromSelf,
                  Message(application.number, bytes->type.c_str(), bytes->body.get(), request.size, bytes));
}

Switchboard::Target& Switchboard::TargetOf(Membership& member, std::string_view name) {
    auto found = member.targets.find(name);
    if (found == member.targets.end()) {
        found = member.targets.emplace(name, Target{std::string(name)}).first;
    }
    return found->second;
}

void Switchboard::SendToPeer(Membership& member, Target& target, const Request& request) {
    Link* link = LinkTo(member, target, request);
    if (link == nullptr) {
        Drop(member, target, request, target.lost ? "it is gone" : "it did not come in time");
    } else if (!Transfer(target, request)) {
        target.reported = link->Announced();  // the domain is going to report it, after its last message
        target.link.reset();
        Drop(member, target, request, "it was lost");
    }
}

Link* Switchboard::LinkTo(Membership& member, Target& target, const Request& request) {
    if (target.link != nullptr && !target.link->Alive()) {
        target.reported = target.link->Announced();
        target.link.reset();
        target.lost = true;
    }
    if (target.link == nullptr) {
        Open(member, target);
    }
    if (target.link == nullptr && !target.lost) {
        AwaitTarget(member, target, request);
    }
    if (target.link != nullptr && target.lost) {
        target.lost = false;
        target.reported = false;
        member.SayHowManyWereDropped(target);
    }
    return target.link.get();
}

void Switchboard::AwaitTarget(Membership& member, Target& target, const Request& request) {
    const Clock::time_point start = m_transport->Now();
    const Clock::time_point end = start + m_settings.connectTimeout;
    Restraint restraint(*m_transport, m_domains, nullptr, m_settings.takenInBudget / kCircleShare,
                        m_seenToken);
    bool said = false;
    for (Clock::time_point now = start; target.link == nullptr && !target.lost && now < end;
         now = m_transport->Now()) {
        if (!said && now - start >= kPatience) {
            Report("still waiting for application " + Quoted(target.name) + " in domain " +
                   Quoted(member.name) + ", which is not there, to send it a message of type " +
                   Quoted(request.type) + "; waits " +
                   std::to_string(std::chrono::ceil<std::chrono::seconds>(end - now).count()) + " s more; " +
                   member.domain->WhereItLooks());
            said = true;
        }
        WaitTakingIn(end, restraint);
        Open(member, target);
    }
}

/// Opens a link to the target, if it is there. A new life of it is not there for a callback, nor for a
/// process that watches, before they have heard of the end of the last one: an answer, or the rest of a
/// conversation, is for the life that they know. Who only sends goes on with the new one at once.
void Switchboard::Open(Membership& member, Target& target) const {
    target.link = member.domain->Open(target.name);
    if (target.link != nullptr && (m_depth > 0 || member.Watches()) && member.OwesLossOf(target.name)) {
        target.link.reset();
        target.lost = true;
        target.reported = true;
    }
}

/// False when the peer was lost before it had the whole message.
bool Switchboard::Transfer(const Target& target, const Request& request) {
    Link& link = *target.link;
    Restraint restraint(*m_transport, m_domains, &link, m_settings.takenInBudget / kCircleShare, m_seenToken);
    void* room = link.Reserve(request.type, request.size);
    while (room == nullptr) {
        if (!link.Alive()) {
            return false;
        }
        WaitTakingIn({}, restraint);
        room = link.Reserve(request.type, request.size);
    }
    {
        const Inside writing(m_writing);
        request.Fill(room, target.name);
    }
    CheckOwner();
    Progress progress = link.Commit();
    while (progress == Progress::kBlocked) {
        WaitTakingIn({}, restraint);
        progress = link.Commit();
    }
    return progress == Progress::kDone;
}

void Switchboard::Drop(Membership& member, Target& target, const Request& request,
                       const std::string& reason) {
    ++target.dropped;
    const Clock::time_point now = m_transport->Now();
    if (target.dropped == 1 || now - target.said >= kDropLineInterval) {
        const std::string who =
            " for application " + Quoted(target.name) + " in domain " + Quoted(member.name);
        Report(target.dropped == 1
                   ? "a message of type " + Quoted(request.type) + who + " is dropped: " + reason
                   : std::to_string(target.dropped) + " messages" + who + " are dropped by now: " + reason);
        target.said = now;
        target.droppedAndSaid = target.dropped;
    }
    target.lost = true;
    if (!target.reported) {
        target.reported = true;
        auto peer = std::make_unique<Peer>(m_transport->Self());
        peer->application = target.name;
        peer->pid = 0;
        member.inbox.push_back({++member.lastNumber, PeerLost{std::move(peer), true}});
    }
}

/// A send waits for room or for its target. What arrives is put aside, nothing is dispatched; and the send is
/// tried again after each message of a domain, so that a flood does not hold it up.
void Switchboard::WaitTakingIn(Deadline deadline, Restraint& restraint) {
    const std::size_t takenIn = TakenIn();
    if (takenIn < m_settings.takenInBudget) {
        m_allowance = m_settings.takenInBudget;
    } else if (takenIn >= m_allowance) {
        m_allowance = takenIn + restraint.Hold(deadline);
        if (takenIn >= m_allowance) {
            return;
        }
    }
    bool tookSome = false;
    for (const auto& member : m_memberships) {
        if (std::optional<Event> event = member->domain->Next(Take::kAll)) {
            member->TakeIn(member->inbox, std::move(*event));
            tookSome = true;
        }
    }
    if (!tookSome) {
        m_transport->Wait(m_domains, deadline, Take::kAll);
    }
}

std::size_t Switchboard::TakenIn() const {
    std::size_t bytes = 0;
    for (const auto& member : m_memberships) {
        bytes += member->takenIn;
    }
    return bytes;
}

void Switchboard::WaitingLoop(int communicator, int limit, const int* condition) {
    Membership* const member = &MembershipOf(communicator, "WaitingLoop");
    Domain* const domain = member->domain.get();
    Loop({&member, 1}, {&domain, 1}, limit, condition);
}

void Switchboard::WaitingLoop(const int* condition, int limit) {
    const std::vector<Membership*> members = m_all;  // a callback may join another domain meanwhile
    const std::vector<Domain*> domains = m_domains;
    Loop(members, domains, limit, condition);
}

void Switchboard::Loop(std::span<Membership* const> members, std::span<Domain* const> domains, int limit,
                       const int* condition) {
    const int atCall = ValueOf(condition);
    if (atCall == 0) {
        return;
    }
    const Deadline deadline = limit < 0 ? Deadline() : m_transport->Now() + std::chrono::milliseconds(limit);
    const auto changed = [&] { return ValueOf(condition) != atCall; };
    const auto expired = [&] { return deadline && m_transport->Now() >= *deadline; };
    int late = 0;
    for (bool lastLook = false;; lastLook = expired()) {
        bool found = true;
        while (found) {
            found = false;
            for (Membership* member : members) {
                found = DispatchOne(*member) || found;
                if (changed()) {
                    return;
                }
            }
            if (expired() && ++late > kDispatchesPastLimit) {
                return;
            }
        }
        if (lastLook) {
            return;
        }
        m_transport->Wait(domains, deadline, Take::kDelivered);
    }
}

bool Switchboard::DispatchOne(Membership& member) {
    const std::optional<Event> event = member.Next();
    if (event) {
        Dispatch(member, *event);
    }
    return event.has_value();
}

void Switchboard::Dispatch(Membership& member, const Event& event) {
    const Inside dispatching(m_depth);
    if (const auto* message = std::get_if<Message>(&event)) {
        member.applications[static_cast<std::size_t>(message->Application())].receive(
            message->Type(), message->Body(), message->Size());
    } else {
        DispatchLoss(member, std::get<PeerLost>(event));
    }
    CheckOwner();
}

void Switchboard::DispatchLoss(Membership& member, const PeerLost& lost) {
    const Peer& peer = *lost.peer;
    const auto target = member.targets.find(peer.application);
    if (target != member.targets.end() && target->second.link != nullptr && !target->second.link->Alive()) {
        target->second.link.reset();
    }
    member.NoteLoss(lost);
    if (!lost.announced) {
        return;
    }
    for (std::size_t index = 0; index < member.applications.size(); ++index) {
        if (member.applications[index].disconnect != nullptr) {
            member.applications[index].disconnect(peer.pid, peer.application.c_str(), peer.host.c_str(),
                                                  peer.user.c_str());
        }
    }
}

}  // namespace zyl::backbone

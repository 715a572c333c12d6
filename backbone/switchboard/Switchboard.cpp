#include "switchboard/Switchboard.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <map>
#include <utility>

#include "Diagnostics.h"
#include "QORText.h"
#include "switchboard/Inbox.h"

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
        Fatal(fmt::format("{} name {} has {} bytes; the most is {}", what, Quoted(std::string(name)),
                          name.size(), kLongestName),
              kSourceFile, __LINE__);
    }
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

struct Switchboard::Application {
    int number = 0;
    std::string name;
    ZYLFeaBackbone_ReceiveCallback receive = nullptr;
    ZYLFeaBackbone_DisconnectCallback disconnect = nullptr;
};

struct Switchboard::Membership {
    std::string name;
    std::unique_ptr<Domain> domain;
    std::deque<Application> applications;  // stays in place while it grows: callbacks may declare more
    std::map<std::string, Target, std::less<>> targets;
    /// The one sent to last: no application of this process.
    Target* lastTarget = nullptr;
    Inbox inbox;
    /// The loss that the applications are being told of, and how many were told.
    std::shared_ptr<const Peer> lostPeer;
    std::size_t toldOfLoss = 0;

    Application* Find(std::string_view wanted) {
        const auto found = std::find_if(applications.begin(), applications.end(),
                                        [&](const Application& one) { return one.name == wanted; });
        return found != applications.end() ? &*found : nullptr;
    }
    bool Watches() const {
        return std::any_of(applications.begin(), applications.end(),
                           [](const Application& one) { return one.disconnect != nullptr; });
    }
    Target& TargetOf(std::string_view wanted) {
        auto found = targets.find(wanted);
        if (found == targets.end()) {
            std::string key(wanted);
            Target target(key, name);
            found = targets.emplace(std::move(key), std::move(target)).first;
        }
        return found->second;
    }
    /// Whether the end of a life of that peer is still to be dispatched.
    bool OwesLossOf(const std::string& peer) const {
        return domain->OwesLossOf(peer) || inbox.HasLossOf(peer);
    }
    /// A life is over: sends to that peer fail at once until it is there again, also first ones. A passing
    /// helper that was never sent to is nobody's loss.
    void NoteLoss(const PeerLost& lost) {
        const std::string& peer = lost.peer->application;
        if (targets.contains(peer) || (lost.announced && targets.size() < kMostTargetsNoted)) {
            TargetOf(peer).NoteLoss(lost.announced);
        }
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
            Fatal(fmt::format(
                      "a message of type {} for application {} wrote more than the {} bytes that it had "
                      "announced; its RequiredBufferSize and Stream must agree",
                      Quoted(type), Quoted(target), size),
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
            target.SayHowManyWereDropped();
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
    member.inbox.HandlerCame(application.number);
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
        Fatal(fmt::format("{}: there is no communicator {}; RegisterCommunicator gives one", function,
                          communicator),
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
        Fatal(fmt::format(
                  "application {} of domain {} is held by the living process {} on {}; end that process or "
                  "choose another name",
                  Quoted(name), Quoted(member.name), taken.Pid(), taken.Host()),
              kSourceFile, __LINE__);
    }
    member.lastTarget = nullptr;  // it may have been this name, of a process that has gone
    Application& application = member.applications.emplace_back();
    application.number = number;
    application.name = name;
    member.inbox.AddApplication();
    return application;
}

void Switchboard::SendRequest(int communicator, std::string_view name, ZYLFeaBackbone_StreamCallback stream,
                              ZYLFeaBackbone_SizeCallback size, ZYLFeaBackbone_TypeCallback type) {
    Membership& member = MembershipOf(communicator, "SendRequest");
    CheckName(name, "application");
    if (m_writing > 0) {
        Fatal(fmt::format(
                  "SendRequest was called for application {} by a callback that writes another message; "
                  "send the one after the other",
                  Quoted(std::string(name))),
              kSourceFile, __LINE__);
    }
    const Request request{QORText::OrEmpty(type()), size(), stream};
    CheckOwner();
    const std::size_t typeSize = std::strlen(request.type);
    if (request.size < 0 || typeSize > kLongestType) {
        Fatal(fmt::format(
                  "a message of type {} for {} has size {} and a type name of {} bytes; the size must be 0 "
                  "or more and the name at most {}",
                  Quoted(request.type), Quoted(std::string(name)), request.size, typeSize, kLongestType),
              kSourceFile, __LINE__);
    }
    if (member.lastTarget != nullptr && member.lastTarget->Name() == name) {
        SendToPeer(member, *member.lastTarget, request);
    } else if (const Application* own = member.Find(name)) {
        SendToSelf(member, *own, request);
    } else {
        member.lastTarget = &member.TargetOf(name);
        SendToPeer(member, *member.lastTarget, request);
    }
}

void Switchboard::SendToSelf(Membership& member, const Application& application, const Request& request) {
    auto bytes = std::make_shared<OwnedBytes>(request.type, request.size);
    {
        const Inside writing(m_writing);
        request.Fill(bytes->body.get(), application.name);
    }
    member.inbox.TakeInFromSelf(
        Message(application.number, bytes->type.c_str(), bytes->body.get(), request.size, bytes));
}

void Switchboard::SendToPeer(Membership& member, Target& target, const Request& request) {
    if (LinkTo(member, target, request) == nullptr) {
        Drop(member, target, request, target.IsLost() ? "it is gone" : "it did not come in time");
    } else if (!Transfer(target, request)) {
        target.LoseLink();  // the domain is going to report it, after its last message
        Drop(member, target, request, "it was lost");
    }
}

Link* Switchboard::LinkTo(Membership& member, Target& target, const Request& request) {
    if (target.OpenLink() != nullptr && !target.OpenLink()->Alive()) {
        target.LoseLink();
    }
    if (target.OpenLink() == nullptr) {
        Open(member, target);
    }
    if (target.OpenLink() == nullptr && !target.IsLost()) {
        AwaitTarget(member, target, request);
    }
    return target.OpenLink();
}

void Switchboard::AwaitTarget(Membership& member, Target& target, const Request& request) {
    const Clock::time_point start = m_transport->Now();
    const Clock::time_point end = start + m_settings.connectTimeout;
    Restraint restraint(*m_transport, m_domains, nullptr, m_settings.takenInBudget / kCircleShare,
                        m_seenToken);
    bool said = false;
    for (Clock::time_point now = start; target.OpenLink() == nullptr && !target.IsLost() && now < end;
         now = m_transport->Now()) {
        if (!said && now - start >= kPatience) {
            Report(fmt::format(
                "still waiting {}, which is not there, to send it a message of type {}; waits {} s more; {}",
                target.ForWhom(), Quoted(request.type),
                std::chrono::ceil<std::chrono::seconds>(end - now).count(), member.domain->WhereItLooks()));
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
    std::unique_ptr<Link> link = member.domain->Open(target.Name());
    if (link == nullptr) {
        return;
    }
    if ((m_depth > 0 || member.Watches()) && member.OwesLossOf(target.Name())) {
        target.NoteLoss(true);
    } else {
        target.Open(std::move(link));
    }
}

/// False when the peer was lost before it had the whole message.
bool Switchboard::Transfer(const Target& target, const Request& request) {
    Link& link = *target.OpenLink();
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
        request.Fill(room, target.Name());
    }
    CheckOwner();
    Progress progress = link.Commit();
    while (progress == Progress::kBlocked) {
        WaitTakingIn({}, restraint);
        progress = link.Commit();
    }
    return progress == Progress::kDone;
}

void Switchboard::Drop(Membership& member, Target& target, const Request& request, const char* reason) {
    if (target.Drop(request.type, reason, m_transport->Now())) {
        auto peer = std::make_unique<Peer>(m_transport->Self());
        peer->application = target.Name();
        peer->pid = 0;
        member.inbox.TakeIn(PeerLost{std::move(peer), true});
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
            if (const auto* lost = std::get_if<PeerLost>(&*event)) {
                member->NoteLoss(*lost);
            }
            member->inbox.TakeIn(std::move(*event));
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
        bytes += member->inbox.Bytes();
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
    const Inside dispatching(m_depth);
    if (member.lostPeer == nullptr) {
        const std::optional<Event> event = member.inbox.Next(*member.domain);
        if (!event) {
            return false;
        }
        Dispatch(member, *event);
    }
    if (member.lostPeer != nullptr) {
        TellOfLoss(member);
    }
    CheckOwner();
    return true;
}

void Switchboard::Dispatch(Membership& member, const Event& event) {
    if (const auto* message = std::get_if<Message>(&event)) {
        member.applications[static_cast<std::size_t>(message->Application())].receive(
            message->Type(), message->Body(), message->Size());
        return;
    }
    const auto& lost = std::get<PeerLost>(event);
    const auto target = member.targets.find(lost.peer->application);
    if (target != member.targets.end()) {
        target->second.ForgetDeadLink();
    }
    member.NoteLoss(lost);
    if (lost.announced) {
        member.lostPeer = lost.peer;
        member.toldOfLoss = 0;
    }
}

/// Each application hears of a loss before anything else happens in the domain: a loop in a callback first
/// goes on with the others, and so does the next loop after a callback that has thrown.
void Switchboard::TellOfLoss(Membership& member) {
    while (member.lostPeer != nullptr) {
        if (member.toldOfLoss == member.applications.size()) {
            member.lostPeer.reset();
            return;
        }
        const std::shared_ptr<const Peer> peer =
            member.lostPeer;  // a loop in the callback may go on to the next
        const Application& application = member.applications[member.toldOfLoss++];
        if (application.disconnect != nullptr) {
            application.disconnect(peer->pid, peer->application.c_str(), peer->host.c_str(),
                                   peer->user.c_str());
        }
    }
}

}  // namespace zyl::backbone

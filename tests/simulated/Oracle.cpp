#include "Oracle.h"

#include <algorithm>
#include <charconv>
#include <set>

#include "Arena.h"
#include "local/Lane.h"

namespace simulated {

namespace {

template <class... Arguments>
void Check(bool kept, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    if (!kept) {
        World::Current().Fail(fmt::format(format, std::forward<Arguments>(arguments)...));
    }
}

char ByteOf(std::size_t message, int at) {
    return static_cast<char>(message * 37 + static_cast<std::size_t>(at) * 7 + 1);
}

}  // namespace

void Oracle::Started(const Process& process) {
    const arena::ForTheWorld ours;
    m_lives.push_back(
        {&process, process.name, process.actor, process.self.pid, process.self.host, ++m_event, 0, 0});
}

void Oracle::Note(What what, const Process& process, int application) {
    const arena::ForTheWorld ours;
    m_events.at(static_cast<std::size_t>(what)).try_emplace({process.number, application}, ++m_event);
}

void Oracle::Ended(const Process& process) {
    const arena::ForTheWorld ours;
    Life& life = m_lives[static_cast<std::size_t>(process.number) - 1];
    if (life.ended != 0) {
        return;
    }
    life.ended = ++m_event;
    if (process.refused || World::Current().ItsKernel().IsHeldUp(process)) {
        return;  // it may not have been able to make itself known
    }
    for (const auto& [declared, since] : Of(What::kDeclared)) {
        const Application& application = Of(declared.second);
        for (const auto& [watches, from] : Of(What::kWatches)) {
            if (declared.first == process.number && application.announced &&
                watches.first != process.number && LifeOf(watches.first).ended == 0 &&
                Of(watches.second).domain == application.domain) {
                m_owed[{watches.first, watches.second, declared.second, process.number}] = false;
            }
        }
    }
}

void Oracle::Buried(const Process& process) {
    m_lives[static_cast<std::size_t>(process.number) - 1].buried = ++m_event;
}

int Oracle::BeginSend(const Process& process, const Step& step) {
    const arena::ForTheWorld ours;
    World& world = World::Current();
    m_messages.push_back({m_messages.size(), process.number, step.application, step.size, step.reaction,
                          step.other, world.Now(), ++m_event, world.Faults()});
    return static_cast<int>(m_messages.size()) - 1;
}

void Oracle::Streamed(int message, char* room, int size) {
    m_messages[static_cast<std::size_t>(message)].streamed = true;
    for (int at = 0; at < size; ++at) {
        room[at] = ByteOf(static_cast<std::size_t>(message), at);
    }
}

void Oracle::Line(const Process& process, const std::string& text) {
    for (std::size_t index = 0; index < m_plan.applications.size() && m_plan.lies == 0; ++index) {
        if (text.find("the link from") != std::string::npos &&
            text.find(m_plan.applications[index].name) != std::string::npos) {
            const arena::ForTheWorld ours;
            m_broken.emplace(process.number, static_cast<int>(index));
        }
    }
    if (!m_messages.empty() && text.find("is dropped") != std::string::npos) {
        for (std::size_t index = 0; index < m_messages.size(); ++index) {
            Message& message = m_messages[index];
            if (message.sending && message.sender == process.number) {
                message.told = text.find(fmt::format("'m{}'", index)) != std::string::npos &&
                               text.find(Of(message.target).name) != std::string::npos;
            }
        }
    }
}

void Oracle::EndSend(const Process& process, int index) {
    const arena::ForTheWorld ours;
    Message& message = m_messages[static_cast<std::size_t>(index)];
    ++m_event;
    message.sending = false;
    message.accepted = m_event;
    message.dropped = !message.streamed || message.told;
    if (message.dropped) {
        CheckDrop(message);
        ++m_drops[{process.number, message.target}];
    }
}

void Oracle::CheckDrop(const Message& message) const {
    const std::string text = Text(message.index);
    Check(message.receiver == 0, "{} is dropped though it was delivered", text);
    if (m_drops.contains({message.sender, message.target}) || AnyEnded(message.target) || m_plan.lies > 0) {
        return;
    }
    Check(message.told, "{} is dropped without a line", text);
    const World& world = World::Current();
    Check(world.Now() - message.begun >= m_plan.connectTimeout, "{} is dropped too early", text);
    const bool there = std::ranges::any_of(Of(What::kDeclared), [&](const auto& declared) {
        return declared.first.second == message.target && declared.second < message.event;
    });
    Check(!there || world.Faults() != message.faults || world.ItsWeather().backlog < 64,
          "{} is dropped though its target is there", text);
}

/// For whom it has closed a link to, that is as if it had ended; and it has not heard what else would have come.
bool Oracle::HasBroken(int process) const {
    return std::ranges::any_of(m_broken, [&](const auto& one) { return one.first == process; });
}

bool Oracle::AnyEnded(int application) const {
    return std::ranges::any_of(m_broken, [&](const auto& one) { return one.second == application; }) ||
           std::ranges::any_of(Of(What::kDeclares), [&](const auto& declares) {
               return declares.first.second == application && LifeOf(declares.first.first).ended != 0;
           });
}

const Oracle::Message& Oracle::Received(const Process& process, int application, std::string_view type,
                                        const char* body, int size) {
    const arena::ForTheWorld ours;
    ++m_event;
    std::size_t index = m_messages.size();
    if (!type.empty()) {
        std::from_chars(type.data() + 1, type.data() + type.size(), index);
    }
    Check(index < m_messages.size(), "{} receives a message of the unknown type {}", process.name, type);
    Message& message = m_messages[index];
    const std::string text = Text(index);
    Check(message.target == application, "{} comes to application {}", text, Of(application).name);
    Check(message.receiver == 0, "{} is delivered again", text);
    Check(!message.dropped, "{} is delivered though it was dropped", text);
    Check(message.streamed && message.size == size, "{} has {} bytes", text, size);
    CheckBody(message, body);
    message.receiver = process.number;
    CheckOrder(index);
    CheckLosses(index);
    CheckTurn(process, message);
    return message;
}

void Oracle::CheckBody(const Message& message, const char* body) const {
    for (int at = 0; at < message.size; ++at) {
        if (body[at] != ByteOf(message.index, at)) {
            World::Current().Fail(fmt::format("{} is wrong at byte {}", Text(message.index), at));
        }
    }
}

int Oracle::FirstOf(int process) const {
    const auto found = std::ranges::find_if(
        m_plan.applications, [&](const Application& one) { return one.actor == LifeOf(process).actor; });
    return static_cast<int>(found - m_plan.applications.begin());
}

/// What waiting sends take in is within the budget, a part of it for a circle that was just left and a message of
/// each domain. Each link has a lane and its successor, two blocks, and what was read of its channel; each
/// handler that waits looks at one of these. A message that came in a frame keeps what was read with it.
void Oracle::CheckMemory(const Process& process, int depth) {
    constexpr std::size_t kObjects = 20 * 1024;
    constexpr std::size_t kQuietChunk = 8 * 1024;
    constexpr std::size_t kBusyChunk = 512 * 1024;
    World& world = World::Current();
    if (m_circled.contains(process.number) || WaitsForItself(process.number)) {
        const arena::ForTheWorld ours;
        m_circled.insert(process.number);
        return;
    }
    const std::size_t lane = zyl::backbone::local::kLaneHead + m_plan.ring;
    const std::size_t block =
        (std::max(m_plan.LongestMessage(), m_plan.lies > 0 ? 2 * zyl::backbone::local::kLaneHead : 0) + 64) *
        9 / 8;
    const bool quiet = m_plan.lanes && world.Faults() == 0 && m_plan.weather.shortTransfers == 0;
    const std::size_t chunk = quiet ? kQuietChunk : kBusyChunk;
    const std::size_t links = world.ItsKernel().CountOfChannels(process);
    const auto handlers = static_cast<std::size_t>(depth);
    const std::size_t takenIn = m_plan.Budget() * 5 / 4 + 2 * block;
    std::size_t most = kObjects + takenIn + links * chunk + handlers * (block + 512) +
                       (quiet ? 0 : (m_lives.size() + handlers) * chunk);
    for (const Message& message : m_messages) {
        const bool toItself = message.sender == process.number && Of(message.target).actor == process.actor;
        most += toItself && message.receiver == 0 ? static_cast<std::size_t>(message.size) + 512 : 0;
    }
    const std::size_t held = arena::Living(static_cast<std::size_t>(process.number));
    Check(held <= most, "{} holds {} bytes, {} more than it may", process.name, held, held - most);
    // A short message that was taken in may lie in a long block: two of each link that there has been.
    const std::size_t mostShared = takenIn + links * 2 * (lane + block) +
                                   (links + m_lives.size()) * 2 * block + handlers * std::max(lane, block);
    Check(process.mapped <= mostShared, "{} shares {} bytes, {} more than it may", process.name,
          process.mapped, process.mapped - mostShared);
}

/// Whether the process sends to one that sends to another one, and so on, until it is the process itself.
bool Oracle::WaitsForItself(int process) const {
    const auto target = [&](int sender) {
        const auto sending =
            std::find_if(m_messages.rbegin(), m_messages.rend(),
                         [&](const Message& message) { return message.sending && message.sender == sender; });
        const auto life = std::find_if(m_lives.rbegin(), m_lives.rend(), [&](const Life& one) {
            return sending != m_messages.rend() && one.actor == Of(sending->target).actor;
        });
        return static_cast<int>(m_lives.rend() - life);
    };
    int last = target(process);
    for (std::size_t hops = 0; hops < m_lives.size() && last != 0 && last != process; ++hops) {
        last = target(last);
    }
    return last == process;
}

/// No message of the pair has come to this life out of its turn, and none before it is missing.
void Oracle::CheckOrder(std::size_t index) const {
    const Message& message = m_messages[index];
    bool missing = false;
    bool found = false;
    for (std::size_t other = m_messages.size(); other-- > 0 && !found;) {
        const Message& one = m_messages[other];
        if (!SamePair(one, message) || other == index) {
            continue;
        }
        Check(other < index || one.receiver != message.receiver, "{} comes after {}", Text(index),
              Text(other));
        found = one.receiver == message.receiver;
        missing = missing || (other < index && !found && one.receiver == 0 && !one.dropped);
        Check(!missing || HasBroken(message.receiver) || !(found || !AnyEnded(message.target)),
              "{} comes though one before it is missing", Text(index));
    }
}

/// The message comes before the end of its sender is told, unless it had no handler when its sender ended; and after
/// the end of the life before.
void Oracle::CheckLosses(std::size_t index) const {
    const Message& message = m_messages[index];
    const int domain = Of(message.target).domain;
    const std::uint64_t handledSince = Of(What::kHandles).at({message.receiver, message.target});
    const Life& sender = LifeOf(message.sender);
    const bool lossTold = std::ranges::any_of(m_told, [&](const auto& one) {
        const auto& [watcher, watching, application, life] = one.first;
        return watcher == message.receiver && life == message.sender && Of(application).domain == domain;
    });
    Check(!lossTold || (sender.ended != 0 && handledSince > sender.ended) || HasBroken(message.sender),
          "{} comes after the loss of {}", Text(index), sender.name);
    const auto first = std::ranges::find_if(m_messages, [&](const Message& one) {
        return one.sender == message.sender && Of(one.target).domain == domain;
    });
    for (const auto& [loss, told] : m_owed) {
        const auto& [watcher, watching, application, life] = loss;
        const auto again = Of(What::kDeclared).find({message.sender, application});
        Check(told || watcher != message.receiver || HasBroken(watcher) || Of(application).domain != domain ||
                  again == Of(What::kDeclared).end() || again->second > first->event ||
                  life >= message.sender,
              "{} comes before the loss of {}", Text(index), LifeOf(life).name);
    }
}

void Oracle::ToldOfLoss(const Process& process, int application, int pid, std::string_view peer,
                        std::string_view host) {
    const arena::ForTheWorld ours;
    ++m_event;
    const auto named = std::ranges::find_if(m_plan.applications, [&](const Application& one) {
        return one.name == peer && one.domain == Of(application).domain;
    });
    Check(named != m_plan.applications.end(), "{} is told of the loss of {}, which is unknown", process.name,
          peer);
    if (std::ranges::any_of(m_lives, [&](const Life& life) {
            return life.host == host && static_cast<std::size_t>(life.actor) == m_plan.actors.size();
        })) {
        return;  // it has announced a name of another one
    }
    const int lost = static_cast<int>(named - m_plan.applications.begin());
    if (pid == 0) {
        Check(m_drops[{process.number, lost}] > 0, "{} is told of the loss of {}, to which it has sent all",
              process.name, peer);
        return;
    }
    for (const auto& [declares, since] : Of(What::kDeclares)) {
        const Loss loss{process.number, application, lost, declares.first};
        const Life& life = LifeOf(declares.first);
        if (declares.second == lost && life.host == host && life.pid == pid &&
            (life.ended != 0 || HasBroken(declares.first)) &&
            (m_told.try_emplace(loss, m_event).second || HasBroken(declares.first))) {
            if (const auto owed = m_owed.find(loss); owed != m_owed.end()) {
                owed->second = true;
            }
            return;
        }
    }
    Check(false, "{} is told of the loss of {} at {}, which has not ended or was told of before",
          process.name, peer, host);
}

/// Whether the message went, or could have gone, to a life that has ended.
bool Oracle::MayHaveDied(std::size_t index) const {
    const Message& message = m_messages[index];
    int first = 1;
    int last = static_cast<int>(m_lives.size());
    for (std::size_t other = 0; other < m_messages.size(); ++other) {
        const Message& one = m_messages[other];
        if (SamePair(one, message) && one.receiver != 0) {
            (other < index ? first : last) = other < index ? one.receiver : std::min(last, one.receiver);
        }
    }
    return std::ranges::any_of(Of(What::kDeclares), [&](const auto& declares) {
        const auto& [life, application] = declares.first;
        const bool known = std::ranges::any_of(m_told, [&, life = life](const auto& told) {
            return std::get<0>(told.first) == message.sender && std::get<2>(told.first) == message.target &&
                   std::get<3>(told.first) == life && told.second < message.event;
        });
        return application == message.target && life >= first && life <= last &&
               (HasBroken(life) ||
                (LifeOf(life).ended != 0 && !known &&
                 (LifeOf(life).buried == 0 || LifeOf(life).buried > LifeOf(message.sender).started)));
    });
}

/// No fault, and no end of anybody, has given a reason to wait.
bool Oracle::Undisturbed(const Process& process) const {
    return World::Current().Faults() == 0 && m_plan.lies == 0 && !process.refused &&
           std::ranges::all_of(m_lives, [](const Life& life) { return life.ended == 0; });
}

/// Nobody is passed over for long: the links take turns, and one that was idle is looked at soon. Counts what
/// another sender has begun only after the oldest message of a link was accepted.
void Oracle::CheckTurn(const Process& process, const Message& message) {
    if (!Undisturbed(process) || message.sender == message.receiver) {
        return;
    }
    const int most = 3 * (m_plan.pace + 3);
    std::set<std::pair<int, int>> links;
    for (Message& other : m_messages) {
        const Application& target = Of(other.target);
        if (other.receiver == 0 && !other.dropped && !other.sending && target.actor == process.actor &&
            target.domain == Of(message.target).domain && other.sender != process.number &&
            Of(What::kHandles).contains({process.number, other.target}) &&
            links.emplace(other.sender, other.target).second && message.event > other.accepted) {
            const int passing = ++other.passing.at(static_cast<std::size_t>(message.sender));
            Check(passing <= most, "{} is passed over", Text(other.index));
        }
    }
}

std::string Oracle::Late(const Process& process, int domain, Clock::time_point since) const {
    constexpr std::chrono::milliseconds kSoon{100};
    const Clock::time_point now = World::Current().Now();
    for (const Message& message : m_messages) {
        const Process& sender = *LifeOf(message.sender).process;
        const bool blocked = message.sending && !sender.refused &&
                             now - std::max({message.begun, since, sender.stoppedUntil}) >= kSoon;
        if (message.receiver == 0 && !message.dropped && Of(message.target).domain == domain &&
            Of(What::kHandles).contains({process.number, message.target}) && (!message.sending || blocked) &&
            Undisturbed(process)) {
            return Text(message.index) + " is late";
        }
    }
    return {};
}

std::string Oracle::Open() const {
    for (std::size_t index = 0; index < m_messages.size(); ++index) {
        const Message& message = m_messages[index];
        if (!message.sending && !message.dropped && message.receiver == 0 && !MayHaveDied(index)) {
            return Text(index) + " is not delivered";
        }
    }
    for (const auto& [loss, told] : m_owed) {
        const auto& [watcher, watching, application, life] = loss;
        if (!told && LifeOf(watcher).ended == 0 && !HasBroken(watcher)) {
            return fmt::format("{} is not told for {} of the loss of {} of {}", LifeOf(watcher).name,
                               Of(watching).name, Of(application).name, LifeOf(life).name);
        }
    }
    return {};
}

std::string Oracle::Text(std::size_t index) const {
    const Message& message = m_messages[index];
    return fmt::format("message m{} of {} bytes from {} to {}", index, message.size,
                       LifeOf(message.sender).name, Of(message.target).name);
}

}  // namespace simulated

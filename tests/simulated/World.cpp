#include "World.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "Arena.h"

namespace simulated {

namespace {

/// So many calls in a row in a world that does not change are a loop that uses the processor for nothing.
constexpr std::uint64_t kSpinning = 3000;
constexpr std::uint64_t kEndless = 3000000;
/// When all is done a process may look for something from time to time.
constexpr int kIdleTurns = 3000;
constexpr std::chrono::seconds kIdleTime{60};
/// Longer than any wait of a program.
constexpr std::chrono::seconds kPatience{200};
constexpr std::uint64_t kAll = std::numeric_limits<std::uint64_t>::max();

World* g_world = nullptr;

}  // namespace

Process::Process(World& world_, int number_, int actor_, int life_, Fiber::Body body)
    : world(world_),
      number(number_),
      actor(actor_),
      life(life_),
      name(fmt::format("{}{}", static_cast<char>('A' + actor), life + 1)),
      fiber(static_cast<std::size_t>(number_), body, this) {}

bool Process::CanRun(Clock::time_point now) const {
    if (state == State::kDead || now < stoppedUntil) {
        return false;
    }
    return state == State::kReady || woken || !alerts.empty() || (until && *until <= now);
}

Deadline Process::Due() const {
    if (state == State::kDead) {
        return {};
    }
    return world.Now() < stoppedUntil ? Deadline(stoppedUntil) : until;
}

void Process::Turn() {
    state = State::kReady;
    until.reset();
    fiber.Resume();
}

/// What a process that has ended leaves to the kernel, or a forked child that does nothing with its copies:
/// the handles are closed one by one.
class World::Remains final : public Task {
  public:
    Remains(World& world, Process* ended, std::vector<Handle> handles, Clock::time_point from)
        : m_world(world), m_ended(ended), m_handles(std::move(handles)), m_from(from) {}

    bool CanRun(Clock::time_point now) const override {
        return now >= m_from && (m_ended != nullptr || !m_handles.empty());
    }
    Deadline Due() const override { return m_handles.empty() ? Deadline() : m_from; }
    void Turn() override {
        Choices& choices = m_world.m_choices;
        if (!m_handles.empty()) {
            const auto count = static_cast<std::uint32_t>(m_handles.size());
            const auto which = m_handles.begin() + choices.Draw(0, Kind::kOrder, 2, count) % count;
            m_world.Tell("the kernel closes a {} of {}", Kernel::KindOf(*which),
                         m_ended ? m_ended->name : "a child");
            Kernel::Close(*which);
            m_handles.erase(which);
            m_world.Changed();
        }
        const bool free = std::ranges::none_of(
            m_handles, [](const Handle& handle) { return std::holds_alternative<Slot*>(handle); });
        if (free && m_ended != nullptr && (m_handles.empty() || choices.Draw(0, Kind::kRare, 2) != 0)) {
            m_world.m_director.Buried(*std::exchange(m_ended, nullptr));
        }
    }

  private:
    World& m_world;
    Process* m_ended;
    std::vector<Handle> m_handles;
    Clock::time_point m_from;
};

World::World(const Weather& weather, Choices& choices, Director& director, bool tells)
    : m_weather(weather), m_choices(choices), m_director(director), m_tells(tells) {
    g_world = this;
}

World::~World() {
    g_world = nullptr;
}

World& World::Current() {
    return *g_world;
}

Process& World::Start(int actor, int life, Fiber::Body body, const std::vector<Blow>& blows) {
    const int number = static_cast<int>(m_processes.size()) + 1;
    Process& process = m_processes.emplace_back(*this, number, actor, life, body);
    for (const Blow& blow : blows) {
        if (blow.actor == actor && blow.life == life) {
            process.blows.push_back(blow);
        }
    }
    const auto pids = static_cast<std::uint32_t>(m_weather.pids);
    process.self.identity = {1, static_cast<std::uint64_t>(number)};
    process.self.pid = 1 + static_cast<int>((static_cast<std::uint32_t>(number) - 1) % pids);
    process.self.host = fmt::format("host{}", number);
    process.self.user = "user";
    Tell("{} starts with process number {}", process.name, process.self.pid);
    return process;
}

std::string World::Run() {
    while (m_failure.empty()) {
        if (Task* const next = Next()) {
            m_last = next;
            m_running = dynamic_cast<Process*>(next);
            const std::size_t before =
                arena::SetOwner(m_running != nullptr ? static_cast<std::size_t>(m_running->number) : 0);
            next->Turn();
            arena::SetOwner(before);
            m_running = nullptr;
        } else if (!Idle()) {
            break;
        }
    }
    return m_failure;
}

Task* World::Next() {
    constexpr std::array<std::chrono::milliseconds, 4> kJumps{
        std::chrono::milliseconds(1), std::chrono::milliseconds(20), std::chrono::milliseconds(600),
        std::chrono::seconds(3)};
    if (const std::uint32_t jump = m_choices.Draw(0, Kind::kTime, m_weather.timeJumps, kJumps.size())) {
        m_now += kJumps[jump - 1];
        Tell("the clock jumps by {} ms", kJumps[jump - 1].count());
    }
    std::array<Task*, 2 * Fiber::kMost> ready{};
    std::size_t count = 0;
    const auto add = [&](Task& task) {
        if (task.CanRun(m_now) && count < ready.size()) {
            ready[count++] = &task;
        }
    };
    std::ranges::for_each(m_remains, [&](const auto& remains) { add(*remains); });
    std::ranges::for_each(m_processes, add);
    if (count > 1 && m_preferred != 0) {
        count = static_cast<std::size_t>(std::remove(ready.begin(), ready.begin() + count, m_last) -
                                         ready.begin());
        return ready[(std::exchange(m_preferred, 0) - 1) % count];
    }
    m_preferred = 0;
    if (count <= 1) {
        return ready[0];
    }
    const std::uint32_t choice = m_choices.Draw(0, Kind::kNext, 1, static_cast<std::uint32_t>(count));
    return ready[choice == 0 ? 0 : choice - 1];
}

/// Nobody can run: lets the next thing come. False when there is none, or something is wrong.
bool World::Idle() {
    std::ranges::for_each(m_processes, [&](Process& process) { Apply(process, kAll); });
    const Deadline due = NextDue();
    Process* const struck = NextStruck();
    if (struck != nullptr && (!due || m_choices.Draw(0, Kind::kRare, 4) != 0)) {
        m_running = struck;
        Strike(*struck);
        m_running = nullptr;
        return true;
    }
    const Director::Opinion opinion = m_director.Judge();
    const bool done = struck == nullptr && !opinion.busy && opinion.open.empty();
    if (!due || opinion.late) {
        m_failure = done ? "" : "stuck: " + opinion.open;
        return false;
    }
    m_idleTurns = done ? m_idleTurns + 1 : 0;
    if (m_idleTurns > kIdleTurns) {
        m_failure = "somebody looks again and again though all is done";
    } else if (done && *due > m_lastDeed + kIdleTime) {
        return false;
    } else if (*due > m_lastDeed + kPatience) {
        m_failure = "not in time: " + opinion.open;
    }
    m_now = std::max(m_now, *due);
    Changed();
    return m_failure.empty();
}

Deadline World::NextDue() const {
    Deadline first;
    const auto look = [&](const Task& task) {
        const Deadline due = task.Due();
        first = due && (!first || *due < *first) ? due : first;
    };
    std::ranges::for_each(m_remains, [&](const auto& remains) { look(*remains); });
    std::ranges::for_each(m_processes, look);
    return first;
}

Process* World::NextStruck() {
    const auto found = std::ranges::find_if(m_processes, [](const Process& process) {
        return process.state != Process::State::kDead && !process.blows.empty();
    });
    return found != m_processes.end() ? &*found : nullptr;
}

void World::Strike(Process& process) {
    const Blow blow = process.blows.front();
    process.blows.pop_front();
    switch (blow.what) {
        case Blow::What::kKill:
            Tell("is killed");
            Die(process);
            break;
        case Blow::What::kStop:
            Tell("is stopped for {} ms", blow.lasts.count());
            process.stoppedUntil = m_now + blow.lasts;
            break;
        case Blow::What::kSignal:
            Tell("gets a signal");
            process.woken = true;
            m_director.Signal(process);
            break;
    }
}

void World::Die(Process& process) {
    const arena::ForTheWorld ours;
    Apply(process, kAll);
    process.state = Process::State::kDead;
    m_director.Ended(process);
    m_remains.push_back(std::make_unique<Remains>(*this, &process, m_kernel.HandlesOf(process), m_now));
}

void World::Exit() {
    Tell("has ended");
    Die(Me());
    Vanish();
}

/// The process that runs is never resumed.
void World::Vanish() {
    m_running->fiber.Leave();
    std::abort();
}

void World::Work(std::chrono::milliseconds time) {
    Me().stoppedUntil = m_now + time;
    Me().fiber.Leave();
}

void World::Fork(std::chrono::milliseconds lasts) {
    const arena::ForTheWorld ours;
    std::vector<Handle> handles = m_kernel.HandlesOf(Me());
    std::erase_if(handles, [](const Handle& handle) { return std::holds_alternative<Slot*>(handle); });
    std::ranges::for_each(handles, &Kernel::Copy);
    Tell("forks a child that lives for {} ms", lasts.count());
    m_remains.push_back(std::make_unique<Remains>(*this, nullptr, std::move(handles), m_now + lasts));
}

void World::Point() {
    Process& me = *m_running;
    ++m_calls;
    ++me.calls;
    if (m_lateStores > 0) {
        std::ranges::for_each(m_processes, [&](Process& process) { Apply(process, m_calls); });
    }
    if (!me.blows.empty() && me.calls >= me.blows.front().afterCalls) {
        Strike(me);
        if (!me.CanRun(m_now)) {
            me.fiber.Leave();
        }
    }
    if (std::exchange(me.changesSeen, m_changes) != m_changes) {
        me.idleCalls = 0;
    } else if (++me.idleCalls > kSpinning) {
        Fail(fmt::format("{} makes call after call though nothing changes", me.name));
    }
    if (m_calls > kEndless) {
        Fail("the world does not come to an end");
    }
    m_preferred = m_choices.Draw(static_cast<std::size_t>(me.number), Kind::kSwitch, m_weather.switches, 4);
    if (m_preferred != 0) {
        me.fiber.Leave();
    }
}

void World::Enter() {
    Point();
    Apply(Me(), kAll);
}

void World::Block(Deadline deadline) {
    m_director.Waits(Me());
    Me().state = Process::State::kWaiting;
    Me().until = deadline;
    Me().fiber.Leave();
}

void World::Fail(std::string reason) {
    const arena::ForTheWorld ours;
    m_failure = std::move(reason);
    Vanish();
}

bool World::Short(Fault fault) {
    const std::uint32_t rate =
        m_faults < m_weather.faultsInAll ? m_weather.faults[static_cast<std::size_t>(fault)] : 0;
    if (Draw(Kind::kFault, rate) == 0) {
        return false;
    }
    ++m_faults;
    Changed();
    return true;
}

std::uint64_t World::Load(const std::atomic<std::uint64_t>& word) {
    Point();
    const auto& late = Me().stores;
    const auto own =
        std::find_if(late.rbegin(), late.rend(), [&](const auto& store) { return store.word == &word; });
    const std::uint64_t value = own != late.rend() ? own->value : word.load(std::memory_order_relaxed);
    TellOf("reads", &word, value, false);
    return value;
}

void World::Store(std::atomic<std::uint64_t>& word, std::uint64_t value) {
    constexpr std::uint32_t kLongest = 60;
    Point();
    const std::uint32_t delay = Draw(Kind::kStore, m_weather.lateStores, kLongest);
    TellOf("writes", &word, value, delay > 0);
    const arena::ForTheWorld ours;
    Me().stores.push_back({&word, value, m_calls + delay});
    ++m_lateStores;
    Apply(Me(), m_calls);
}

void World::Fence() {
    Point();
    Apply(Me(), kAll);
}

/// The stores of the process that are due take effect, in their order.
void World::Apply(Process& process, std::uint64_t due) {
    while (!process.stores.empty() && process.stores.front().due <= due) {
        const Process::LateStore store = process.stores.front();
        process.stores.pop_front();
        --m_lateStores;
        if (store.word->load(std::memory_order_relaxed) != store.value) {
            store.word->store(store.value, std::memory_order_relaxed);
            Changed();
        }
    }
}

void World::TellOf(const char* deed, const void* word, std::uint64_t value, bool late) {
    if (m_tells) {
        Tell("{} {} at {}{}", deed, value, m_kernel.Where(word), late ? ", which is seen later" : "");
    }
}

void World::Print(const std::string& line) {
    const double now = std::chrono::duration<double>(m_now.time_since_epoch()).count() - 3600;
    const std::string whole = m_running != nullptr ? m_running->name + ' ' + line : line;
    if (std::exchange(m_lastLine, whole) != whole) {
        fmt::print("{:12.6f}  {}\n", now, whole);
    }
    std::fflush(stdout);
}

}  // namespace simulated

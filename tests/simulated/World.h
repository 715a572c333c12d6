#ifndef ZYL_TESTS_SIMULATED_WORLD_H
#define ZYL_TESTS_SIMULATED_WORLD_H

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Choices.h"
#include "Fiber.h"
#include "Kernel.h"
#include "system/System.h"

namespace simulated {

using zyl::backbone::system::Clock;
using zyl::backbone::system::Deadline;

/// How the world treats its processes: "one time in so many", 0 is never.
struct Weather {
    std::uint32_t switches = 0;
    std::uint32_t timeJumps = 0;
    std::uint32_t lateStores = 0;
    std::uint32_t shortTransfers = 0;
    std::uint32_t refusals = 0;
    std::uint32_t spurious = 0;
    std::uint32_t rare = 0;
    /// By Fault.
    std::array<std::uint32_t, static_cast<std::size_t>(Fault::kFaults)> faults{};
    /// Shortages end when there were so many.
    std::uint32_t faultsInAll = 0;
    /// Of a channel, in bytes in each direction; and how empty it is before a held up sender is told.
    std::size_t capacity = 4096;
    std::size_t roomTold = 1;
    /// So many bytes a new channel takes at once, whatever else.
    std::size_t fresh = 512;
    std::size_t backlog = 8;
    int pids = 3;
};

/// What befalls a process from outside, so long after it has made so many calls; or when nobody can run.
struct Blow {
    enum class What : std::uint8_t { kKill, kStop, kSignal } what;
    int actor;
    int life;
    std::uint64_t afterCalls;
    std::chrono::milliseconds lasts;  // a stop
};

/// Something that can take a turn.
class Task {
  public:
    virtual ~Task() = default;
    virtual bool CanRun(Clock::time_point now) const = 0;
    /// When it can run by itself.
    virtual Deadline Due() const = 0;
    virtual void Turn() = 0;
};

class World;

/// One simulated process: a fiber, what it has asked the kernel to wait for, and its store buffer.
class Process final : public Task {
  public:
    enum class State : std::uint8_t { kReady, kWaiting, kDead };
    struct LateStore {
        std::atomic<std::uint64_t>* word;
        std::uint64_t value;
        std::uint64_t due;  // takes effect before this call of anybody
    };

    Process(World& world, int number, int actor, int life, Fiber::Body body);

    bool CanRun(Clock::time_point now) const override;
    Deadline Due() const override;
    void Turn() override;

    World& world;
    const int number;  // from 1: counts all lives in the order of their starts
    const int actor;
    const int life;  // of this actor, from 0
    const std::string name;
    State state = State::kReady;
    Deadline until;  // of a wait
    Clock::time_point stoppedUntil{};
    bool woken = false;
    bool refused = false;  // a connection: it may have ended before it could try again
    bool inReady = false;  // within a watcher's callback
    std::vector<Source*> alerts;
    std::deque<LateStore> stores;
    std::deque<Blow> blows;
    std::size_t mapped = 0;  // bytes of shared memory
    std::uint64_t calls = 0;
    /// Calls since anything in the world has changed.
    std::uint64_t idleCalls = 0;
    std::uint64_t changesSeen = 0;
    zyl::backbone::system::Self self;
    Fiber fiber;
};

/// The machine: its processes, of which one runs at a time, its clock, and what its processors keep in their
/// store buffers.
class World {
  public:
    /// What the world asks of who knows the program.
    class Director {
      public:
        virtual ~Director() = default;
        virtual void Ended(Process& process) = 0;
        /// The names of a process that has ended are free; some of its other handles may still be open.
        virtual void Buried(Process& process) = 0;
        virtual void Signal(Process& process) = 0;
        /// The process that runs is going to wait.
        virtual void Waits(const Process& process) = 0;
        /// Nobody can run now. What is still open, or nothing; `busy`: a program has not come to its end.
        struct Opinion {
            std::string open;
            bool busy = false;
            bool late = false;  // something is due
        };
        virtual Opinion Judge() = 0;
    };

    World(const Weather& weather, Choices& choices, Director& director, bool tells);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// The one that runs.
    static World& Current();

    Process& Start(int actor, int life, Fiber::Body body, const std::vector<Blow>& blows);
    /// Until nothing is left to happen, or something is wrong: gives what.
    std::string Run();

    /// Each of these is called by the process that runs, on its stack.
    /// Another one may run here, or this one be killed.
    void Point();
    /// A call of the kernel: the same, and the stores so far take effect.
    void Enter();
    void Block(Deadline deadline);
    [[noreturn]] void Fail(std::string reason);
    std::uint64_t Load(const std::atomic<std::uint64_t>& word);
    void Store(std::atomic<std::uint64_t>& word, std::uint64_t value);
    void Fence();
    std::uint32_t Draw(Kind kind, std::uint32_t oneIn, std::uint32_t count = 1) {
        return m_choices.Draw(static_cast<std::size_t>(Me().number), kind, oneIn, count);
    }
    /// Whether this call is refused for want of something.
    bool Short(Fault fault);
    /// The end of the process that runs: the kernel closes what it has.
    [[noreturn]] void Exit();
    /// Does something else for so long.
    void Work(std::chrono::milliseconds time);
    /// A child with copies of all that this process has, which it closes after a while.
    void Fork(std::chrono::milliseconds lasts);

    Process& Me() { return *m_running; }
    Clock::time_point Now() const { return m_now; }
    void Pass(std::chrono::nanoseconds time) { m_now += time; }
    /// Something has changed that somebody may wait for.
    void Changed() { ++m_changes; }
    /// A program has got on.
    void Deed() { m_lastDeed = m_now; }
    const Weather& ItsWeather() const { return m_weather; }
    Kernel& ItsKernel() { return m_kernel; }
    std::uint64_t Faults() const { return m_faults; }
    std::uint64_t Calls() const { return m_calls; }

    /// A line of the story, about the process that runs.
    template <class... Arguments>
    void Tell(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        if (m_tells) {
            Print(fmt::format(format, std::forward<Arguments>(arguments)...));
        }
    }

  private:
    class Remains;

    Task* Next();
    bool Idle();
    Deadline NextDue() const;
    Process* NextStruck();
    void Strike(Process& process);
    void Die(Process& process);
    void Apply(Process& process, std::uint64_t due);
    [[noreturn]] void Vanish();
    void TellOf(const char* deed, const void* word, std::uint64_t value, bool late);
    void Print(const std::string& line);

    const Weather m_weather;
    Choices& m_choices;
    Director& m_director;
    const bool m_tells;
    Kernel m_kernel;
    std::deque<Process> m_processes;
    std::vector<std::unique_ptr<Remains>> m_remains;
    Process* m_running = nullptr;
    /// Who has run last, and which other one is to be next; 0: nobody in particular.
    Task* m_last = nullptr;
    std::uint32_t m_preferred = 0;
    Clock::time_point m_now = Clock::time_point(std::chrono::hours(1));
    std::uint64_t m_calls = 0;
    std::uint64_t m_changes = 0;
    std::uint64_t m_faults = 0;
    std::size_t m_lateStores = 0;
    Clock::time_point m_lastDeed = m_now;
    int m_idleTurns = 0;
    std::string m_failure;
    std::string m_lastLine;
};

}  // namespace simulated

#endif

#ifndef ZYL_BENCH_CREW_H
#define ZYL_BENCH_CREW_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

using Clock = std::chrono::steady_clock;  // the same in all processes

/// What a member of a crew tells the process that has started it.
struct Mark {
    enum class What : std::uint32_t { kReady, kDone };
    What what;
    Clock::time_point time;
    double figure;  ///< in ns, where the member has measured something
};

/// In a member: its place in the crew, and the way back.
class Member {
  public:
    Member(std::size_t number, int marks) : m_number(number), m_marks(marks) {}
    std::size_t Number() const { return m_number; }
    /// Tells of this moment.
    void Tell(Mark::What what, double figure = 0) const;

  private:
    std::size_t m_number;
    int m_marks;
};

/// Processes forked from this one, which must not use the backbone itself. They wait until Start, then do
/// their work and stay until this object goes: it kills them.
class Crew {
  public:
    using Work = std::function<void(const Member&)>;

    Crew(std::size_t size, const Work& work);
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;
    ~Crew();

    /// Lets all go at once. No other crew is made between the constructor and this.
    Clock::time_point Start();
    /// The next `count` marks; fewer when the time is over, or all members have ended.
    std::vector<Mark> Await(std::size_t count, std::chrono::seconds limit) const;
    /// As `kill -9` does. Gives the moment before.
    Clock::time_point Kill(std::size_t number);

  private:
    [[noreturn]] static void Run(const Work& work, const Member& member, int start);
    void End(pid_t& member);

    std::vector<pid_t> m_members;
    int m_start = -1;
    int m_marks = -1;
};

#endif

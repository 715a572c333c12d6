#ifndef ZYL_TESTS_SIMULATED_ORACLE_H
#define ZYL_TESTS_SIMULATED_ORACLE_H

#include <array>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "Plan.h"

namespace simulated {

/// Holds what the processes see against the promises in docs/backbone.md, of which it knows nothing but the
/// words. Each call is made by the process that runs, and fails the world when a promise is broken.
class Oracle {
  public:
    struct Message {
        std::size_t index;
        int sender;  // the number of a process, as everywhere here
        int target;  // an application
        int size;
        Reaction reaction;
        int other;
        Clock::time_point begun;
        std::uint64_t event;   // when it was begun
        std::uint64_t faults;  // of the world by then
        bool sending = true;
        bool streamed = false;
        bool told = false;  // a line says that it is dropped
        bool dropped = false;
        int receiver = 0;
        std::uint64_t accepted = 0;  // when it was
        /// Messages of each process that were begun since, and came before it.
        std::array<std::uint16_t, Fiber::kMost> passing{};
    };

    explicit Oracle(const Plan& plan) : m_plan(plan) {}

    void Started(const Process& process);
    /// What a process has done with an application: about to declare it, declared, about to handle its
    /// messages, and watching on its behalf.
    enum class What : std::uint8_t { kDeclares, kDeclared, kHandles, kWatches };
    void Note(What what, const Process& process, int application);
    void Ended(const Process& process);
    void Buried(const Process& process);

    int BeginSend(const Process& process, const Step& step);
    void Streamed(int message, char* room, int size);
    void Line(const Process& process, const std::string& text);
    void EndSend(const Process& process, int message);
    const Message& Sent(int message) const { return m_messages[static_cast<std::size_t>(message)]; }
    const Message& Received(const Process& process, int application, std::string_view type, const char* body,
                            int size);
    /// `host` tells lives apart, which process numbers do not.
    void ToldOfLoss(const Process& process, int application, int pid, std::string_view peer,
                    std::string_view host);
    bool IsLiar(int process) const {
        return static_cast<std::size_t>(LifeOf(process).actor) == m_plan.actors.size();
    }
    void CheckBody(const Message& message, const char* body) const;
    /// An application of the actor whose process has this number.
    int FirstOf(int process) const;
    /// What a process in so many loops holds is within its bound.
    void CheckMemory(const Process& process, int depth);

    /// A message that is due, now that nobody can run and the process has waited since then for what comes to
    /// the domain; or nothing.
    std::string Late(const Process& process, int domain, Clock::time_point since) const;
    /// A promise that is not yet kept, or nothing.
    std::string Open() const;

  private:
    /// When something has happened to an application of a process; 0: it has not.
    using Events = std::map<std::pair<int, int>, std::uint64_t>;
    struct Life {
        const Process* process;
        std::string name;
        int actor;
        int pid;
        std::string host;
        std::uint64_t started;
        std::uint64_t ended;
        std::uint64_t buried;  // its names are free
    };
    /// Watcher, its application, the application that ended and the process that was it.
    using Loss = std::tuple<int, int, int, int>;

    const Application& Of(int application) const {
        return m_plan.applications[static_cast<std::size_t>(application)];
    }
    const Events& Of(What what) const { return m_events.at(static_cast<std::size_t>(what)); }
    const Life& LifeOf(int number) const { return m_lives[static_cast<std::size_t>(number) - 1]; }
    bool SamePair(const Message& one, const Message& other) const {
        return one.sender == other.sender && one.target == other.target;
    }
    bool WaitsForItself(int process) const;
    bool HasBroken(int process) const;
    bool AnyEnded(int application) const;
    bool MayHaveDied(std::size_t message) const;
    void CheckDrop(const Message& message) const;
    void CheckOrder(std::size_t index) const;
    void CheckLosses(std::size_t index) const;
    void CheckTurn(const Process& process, const Message& message);
    bool Undisturbed(const Process& process) const;
    std::string Text(std::size_t index) const;

    const Plan& m_plan;
    std::uint64_t m_event = 0;
    std::vector<Life> m_lives;
    std::vector<Message> m_messages;
    std::array<Events, 4> m_events;  // by What
    std::map<Loss, bool> m_owed;     // and whether it was told
    std::map<Loss, std::uint64_t> m_told;
    /// Processes that have closed a link to an application of theirs, and that.
    std::set<std::pair<int, int>> m_broken;
    std::set<int> m_circled;                     // processes that have waited for themselves
    std::map<std::pair<int, int>, int> m_drops;  // by sender and target
};

}  // namespace simulated

#endif

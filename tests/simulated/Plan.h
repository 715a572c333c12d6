#ifndef ZYL_TESTS_SIMULATED_PLAN_H
#define ZYL_TESTS_SIMULATED_PLAN_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "World.h"

namespace simulated {

/// A name in a domain that one actor declares in each of its lives.
struct Application {
    int actor;
    int domain;
    std::string name;
    bool announced;
};

/// What the receiver of a message does in its handler. What it sends has no such order.
enum class Reaction : std::uint8_t { kNothing, kAnswer, kRelay, kWait, kThrow };

struct Step {
    enum class What : std::uint8_t {
        kDeclare,
        kReceive,
        kWatch,
        kSend,
        kLoop,
        kLoopAll,
        kWork,
        kFork,
        kLeave,
        kVanish
    };
    What what;
    int application = 0;  // own one, of all; for kSend the target
    int size = 0;
    Reaction reaction = Reaction::kNothing;
    int other = 0;                     // to whom a relay sends
    int count = 0;                     // messages that are sent, or end a loop; 0: its limit alone does
    std::chrono::milliseconds time{};  // limit of a loop, length of work, life of a child
};

/// Everything that a seed decides beforehand.
struct Plan {
    Weather weather;
    bool lanes = true;
    std::size_t ring = 4096;
    int pace = 2;                                    // messages between two looks at the other links
    std::size_t Budget() const { return 2 * ring; }  // of what waiting sends take in
    std::size_t LongestMessage() const { return 3 * ring; }
    std::chrono::milliseconds connectTimeout{};
    std::vector<Application> applications;
    /// By actor, then by life.
    std::vector<std::vector<std::vector<Step>>> actors;
    std::vector<Blow> blows;
    int lies = 0;  // connections of one more process, which follows no rules

    static Plan Of(std::uint64_t seed);
};

}  // namespace simulated

#endif

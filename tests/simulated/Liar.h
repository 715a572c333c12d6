#ifndef ZYL_TESTS_SIMULATED_LIAR_H
#define ZYL_TESTS_SIMULATED_LIAR_H

#include <string>

#include "World.h"

namespace simulated {

/// The type of each message that a liar sends begins with it.
constexpr char kLie = '?';

/// The life of a process that follows no rules: it connects to others so many times, announces their names to
/// one another, and writes nonsense to channels, heads of lanes and rings. It gives its own identity, and ends.
[[noreturn]] void Lie(Process& process, const std::string& domain, int times);

}  // namespace simulated

#endif

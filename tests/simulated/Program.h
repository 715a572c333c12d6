#ifndef ZYL_TESTS_SIMULATED_PROGRAM_H
#define ZYL_TESTS_SIMULATED_PROGRAM_H

#include <cstdint>
#include <string>

#include "Choices.h"
#include "Plan.h"

namespace simulated {

/// Plays the plan in a world of its own, over the backbone; gives what is wrong, or nothing. `calls` grows by
/// the calls of the seams. Tells what happens, if that is wanted, line by line on standard output.
std::string Play(const Plan& plan, Choices& choices, bool tells, std::uint64_t& calls);

}  // namespace simulated

#endif

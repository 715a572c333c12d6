#ifndef ZYL_TESTS_SIMULATED_PROGRAM_H
#define ZYL_TESTS_SIMULATED_PROGRAM_H

#include <cstdint>
#include <string>

#include "Choices.h"
#include "Plan.h"

namespace simulated {

struct Played {
    std::string wrong;  ///< empty: nothing is
    std::uint64_t calls = 0;
};

/// Plays the plan in a world of its own, over the backbone. Tells what happens, if that is wanted, line by line
/// on standard output.
Played Play(const Plan& plan, Choices& choices, bool tells);

}  // namespace simulated

#endif

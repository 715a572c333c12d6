#ifndef ZYL_TESTS_SIMULATED_STORY_H
#define ZYL_TESTS_SIMULATED_STORY_H

#include <cstdint>

namespace simulated {

/// Leaves out of the plan of a seed that fails, and of what was chosen by chance, whatever is not needed for
/// it to fail in the same way; then prints the story.
void Shrink(std::uint64_t seed);

}  // namespace simulated

#endif

#ifndef ZYL_TESTS_SIMULATED_ARENA_H
#define ZYL_TESTS_SIMULATED_ARENA_H

#include <cstddef>

/// What this program's `new` has given out while a world runs: a killed process leaves its objects behind
/// without destroying them, and the arena frees them all at once. Each block counts for one owner, a number
/// below kOwners.

namespace simulated::arena {

constexpr std::size_t kOwners = 64;

/// Everything that is allocated from now on lives until End at the latest.
void Begin();
void End();
/// Sets who allocates, and gives who did until now.
std::size_t SetOwner(std::size_t owner);
/// Bytes that the owner has allocated and nobody has freed.
std::size_t Living(std::size_t owner);

/// Allocates for the world itself as long as it lives.
class ForTheWorld {
  public:
    ForTheWorld() : m_before(SetOwner(0)) {}
    ~ForTheWorld() { SetOwner(m_before); }
    ForTheWorld(const ForTheWorld&) = delete;
    ForTheWorld& operator=(const ForTheWorld&) = delete;

  private:
    std::size_t m_before;
};

}  // namespace simulated::arena

#endif

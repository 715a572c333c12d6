#ifndef ZYL_TESTS_SIMULATED_FIBER_H
#define ZYL_TESTS_SIMULATED_FIBER_H

#include <array>
#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define ZYL_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZYL_ADDRESS_SANITIZER 1
#endif
#endif
#ifndef ZYL_ADDRESS_SANITIZER
#define ZYL_ADDRESS_SANITIZER 0
#endif

namespace simulated {

/// A flow of control with a stack of its own. It can be abandoned at any time: then nothing on its stack is
/// destroyed. Stacks are used again for the fiber with the same number, so no two live ones share theirs.
class Fiber {
  public:
    static constexpr std::size_t kMost = 32;
    using Body = void (*)(void* argument);

    /// `number` is below kMost. `body` does not return and lets no exception out.
    Fiber(std::size_t number, Body body, void* argument);

    /// On the scheduler's stack: goes on where the fiber last left, until it leaves again.
    void Resume();
    /// On the fiber's stack: back to the scheduler.
    void Leave();

  private:
    friend struct FiberEntry;

    Body m_body;
    void* m_argument;
    char* m_stack;
    void* m_context;
    void* m_scheduler = nullptr;
    // For AddressSanitizer, which wants to know the stacks.
    [[maybe_unused]] void* m_schedulerBottom = nullptr;
    [[maybe_unused]] std::size_t m_schedulerSize = 0;
    [[maybe_unused]] void* m_fakeStack = nullptr;
    /// What the C++ runtime keeps for each thread about exceptions, while this fiber does not run.
    std::array<char, 2 * sizeof(void*)> m_exceptions{};
};

}  // namespace simulated

#endif

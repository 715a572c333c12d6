#include "Fiber.h"

#include <cxxabi.h>
#include <sys/mman.h>

#include <algorithm>
#include <boost/context/detail/fcontext.hpp>
#include <cstdlib>

#if ZYL_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace simulated {

namespace context = boost::context::detail;

namespace {

constexpr std::size_t kStackSize = std::size_t{ZYL_ADDRESS_SANITIZER ? 2048 : 256} * 1024;
constexpr std::size_t kGuard = 64 * std::size_t{1024};

/// The stack with this number, above a guard that a too deep one runs into.
char* Stack(std::size_t number) {
    static std::array<char*, Fiber::kMost> stacks{};
    char*& stack = stacks.at(number);
    if (stack == nullptr) {
        void* const place = mmap(nullptr, kGuard + kStackSize, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (place == MAP_FAILED || mprotect(place, kGuard, PROT_NONE) != 0) {
            std::abort();
        }
        stack = static_cast<char*>(place) + kGuard;
    }
    return stack;
}

}  // namespace

struct FiberEntry {
    static void Enter(context::transfer_t from) {
        auto& fiber = *static_cast<Fiber*>(from.data);
        fiber.m_scheduler = from.fctx;
#if ZYL_ADDRESS_SANITIZER
        __sanitizer_finish_switch_fiber(nullptr, const_cast<const void**>(&fiber.m_schedulerBottom),
                                        &fiber.m_schedulerSize);
#endif
        fiber.m_body(fiber.m_argument);
        std::abort();
    }
};

Fiber::Fiber(std::size_t number, Body body, void* argument)
    : m_body(body),
      m_argument(argument),
      m_stack(Stack(number)),
      m_context(context::make_fcontext(m_stack + kStackSize, kStackSize, &FiberEntry::Enter)) {
#if ZYL_ADDRESS_SANITIZER
    __asan_unpoison_memory_region(m_stack, kStackSize);
#endif
}

void Fiber::Resume() {
    auto* const exceptions = reinterpret_cast<char*>(abi::__cxa_get_globals());
    std::array<char, sizeof m_exceptions> own{};
    std::copy_n(exceptions, own.size(), own.begin());
    std::copy_n(m_exceptions.begin(), own.size(), exceptions);
#if ZYL_ADDRESS_SANITIZER
    void* fakeStack = nullptr;
    __sanitizer_start_switch_fiber(&fakeStack, m_stack, kStackSize);
#endif
    m_context = context::jump_fcontext(m_context, this).fctx;
#if ZYL_ADDRESS_SANITIZER
    __sanitizer_finish_switch_fiber(fakeStack, nullptr, nullptr);
#endif
    std::copy_n(exceptions, own.size(), m_exceptions.begin());
    std::copy_n(own.begin(), own.size(), exceptions);
}

void Fiber::Leave() {
#if ZYL_ADDRESS_SANITIZER
    __sanitizer_start_switch_fiber(&m_fakeStack, m_schedulerBottom, m_schedulerSize);
#endif
    m_scheduler = context::jump_fcontext(m_scheduler, this).fctx;
#if ZYL_ADDRESS_SANITIZER
    __sanitizer_finish_switch_fiber(m_fakeStack, const_cast<const void**>(&m_schedulerBottom),
                                    &m_schedulerSize);
#endif
}

}  // namespace simulated

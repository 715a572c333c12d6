#ifndef ZYL_PLATFORM_SYSTEM_RETRIED_H
#define ZYL_PLATFORM_SYSTEM_RETRIED_H

#include <cerrno>

namespace zyl::platform {

/// Repeats a system call (a callable that returns -1 with errno set on failure) until no signal interrupts
/// it.
template <class Call>
auto Retried(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace zyl::platform

#endif

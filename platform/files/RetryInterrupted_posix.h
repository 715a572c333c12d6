#ifndef RETRYINTERRUPTED_POSIX_H
#define RETRYINTERRUPTED_POSIX_H

#include <errno.h>

/// Repeats a system call (a callable that returns -1 with errno set on failure) until no signal interrupts
/// it.
template <class Call>
auto RetryInterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

#endif

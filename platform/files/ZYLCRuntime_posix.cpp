#include "ZYLCRuntime.h"

#include <errno.h>
#include <unistd.h>

#include <climits>

#include "platform/system/Retried.h"

namespace {

using zyl::platform::Retried;

bool IsTooMany(unsigned count) {
    if (count <= INT_MAX) {
        return false;
    }
    errno = EINVAL;
    return true;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier)

int _read(int descriptor, void* buffer, unsigned count) {
    if (IsTooMany(count)) {
        return -1;
    }
    return static_cast<int>(Retried([&] { return ::read(descriptor, buffer, count); }));
}

int _write(int descriptor, const void* buffer, unsigned count) {
    if (IsTooMany(count)) {
        return -1;
    }
    unsigned written = 0;
    while (written < count) {
        const char* rest = static_cast<const char*>(buffer) + written;
        const ssize_t step = Retried([&] { return ::write(descriptor, rest, count - written); });
        if (step <= 0) {
            return written > 0 ? static_cast<int>(written) : -1;
        }
        written += static_cast<unsigned>(step);
    }
    return static_cast<int>(written);
}

// An interrupted close is not repeated: the descriptor is gone already and may be somebody else's by now.
int _close(int descriptor) {
    return ::close(descriptor) == 0 || errno == EINTR ? 0 : -1;
}

// NOLINTEND(bugprone-reserved-identifier)

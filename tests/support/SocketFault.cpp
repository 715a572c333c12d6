#include "SocketFault.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace {

int failingFamily = -1;
int failingError = 0;
int failures = 0;

}  // namespace

SocketFault::SocketFault(int family, int error) {
    failingFamily = family;
    failingError = error;
    failures = 0;
}

SocketFault::~SocketFault() {
    failingFamily = -1;
}

int SocketFault::Failures() const {
    return failures;
}

extern "C" __attribute__((visibility("default"))) int socket(int family, int type, int protocol) noexcept {
    if (family == failingFamily) {
        ++failures;
        errno = failingError;
        return -1;
    }
    return static_cast<int>(syscall(SYS_socket, family, type, protocol));
}

#include "SocketFault.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

extern "C" __attribute__((visibility("default"))) int socket(int family, int type, int protocol) noexcept {
    if (family == SocketFault::s_family) {
        ++SocketFault::s_failures;
        errno = SocketFault::s_error;
        return -1;
    }
    return static_cast<int>(syscall(SYS_socket, family, type, protocol));
}

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "QORSocketConnector.h"

namespace {

/// How many ports of the system's choice Declare tries. Each is free for IPv4; it is rare that another
/// socket holds the same number for IPv6 only.
constexpr int kPortChoices = 16;

/// Binds `socket` to `port` on all addresses of its family.
int BindAll(int socket, int family, unsigned short port) {
    if (family == AF_INET) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    // Without this the IPv6 socket would also claim the IPv4 port, which this connector already holds.
    const int ipv6Only = 1;
    if (setsockopt(socket, IPPROTO_IPV6, IPV6_V6ONLY, &ipv6Only, sizeof ipv6Only) != 0) {
        return -1;
    }
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

/// A socket bound to `port`, or -1 with `errno` set. Neither SO_REUSEADDR nor SO_REUSEPORT is set: with
/// either, this bind could succeed beside another socket that has the port.
int BoundSocket(int family, unsigned short port) {
    const int descriptor = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor >= 0 && BindAll(descriptor, family, port) != 0) {
        const int error = errno;
        close(descriptor);
        errno = error;
        return -1;
    }
    return descriptor;
}

unsigned short PortOf(int descriptor) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

void Close(std::intptr_t& descriptor) {
    if (descriptor >= 0) {
        close(static_cast<int>(descriptor));
    }
    descriptor = -1;
}

}  // namespace

QORSocketConnector::QORSocketConnector(unsigned short port, int /*backlog*/, int /*attempts*/)
    : m_requestedPort(port) {}

QORSocketConnector::~QORSocketConnector() {
    Release();
}

int QORSocketConnector::Declare(const char* /*unused*/) {
    int error = Hold();
    for (int choice = 1; m_requestedPort == 0 && error == EADDRINUSE && choice < kPortChoices; ++choice) {
        error = Hold();
    }
    return error;
}

unsigned short QORSocketConnector::GetPort() const {
    return m_port;
}

int QORSocketConnector::Hold() {
    Release();
    const int ipv4 = BoundSocket(AF_INET, m_requestedPort);
    if (ipv4 < 0) {
        return errno;
    }
    m_ipv4Socket = ipv4;
    const unsigned short port = PortOf(ipv4);
    m_ipv6Socket = BoundSocket(AF_INET6, port);
    const bool machineHasNoIpv6 = m_ipv6Socket < 0 && (errno == EAFNOSUPPORT || errno == EADDRNOTAVAIL);
    if (m_ipv6Socket < 0 && !machineHasNoIpv6) {
        const int error = errno;
        Release();
        return error;
    }
    m_port = port;
    return 0;
}

void QORSocketConnector::Release() {
    Close(m_ipv4Socket);
    Close(m_ipv6Socket);
    m_port = kNoPort;
}

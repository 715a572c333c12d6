#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "QORSocketConnector.h"
#include "platform/system/FileDescriptor.h"

namespace {

using zyl::platform::FileDescriptor;

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

/// A socket bound to `port`; not open, with errno set, on failure. Neither SO_REUSEADDR nor SO_REUSEPORT
/// is set: with either, this bind could succeed beside another socket that has the port.
FileDescriptor BoundSocket(int family, unsigned short port) {
    FileDescriptor made(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (made.IsOpen() && BindAll(made.Get(), family, port) != 0) {
        made.Close();
    }
    return made;
}

unsigned short PortOf(const FileDescriptor& bound) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(bound.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

void Close(std::intptr_t& descriptor) {
    FileDescriptor(static_cast<int>(std::exchange(descriptor, -1))).Close();
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
    FileDescriptor ipv4 = BoundSocket(AF_INET, m_requestedPort);
    if (!ipv4.IsOpen()) {
        return errno;
    }
    const unsigned short port = PortOf(ipv4);
    FileDescriptor ipv6 = BoundSocket(AF_INET6, port);
    const bool machineHasNoIpv6 = !ipv6.IsOpen() && (errno == EAFNOSUPPORT || errno == EADDRNOTAVAIL);
    if (!ipv6.IsOpen() && !machineHasNoIpv6) {
        return errno;
    }
    m_ipv4Socket = ipv4.Release();
    m_ipv6Socket = ipv6.Release();
    m_port = port;
    return 0;
}

void QORSocketConnector::Release() {
    Close(m_ipv4Socket);
    Close(m_ipv6Socket);
    m_port = kNoPort;
}

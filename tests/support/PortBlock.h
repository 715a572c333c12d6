#ifndef ZYL_TESTS_PORTBLOCK_H
#define ZYL_TESTS_PORTBLOCK_H

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <utility>

/// A socket of a test, closed with the object.
class TestSocket {
  public:
    explicit TestSocket(int descriptor) : m_descriptor(descriptor) {}
    TestSocket(TestSocket&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    TestSocket& operator=(TestSocket&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~TestSocket() {
        if (m_descriptor >= 0) {
            close(m_descriptor);
        }
    }
    int Descriptor() const { return m_descriptor; }

    /// An IPv4 socket bound to `port` of `address`; `option` (SO_REUSEADDR, ...) is switched on unless it is
    /// 0. Descriptor() is negative when the port cannot be bound.
    static TestSocket BoundIpv4(int port, in_addr_t address, int option = 0) {
        const sockaddr_in name{AF_INET, htons(static_cast<in_port_t>(port)), {htonl(address)}, {}};
        return Bound(AF_INET, name, option);
    }

    /// The same for IPv6 alone.
    static TestSocket BoundIpv6(int port, const in6_addr& address, int option = 0) {
        const sockaddr_in6 name{AF_INET6, htons(static_cast<in_port_t>(port)), 0, address, 0};
        return Bound(AF_INET6, name, option);
    }

  private:
    template <class Name>
    static TestSocket Bound(int family, const Name& name, int option) {
        TestSocket made(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int on = 1;
        if (family == AF_INET6) {
            setsockopt(made.m_descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
        }
        if (option != 0) {
            setsockopt(made.m_descriptor, SOL_SOCKET, option, &on, sizeof on);
        }
        const auto* const address = reinterpret_cast<const sockaddr*>(&name);
        return bind(made.m_descriptor, address, sizeof name) == 0 ? std::move(made) : TestSocket(-1);
    }

    int m_descriptor;
};

/// A few consecutive ports that are free and that no other test of this machine uses while the object lives.
/// They lie below the range from which the system gives out ports of its own choice.
class PortBlock {
  public:
    static constexpr int kSize = 4;

    PortBlock() {
        for (int block = 0; block < kBlocks; ++block) {
            m_first = kLowest + (getpid() + block) % kBlocks * kSize;
            TestSocket lock = Lock(m_first);
            if (lock.Descriptor() >= 0 && AllFree()) {
                m_lock = std::move(lock);
                return;
            }
        }
        throw std::runtime_error("no free block of ports");
    }
    int operator[](int index) const { return m_first + index; }

    static bool MachineHasIpv6() { return TestSocket::BoundIpv6(0, in6addr_loopback).Descriptor() >= 0; }

  private:
    static constexpr int kLowest = 20000;
    static constexpr int kBlocks = (32768 - kLowest) / kSize;

    /// An abstract Unix socket name: one process can hold it, and it vanishes with that process.
    static TestSocket Lock(int port) {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        std::snprintf(name.sun_path + 1, sizeof name.sun_path - 1, "zyltest.ports.%d", port);
        TestSocket lock(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        const bool held = bind(lock.Descriptor(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
        return held ? std::move(lock) : TestSocket(-1);
    }

    bool AllFree() const {
        for (int index = 0; index < kSize; ++index) {
            if (TestSocket::BoundIpv4(m_first + index, INADDR_ANY).Descriptor() < 0 ||
                (MachineHasIpv6() && TestSocket::BoundIpv6(m_first + index, in6addr_any).Descriptor() < 0)) {
                return false;
            }
        }
        return true;
    }

    TestSocket m_lock{-1};
    int m_first = 0;
};

#endif

#ifndef ZYL_TESTS_BACKBONE_FOREIGNPEER_H
#define ZYL_TESTS_BACKBONE_FOREIGNPEER_H

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

/// A plain Unix stream socket of somebody who has found a domain's directory and follows no rules.
class ForeignPeer {
  public:
    ForeignPeer() : ForeignPeer(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    ForeignPeer(ForeignPeer&& other) noexcept : m_socket(std::exchange(other.m_socket, -1)) {}
    ~ForeignPeer() {
        if (m_socket >= 0) {
            close(m_socket);
        }
    }

    /// 0, or the error number.
    int Connect(const std::string& path) const {
        const sockaddr_un address = Address(path);
        return connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0
                                                                                                   : errno;
    }
    bool Listen(const std::string& path) const {
        const sockaddr_un address = Address(path);
        return bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
               listen(m_socket, 10) == 0;
    }
    ForeignPeer Accept() const { return ForeignPeer(accept(m_socket, nullptr, nullptr)); }

    /// Sends as much of `bytes` as the other side takes.
    void Send(const std::string& bytes) const {
        for (std::size_t sent = 0; sent < bytes.size();) {
            const ssize_t count = send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                return;
            }
            sent += static_cast<std::size_t>(count);
        }
    }
    /// Sends `bytes` in one piece, with a control message for each list of descriptors.
    void SendDescriptors(std::string bytes, const std::vector<std::vector<int>>& lists) const {
        std::string control;
        for (const std::vector<int>& list : lists) {
            const std::size_t size = list.size() * sizeof(int);
            const cmsghdr header{CMSG_LEN(size), SOL_SOCKET, SCM_RIGHTS};
            std::string one(CMSG_SPACE(size), '\0');
            std::memcpy(one.data(), &header, sizeof header);
            std::memcpy(one.data() + CMSG_LEN(0), list.data(), size);
            control += one;
        }
        iovec part{bytes.data(), bytes.size()};
        const msghdr message{nullptr, 0, &part, 1, control.data(), control.size(), 0};
        sendmsg(m_socket, &message, MSG_NOSIGNAL);
    }
    int Socket() const { return m_socket; }
    void EndSending() const { shutdown(m_socket, SHUT_WR); }
    /// Whether the other side ends the connection, in a time that is long for it.
    bool AwaitEnd() const {
        char bytes[4096];
        ssize_t count = 0;
        do {
            count = recv(m_socket, bytes, sizeof bytes, 0);
        } while (count > 0);
        return count == 0 || errno == ECONNRESET;
    }

  private:
    explicit ForeignPeer(int connected) : m_socket(connected) {
        const timeval patience{20, 0};
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    }
    static sockaddr_un Address(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        return address;
    }

    int m_socket;
};

#endif

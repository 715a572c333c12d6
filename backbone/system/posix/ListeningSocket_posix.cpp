#include "system/posix/ListeningSocket.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "Diagnostics.h"
#include "platform/system/SystemError.h"
#include "system/posix/LockFile.h"
#include "system/posix/UnixChannel.h"

namespace zyl::backbone::system::posix {

namespace {

/// The kernel cuts it to its own limit; a burst of newcomers fits in either.
constexpr int kBacklog = 4096;

/// How often a socket is made anew that somebody took for a leftover, who looks once.
constexpr int kAttempts = 100;

}  // namespace

std::string SocketFileOf(const Identity& identity) {
    return "s." + TextOf(identity);
}

SocketPeer PeerOf(int socket) {
    ucred peer{0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
    socklen_t size = sizeof peer;
    getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return {peer.pid, peer.uid != geteuid() ? std::optional(peer.uid) : std::nullopt};
}

ListeningSocket::ListeningSocket(const DomainDirectory& directory, const Poller& poller,
                                 SpareDescriptors& spares, const Identity& identity)
    : m_directory(directory),
      m_poller(poller),
      m_spares(spares),
      m_file(SocketFileOf(identity)),
      m_fileBefore("t." + TextOf(identity)) {}

/// It gets its name once it accepts connections: under that name one that refuses them is a dead process's,
/// and whoever removes it under the first one has it made anew.
bool ListeningSocket::Open() {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (!Bind()) {
            return false;
        }
        if (m_directory.Rename(m_fileBefore, m_file)) {
            if (m_watcher != nullptr) {
                m_entry.emplace(m_poller, m_socket.Get(), *m_watcher, false);
            }
            return true;
        }
        m_socket.Close();
        if (errno != ENOENT || m_directory.IsDeleted()) {
            return false;
        }
    }
    return false;
}

/// The address is a path: it may lead into a directory that was made anew while ours was deleted. What an
/// earlier try has left there goes first.
bool ListeningSocket::Bind() {
    const sockaddr_un address = m_directory.AddressOf(m_fileBefore);
    unlink(address.sun_path);
    m_socket = FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool listens =
        m_socket.IsOpen() && fchmod(m_socket.Get(), 0600) == 0 &&
        bind(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        listen(m_socket.Get(), kBacklog) == 0;
    if (!listens) {
        m_socket.Close();
    }
    return listens;
}

void ListeningSocket::Close() {
    if (m_socket.IsOpen()) {
        m_entry.reset();
        m_socket.Close();
        m_directory.Remove(m_file);
    }
}

Names::Acceptance ListeningSocket::Accept() {
    if (!m_spares.Refill()) {
        return Shortage();
    }
    FileDescriptor accepted = m_spares.ToKeep(
        [&] { return accept4(m_socket.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK); });
    if (!accepted.IsOpen()) {
        if (errno == ECONNABORTED) {
            return {Names::Welcome::kRefused};
        }
        return Shortage();
    }
    const SocketPeer peer = PeerOf(accepted.Get());
    if (peer.strangeUser) {
        Report(fmt::format("a link from the user with number {} is refused", *peer.strangeUser));
        return {Names::Welcome::kRefused};
    }
    return {Names::Welcome::kAccepted, std::make_unique<UnixChannel>(std::move(accepted), m_poller, m_spares),
            "", peer.pid};
}

Names::Acceptance ListeningSocket::Shortage() const {
    const platform::SystemError error = platform::SystemError::Last("accept");
    if (!error.IsShortage() || !SomebodyWaits()) {
        return {Names::Welcome::kNobody};
    }
    return {Names::Welcome::kShortage, nullptr, error.Reason()};
}

bool ListeningSocket::SomebodyWaits() const {
    pollfd listening{m_socket.Get(), POLLIN, 0};
    return poll(&listening, 1, 0) == 1;
}

}  // namespace zyl::backbone::system::posix

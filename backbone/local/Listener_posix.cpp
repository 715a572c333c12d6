#include "Listener.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "Descriptors.h"
#include "Diagnostics.h"

namespace zyl::backbone::local {

namespace {

/// A link is accepted only when there is a place for all that comes with it: its socket, and a lane's
/// descriptors.
constexpr int kDescriptorsOfALink = 1 + kMostDescriptors;

bool SomebodyWaits(int socket) {
    pollfd listening{socket, POLLIN, 0};
    return poll(&listening, 1, 0) == 1;
}

}  // namespace

Listener::Listener(const Poller& poller, bool& knocking, int number, std::string name, bool announced,
                   Claim claim)
    : m_knocking(knocking),
      m_number(number),
      m_name(std::move(name)),
      m_announced(announced),
      m_claim(std::move(claim)),
      m_entry(poller, m_claim.Socket(), *this) {}

Listener::Accepted Listener::Accept() const {
    FileDescriptor socket;
    if (CanOpen(kDescriptorsOfALink)) {
        socket = FileDescriptor(accept4(m_claim.Socket(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    }
    if (!socket.IsOpen()) {
        const int reason = errno;
        if (reason == EINTR || reason == ECONNABORTED) {
            return {Outcome::kRefused};
        }
        const bool shortage = reason == EMFILE || reason == ENFILE || reason == ENOBUFS || reason == ENOMEM;
        const bool waits = shortage && SomebodyWaits(m_claim.Socket());
        errno = reason;
        return {waits ? Outcome::kShortage : Outcome::kNobody};
    }
    const ucred peer = PeerOf(socket);
    if (peer.uid != geteuid()) {
        Report("a link to application " + Quoted(m_name) + " from the user with number " +
               std::to_string(peer.uid) + " is refused");
        return {Outcome::kRefused};
    }
    return {Outcome::kAccepted, std::move(socket), peer.pid};
}

}  // namespace zyl::backbone::local

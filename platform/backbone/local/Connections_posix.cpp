#include "Connections.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "LocalDomain.h"

namespace zyl::backbone::local {

namespace {

/// A frame's buffer is kept for the next one up to this size.
constexpr std::size_t kKeptFrame = 1024 * 1024;

}  // namespace

Incoming::Incoming(LocalDomain& domain, FileDescriptor socket, int pid, int application)
    : m_domain(domain), m_socket(std::move(socket)), m_pid(pid), m_application(application) {}

void Incoming::Ready(const Readiness& readiness) {
    m_drained = false;
    m_hangup = m_hangup || readiness.end;
    m_domain.Readable(*this);
}

void Incoming::Recheck() {
    Ready({true, false, true});
}

Incoming::Intake Incoming::Take(std::optional<FrameView>& frame, bool wantsMessage) {
    do {
        if (!wantsMessage && m_reader.NextKind() == FrameKind::kMessage) {
            return Intake::kHeld;
        }
        frame = m_reader.Next();
        if (frame) {
            CheckOrder(frame->kind);
            return Intake::kFrame;
        }
    } while (Receive());
    return m_ended ? Intake::kEnded : Intake::kEmpty;
}

/// True when there are new bytes. A read that did not fill its room has taken everything, unless the end
/// follows.
bool Incoming::Receive() {
    if (m_drained || m_ended) {
        return false;
    }
    const std::span<char> room = m_reader.Room();
    ssize_t count = 0;
    do {
        count = recv(m_socket.Get(), room.data(), room.size(), MSG_DONTWAIT);
    } while (count < 0 && errno == EINTR);
    if (count > 0) {
        m_reader.Received(static_cast<std::size_t>(count));
        m_drained = static_cast<std::size_t>(count) < room.size() && !m_hangup;
        return true;
    }
    m_drained = count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    m_ended = !m_drained;
    return false;
}

void Incoming::CheckOrder(FrameKind kind) {
    if ((kind == FrameKind::kGreeting) == m_greeted) {
        throw BadFrame(m_greeted ? "a second greeting" : "the first frame is no greeting");
    }
    m_greeted = true;
}

Outgoing::Outgoing(LocalDomain& domain, FileDescriptor socket, Peer peer, bool announced)
    : m_domain(domain), m_socket(std::move(socket)), m_peer(std::move(peer)), m_announced(announced) {}

void Outgoing::Ready(const Readiness& readiness) {
    if (readiness.end || (readiness.input && !Alive())) {
        m_lost = true;
        m_domain.Ended(m_peer.pid);
    }
    if (readiness.room && m_sent == m_size && SendBacklog() == Progress::kDone) {
        StopAwaiting();
    }
}

bool Outgoing::Alive() {
    if (!m_lost) {
        char byte = 0;
        const ssize_t count = recv(m_socket.Get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK);
        m_lost = count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
        if (m_lost) {
            m_domain.Ended(m_peer.pid);
        }
    }
    return !m_lost;
}

void* Outgoing::Reserve(const char* type, int size) {
    const std::size_t typeSize = std::strlen(type) + 1;
    m_size = kFrameHeaderSize + typeSize + static_cast<std::size_t>(size);
    m_sent = 0;
    if (m_size > m_capacity) {
        m_frame = std::make_unique_for_overwrite<char[]>(m_size);
        m_capacity = m_size;
    }
    WriteFrameHeader(m_frame.get(), {FrameKind::kMessage, static_cast<std::uint16_t>(typeSize),
                                     static_cast<std::uint32_t>(size)});
    std::memcpy(m_frame.get() + kFrameHeaderSize, type, typeSize);
    return m_frame.get() + kFrameHeaderSize + typeSize;
}

Progress Outgoing::Commit() {
    const Progress controls = SendBacklog();
    if (controls != Progress::kDone) {
        return controls;
    }
    if (!Send(m_frame.get(), m_size, m_sent)) {
        return Progress::kLost;
    }
    if (m_sent < m_size) {
        return Blocked();
    }
    if (m_capacity > kKeptFrame) {
        m_frame.reset();
        m_capacity = 0;
    }
    StopAwaiting();
    return Progress::kDone;
}

void Outgoing::SendControl(const std::string& frame) {
    m_controls += frame;
    SendBacklog();
}

Progress Outgoing::SendBacklog() {
    if (!Send(m_controls.data(), m_controls.size(), m_controlsSent)) {
        return Progress::kLost;
    }
    if (m_controlsSent < m_controls.size()) {
        return Blocked();
    }
    m_controls.clear();
    m_controlsSent = 0;
    return Progress::kDone;
}

Progress Outgoing::Blocked() {
    m_awaitsRoom = true;
    m_domain.AwaitRoom(*this, true);
    return Progress::kBlocked;
}

void Outgoing::StopAwaiting() {
    if (m_awaitsRoom) {
        m_awaitsRoom = false;
        m_domain.AwaitRoom(*this, false);
    }
}

/// Sends what the socket takes of the bytes from `sent` on. False when the peer is gone.
bool Outgoing::Send(const char* bytes, std::size_t size, std::size_t& sent) {
    while (sent < size && !m_lost) {
        const ssize_t count = send(m_socket.Get(), bytes + sent, size - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count >= 0) {
            sent += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS || errno == ENOMEM) {
            return true;
        } else if (errno != EINTR) {
            m_lost = true;
            m_domain.Ended(m_peer.pid);
        }
    }
    return !m_lost;
}

}  // namespace zyl::backbone::local

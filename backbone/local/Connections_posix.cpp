#include "Connections.h"

#include <poll.h>
#include <sys/socket.h>
#include <time.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Descriptors.h"
#include "Diagnostics.h"
#include "LocalDomain.h"

namespace zyl::backbone::local {

namespace {

/// A frame's buffer is kept for the next one up to this size.
constexpr std::size_t kKeptFrame = std::size_t{1024} * 1024;

/// With a lane: its memory, the opener's bell and the bell's page. With the answer: a bell and its page.
constexpr int kLaneDescriptors = 3;
constexpr std::size_t kBellDescriptors = 2;
static_assert(kLaneDescriptors == kMostDescriptors);

/// Whether there is nothing to receive, not even an end.
bool IsEmpty(int socket) {
    char byte = 0;
    return recv(socket, &byte, 1, MSG_DONTWAIT | MSG_PEEK) < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
}

/// A clock that costs next to nothing and moves every few milliseconds.
long CoarseTime() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_nsec;
}

}  // namespace

Incoming::Incoming(LocalDomain& domain, FileDescriptor socket, int pid, int application)
    : m_domain(domain),
      m_socket(std::move(socket)),
      m_entry(domain.Poll(), m_socket.Get(), *this),
      m_pid(pid),
      m_application(application) {}

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
            m_settled = m_settled || frame->kind == FrameKind::kMessage;
            return Intake::kFrame;
        }
        if (!m_settled && !m_drained && !m_ended && !CanOpen(kLaneDescriptors)) {
            return Intake::kStarved;
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
    const ssize_t count = ReceiveWithDescriptors(m_socket.Get(), room, m_descriptors);
    if (count > 0) {
        // A read ends behind bytes that came with descriptors, whatever follows.
        m_drained = static_cast<std::size_t>(count) < room.size() && !m_hangup && m_descriptors.empty();
        m_reader.Received(static_cast<std::size_t>(count));
        if (std::ssize(m_descriptors) > kMostDescriptors) {
            throw BadFrame(std::to_string(m_descriptors.size()) +
                           " descriptors come, which belong to no lane");
        }
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
    if (kind == FrameKind::kBell && std::exchange(m_wasAsked, true)) {
        throw BadFrame("a second request for the bell");
    }
}

void Incoming::OpenLane(const FrameView& frame, const Doorbell& own) {
    const std::uint32_t ringSize = ReadLaneFrame(frame.body);
    if (m_lane != nullptr || ringSize != kRingSize || std::ssize(m_descriptors) != kMostDescriptors ||
        !IsSharedMemory(m_descriptors[0], kLaneMemory)) {
        throw BadFrame("a lane with a ring of " + std::to_string(ringSize) + " bytes and " +
                       std::to_string(m_descriptors.size()) + " descriptors cannot be opened");
    }
    Mapping mapping(m_descriptors[0], kPageSize, kRingSize);
    if (!mapping.IsMapped()) {
        throw BadFrame("there is no memory for its lane");
    }
    m_writersBell = std::make_shared<PeerDoorbell>(std::move(m_descriptors[1]), m_descriptors[2]);
    m_lane = std::make_unique<LaneReader>(std::move(mapping));
    m_descriptors.clear();
    m_settled = true;
    AnswerWithBell(own);
}

/// Besides a link that has ended, there may be too many descriptors on their way for one more.
void Incoming::AnswerWithBell(const Doorbell& own) {
    const std::array<int, kBellDescriptors> answer{own.Bell(), own.PageFile()};
    m_owesBell =
        SendWithDescriptors(m_socket.Get(), "b", answer) < 0 && errno != EPIPE && errno != ECONNRESET;
    if (m_owesBell) {
        m_domain.OweBells();
    }
}

Outgoing::Outgoing(LocalDomain& domain, FileDescriptor socket, Peer peer, bool announced)
    : m_domain(domain),
      m_socket(std::move(socket)),
      m_entry(domain.Poll(), m_socket.Get(), *this),
      m_peer(std::move(peer)),
      m_announced(announced) {}

Outgoing::~Outgoing() {
    m_domain.LaneIsFull(*this, false);
}

void Outgoing::Ready(const Readiness& readiness) {
    if (readiness.end) {
        Lose();
    } else if (readiness.input) {
        ReceiveBell();
    }
    if (readiness.room && m_sent == m_size && SendBacklog() == Progress::kDone) {
        StopAwaiting();
    }
}

void Outgoing::Lose() {
    m_lost = true;
    m_domain.Ended(m_peer.pid);
}

void Outgoing::GiveUp(const BadFrame& reason) {
    Report("the link to application " + Quoted(m_peer.application) + " is given up: " + reason.what());
    Lose();
}

/// A message in a lane costs less than a look at the socket, so that look is taken every few milliseconds
/// only. It asks for the end alone: an answer that nobody has read yet may lie before it.
bool Outgoing::Alive() {
    const long now = m_lane != nullptr ? CoarseTime() : 0;
    if (!m_lost && (m_lane == nullptr || now != m_lastLook)) {
        m_lastLook = now;
        pollfd end{m_socket.Get(), POLLRDHUP, 0};
        if (poll(&end, 1, 0) > 0) {
            Lose();
        }
    }
    return !m_lost;
}

void* Outgoing::Reserve(const char* type, int size) {
    if (!m_laneTried) {
        OpenLane();
        if (m_lane == nullptr) {
            SendControl(BellFrame());
        }
    }
    return m_lane != nullptr ? ReserveInLane(type, size) : ReserveFrame(type, size);
}

/// Everything that can fail here leaves the link with its socket.
void Outgoing::OpenLane() {
    m_laneTried = true;
    const Doorbell& own = m_domain.OwnBell();
    if (!m_domain.OpensLanes() || SendBacklog() != Progress::kDone) {
        return;
    }
    const FileDescriptor memory = MakeSharedMemory(kLaneMemory);
    Mapping mapping(memory, kPageSize, kRingSize);
    if (!memory.IsOpen() || !mapping.IsMapped()) {
        return;
    }
    const std::string frame = LaneFrame(kRingSize);
    const std::array<int, kLaneDescriptors> descriptors{memory.Get(), own.Bell(), own.PageFile()};
    const ssize_t sent = SendWithDescriptors(m_socket.Get(), frame, descriptors);
    if (sent > 0) {
        m_lane = std::make_unique<LaneWriter>(std::move(mapping));
        SendControl(frame.substr(static_cast<std::size_t>(sent)));
    }
}

void* Outgoing::ReserveInLane(const char* type, int size) {
    try {
        void* room = m_lane->Reserve(type, static_cast<std::size_t>(size));
        m_domain.LaneIsFull(*this, room == nullptr);
        return room;
    } catch (const BadFrame& bad) {
        GiveUp(bad);
        return nullptr;
    }
}

Progress Outgoing::CommitToLane() {
    Progress progress = Progress::kLost;
    try {
        progress = m_lane->Commit();
    } catch (const BadFrame& bad) {
        GiveUp(bad);
    }
    if (m_readersBell == nullptr) {
        ReceiveBell();
    }
    if (m_readersBell != nullptr) {
        m_readersBell->Ring();
        m_domain.Met(m_readersBell);
    }
    m_domain.LaneIsFull(*this, progress != Progress::kDone && !m_lost);
    return m_lost ? Progress::kLost : progress;
}

/// The reader answers before it looks into the lane: while there is no answer it has still to look, and an
/// answer that was late is rung.
void Outgoing::ReceiveBell() {
    const bool awaited = m_laneTried && m_readersBell == nullptr;
    if (IsEmpty(m_socket.Get())) {
        return;
    }
    // Without a place for them the kernel would drop the descriptors.
    if (awaited && !CanOpen(kBellDescriptors)) {
        m_domain.OweBells();
        return;
    }
    std::array<char, 16> bytes{};
    std::vector<FileDescriptor> descriptors;
    const ssize_t count = ReceiveWithDescriptors(m_socket.Get(), bytes, descriptors);
    try {
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK)) {
            Lose();
        } else if (awaited && descriptors.size() == kBellDescriptors) {
            m_readersBell = std::make_shared<PeerDoorbell>(std::move(descriptors[0]), descriptors[1]);
            m_readersBell->Ring();  // what was sent before may still be unread
        } else if (count > 0 && (awaited || !descriptors.empty())) {
            throw BadFrame(std::to_string(descriptors.size()) + " descriptors come, which are no doorbell");
        }
    } catch (const BadFrame& bad) {
        GiveUp(bad);
    }
}

void* Outgoing::ReserveFrame(const char* type, int size) {
    const std::size_t typeSize = std::strlen(type) + 1;
    m_size = kFrameHeaderSize + typeSize + static_cast<std::size_t>(size);
    m_sent = 0;
    if (m_size + kGuardSize > m_capacity) {
        m_capacity = m_size + kGuardSize;
        m_frame = std::make_unique_for_overwrite<char[]>(m_capacity);
    }
    WriteFrameHeader(m_frame.get(), {FrameKind::kMessage, static_cast<std::uint16_t>(typeSize),
                                     static_cast<std::uint32_t>(size)});
    std::memcpy(m_frame.get() + kFrameHeaderSize, type, typeSize);
    return m_frame.get() + kFrameHeaderSize + typeSize;
}

Progress Outgoing::Commit() {
    if (m_lane != nullptr) {
        return CommitToLane();
    }
    const Progress controls = SendBacklog();
    if (controls != Progress::kDone) {
        return controls;
    }
    const std::size_t before = m_sent;
    if (!Send(m_frame.get(), m_size, m_sent)) {
        return Progress::kLost;
    }
    if (m_sent < m_size) {
        Blocked();
        return m_sent > before ? Progress::kAdvanced : Progress::kBlocked;
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
    m_entry.ForRoom(true);
    return Progress::kBlocked;
}

void Outgoing::StopAwaiting() {
    if (m_awaitsRoom) {
        m_awaitsRoom = false;
        m_entry.ForRoom(false);
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
            Lose();
        }
    }
    return !m_lost;
}

}  // namespace zyl::backbone::local

#include "system/posix/UnixChannel.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/system/Retried.h"
#include "system/posix/SharedMemory.h"

namespace zyl::backbone::system::posix {

namespace {

/// As many as the kernel passes at once.
constexpr std::size_t kMostDescriptors = 253;

template <std::size_t count>
struct DescriptorSpace {
    alignas(cmsghdr) char bytes[CMSG_SPACE(count * sizeof(int))];
};

/// What errno says when a call did nothing. Only a socket that has neither bytes nor room, nor an end,
/// answers EAGAIN; too many descriptors that are on their way are ETOOMANYREFS.
Progress WhyNothing() {
    switch (errno) {
        case EAGAIN:
            return Progress::kNotNow;
        case ENOMEM:
        case ENOBUFS:
        case ETOOMANYREFS:
            return Progress::kShortage;
        default:
            return Progress::kEnded;
    }
}

std::vector<FileDescriptor> DescriptorsIn(msghdr& message) {
    std::vector<FileDescriptor> descriptors;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t index = 0; index < count; ++index) {
            int number = -1;
            std::memcpy(&number, CMSG_DATA(header) + index * sizeof number, sizeof number);
            descriptors.emplace_back(number);
        }
    }
    return descriptors;
}

}  // namespace

UnixChannel::UnixChannel(FileDescriptor socket, const Poller& poller, SpareDescriptors& spares)
    : m_spares(spares), m_poller(poller), m_socket(std::move(socket)) {}

void UnixChannel::Watch(Watcher& watcher) {
    m_entry.emplace(m_poller, m_socket.Get(), watcher, m_wantsRoom);
}

Moved UnixChannel::Send(std::span<const char> bytes) {
    return Sent(Retried([&] { return send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL); }));
}

Moved UnixChannel::SendWithMemory(std::span<const char> bytes, Memory& memory) {
    auto& shared = static_cast<SharedMemory&>(memory);
    const int descriptor = shared.Descriptor();
    iovec part{const_cast<char*>(bytes.data()), bytes.size()};
    DescriptorSpace<1> space{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = space.bytes;
    message.msg_controllen = sizeof space.bytes;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    const Moved sent = Sent(Retried([&] { return sendmsg(m_socket.Get(), &message, MSG_NOSIGNAL); }));
    if (sent.progress == Progress::kSome) {
        shared.HandedOver();
        m_spares.Refill();
    }
    return sent;
}

Moved UnixChannel::Sent(std::ptrdiff_t count) {
    if (count > 0) {
        return {Progress::kSome, static_cast<std::size_t>(count)};
    }
    const Progress why = WhyNothing();
    if (why == Progress::kNotNow) {
        m_wantsRoom = true;
        if (m_entry) {
            m_entry->TellOfRoom();
        }
    }
    return {why};
}

/// The kernel drops a descriptor that finds no place in this process, so one is made for it before. In a
/// process that has no other place, only a thread that opens something at this very moment can still take it
/// away.
Moved UnixChannel::Receive(std::span<char> room) {
    if (!m_spares.GiveUpOne()) {
        return {Progress::kShortage};
    }
    iovec part{room.data(), room.size()};
    DescriptorSpace<kMostDescriptors> space;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = space.bytes;
    message.msg_controllen = sizeof space.bytes;
    const ssize_t count = Retried([&] { return recvmsg(m_socket.Get(), &message, MSG_CMSG_CLOEXEC); });
    const Progress why = count > 0 ? Progress::kSome : count == 0 ? Progress::kEnded : WhyNothing();
    const bool someLost = (message.msg_flags & MSG_CTRUNC) != 0;
    if (count > 0 && (message.msg_controllen > 0 || someLost)) {
        Keep(DescriptorsIn(message), someLost);
    }
    m_spares.Refill();
    return {why, why == Progress::kSome ? static_cast<std::size_t>(count) : 0};
}

/// Maps a memory that came alone, as memories do. Of more, for which nobody has a use, all are counted and
/// closed.
void UnixChannel::Keep(std::span<const FileDescriptor> descriptors, bool someLost) {
    if (descriptors.size() == 1 && !someLost) {
        SharedMemory::Received received = SharedMemory::Map(descriptors.front());
        m_arrivals.push_back({std::move(received.memory), std::move(received.problem)});
        return;
    }
    const std::size_t count = descriptors.size() + (someLost ? 1 : 0);
    const std::string problem = descriptors.empty() ? "there was no descriptor for it"
                                                    : fmt::format("{} descriptors came at once", count);
    for (std::size_t index = 0; index < count; ++index) {
        m_arrivals.push_back({nullptr, problem});
    }
}

Channel::Arrival UnixChannel::TakeMemory() {
    if (m_arrivals.empty()) {
        return {nullptr, "no memory came with it"};
    }
    Arrival arrival = std::move(m_arrivals.front());
    m_arrivals.erase(m_arrivals.begin());
    return arrival;
}

bool UnixChannel::HasEnded() {
    pollfd end{m_socket.Get(), POLLRDHUP, 0};
    return poll(&end, 1, 0) > 0;
}

}  // namespace zyl::backbone::system::posix

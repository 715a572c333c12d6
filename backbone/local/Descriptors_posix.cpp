#include "Descriptors.h"

#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace zyl::backbone::local {

namespace {

/// One more than there may be, so that too many are seen to be. The kernel closes those beyond.
struct alignas(cmsghdr) DescriptorSpace {
    std::array<char, CMSG_SPACE((kMostDescriptors + 1) * sizeof(int))> bytes{};
};

void Adopt(cmsghdr* header, std::vector<FileDescriptor>& descriptors) {
    const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t index = 0; index < count; ++index) {
        int number = -1;
        std::memcpy(&number, CMSG_DATA(header) + index * sizeof number, sizeof number);
        descriptors.emplace_back(number);
    }
}

}  // namespace

bool CanOpen(int count) {
    std::vector<FileDescriptor> probes;
    while (count-- > 0) {
        probes.emplace_back(eventfd(0, EFD_CLOEXEC));
        if (!probes.back().IsOpen()) {
            return false;
        }
    }
    return true;
}

ucred PeerOf(const FileDescriptor& socket) {
    ucred peer{0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};  // nobody, should the kernel not tell
    socklen_t size = sizeof peer;
    getsockopt(socket.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return peer;
}

std::ptrdiff_t SendWithDescriptors(int socket, const std::string& bytes, std::span<const int> descriptors) {
    iovec part{const_cast<char*>(bytes.data()), bytes.size()};
    DescriptorSpace space;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = space.bytes.data();
    message.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(descriptors.size_bytes());
    std::memcpy(CMSG_DATA(header), descriptors.data(), descriptors.size_bytes());
    return sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

std::ptrdiff_t ReceiveWithDescriptors(int socket, std::span<char> room,
                                      std::vector<FileDescriptor>& descriptors) {
    iovec part{room.data(), room.size()};
    DescriptorSpace space;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = space.bytes.data();
    message.msg_controllen = space.bytes.size();
    ssize_t count = 0;
    do {
        count = recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    } while (count < 0 && errno == EINTR);
    cmsghdr* header = count >= 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    for (; header != nullptr; header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS) {
            Adopt(header, descriptors);
        }
    }
    return count;
}

}  // namespace zyl::backbone::local

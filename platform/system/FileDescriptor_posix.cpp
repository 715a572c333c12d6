#include "platform/system/FileDescriptor.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>

namespace zyl::platform {

namespace {

/// More than the system gives a process, unless its administrator has raised the limit. A higher one is not
/// used: a child could not close it.
constexpr int kMostDescriptors = 1 << 20;
constexpr int kWordSize = 64;

/// Which descriptors are open, a bit each: all that can be looked at in the child of a fork, whatever was
/// under way in the parent.
std::array<std::atomic<std::uint64_t>, kMostDescriptors / kWordSize> s_open;

std::uint64_t Bit(int descriptor) {
    return std::uint64_t{1} << (descriptor % kWordSize);
}

std::atomic<std::uint64_t>& WordOf(int descriptor) {
    return s_open.at(static_cast<std::size_t>(descriptor / kWordSize));
}

}  // namespace

FileDescriptor::FileDescriptor(int descriptor) : m_descriptor(descriptor) {
    if (descriptor >= kMostDescriptors) {
        close(descriptor);
        m_descriptor = -1;
        errno = EMFILE;
    } else if (descriptor >= 0) {
        WordOf(descriptor) |= Bit(descriptor);
    }
}

void FileDescriptor::Close() {
    if (m_descriptor >= 0) {
        const int before = errno;
        close(Release());
        errno = before;
    }
}

/// Forgotten before it is closed: a child that is forked in between rather keeps a copy than closes what
/// another thread has just opened under the number.
int FileDescriptor::Release() {
    if (m_descriptor >= 0) {
        WordOf(m_descriptor) &= ~Bit(m_descriptor);
    }
    return std::exchange(m_descriptor, -1);
}

void FileDescriptor::CloseAllInChild() {
    int descriptor = 0;
    for (const std::atomic<std::uint64_t>& word : s_open) {
        for (std::uint64_t open = word; open != 0; open &= open - 1) {
            close(descriptor + __builtin_ctzll(open));
        }
        descriptor += kWordSize;
    }
}

}  // namespace zyl::platform

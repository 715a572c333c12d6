#include "SharedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace zyl::backbone::local {

namespace {

constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

}  // namespace

FileDescriptor MakeSharedMemory(std::size_t size) {
    FileDescriptor file(memfd_create("zyl-backbone", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    const bool made = file.IsOpen() && ftruncate(file.Get(), static_cast<off_t>(size)) == 0 &&
                      fcntl(file.Get(), F_ADD_SEALS, kSeals) == 0;
    return made ? std::move(file) : FileDescriptor();
}

bool IsSharedMemory(const FileDescriptor& descriptor, std::size_t size) {
    struct stat status {};
    const int seals = fcntl(descriptor.Get(), F_GET_SEALS);
    return seals >= 0 && (seals & kSeals) == kSeals && fstat(descriptor.Get(), &status) == 0 &&
           status.st_size == static_cast<off_t>(size);
}

Mapping::Mapping(const FileDescriptor& file, std::size_t head, std::size_t tail) {
    constexpr int kAccess = PROT_READ | PROT_WRITE;
    constexpr int kFlags = MAP_SHARED | MAP_FIXED;
    if (!file.IsOpen() || !Reserve(head, tail)) {
        return;
    }
    const bool mapped = mmap(m_begin, head + tail, kAccess, kFlags, file.Get(), 0) != MAP_FAILED &&
                        (tail == 0 || mmap(m_begin + head + tail, tail, kAccess, kFlags, file.Get(),
                                           static_cast<off_t>(head)) != MAP_FAILED);
    if (!mapped) {
        Unmap();
    }
}

Mapping::Mapping(Mapping&& other) noexcept
    : m_begin(std::exchange(other.m_begin, nullptr)), m_head(other.m_head), m_tail(other.m_tail) {}

Mapping& Mapping::operator=(Mapping&& other) noexcept {
    Unmap();
    m_begin = std::exchange(other.m_begin, nullptr);
    m_head = other.m_head;
    m_tail = other.m_tail;
    return *this;
}

Mapping::~Mapping() {
    Unmap();
}

/// Addresses for all of it in one piece, to be filled.
bool Mapping::Reserve(std::size_t head, std::size_t tail) {
    void* begin =
        mmap(nullptr, head + 2 * tail, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (begin == MAP_FAILED) {
        return false;
    }
    m_begin = static_cast<char*>(begin);
    m_head = head;
    m_tail = tail;
    return true;
}

void Mapping::Unmap() {
    if (m_begin != nullptr) {
        munmap(m_begin, m_head + 2 * m_tail);
        m_begin = nullptr;
    }
}

/// A shared mapping that is moved with an old size of 0 stays where it is and appears a second time.
Mapping Mapping::Duplicate() const {
    constexpr int kFlags = MREMAP_MAYMOVE | MREMAP_FIXED;
    Mapping copy;
    if (!copy.Reserve(m_head, m_tail)) {
        return copy;
    }
    const std::size_t first = m_head + m_tail;
    const bool mapped = mremap(m_begin, 0, first, kFlags, copy.m_begin) != MAP_FAILED &&
                        mremap(m_begin + first, 0, m_tail, kFlags, copy.m_begin + first) != MAP_FAILED;
    if (!mapped) {
        copy.Unmap();
    }
    return copy;
}

bool Mapping::MakePrivate(std::span<const char> bytes) {
    const auto offset = static_cast<std::size_t>(bytes.data() - m_begin);
    const std::size_t first = offset / kPageSize * kPageSize;
    const std::size_t size = (offset + bytes.size() + kPageSize - 1) / kPageSize * kPageSize - first;
    if (size == 0) {
        return true;  // nothing, where a page begins
    }
    void* copy = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (copy == MAP_FAILED) {
        return false;
    }
    std::memcpy(copy, m_begin + first, size);
    return mremap(copy, size, size, MREMAP_MAYMOVE | MREMAP_FIXED, m_begin + first) != MAP_FAILED;
}

}  // namespace zyl::backbone::local

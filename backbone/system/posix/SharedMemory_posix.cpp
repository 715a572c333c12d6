#include "system/posix/SharedMemory.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/system/SystemError.h"

namespace zyl::backbone::system::posix {

namespace {

constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

/// More than any message needs.
constexpr off_t kLargest = off_t{4} << 30;

/// Whether the system promises no memory that it does not have. Then it is taken at once, for later it could
/// be refused only by a signal.
bool CommitsStrictly() {
    static const bool strictly = [] {
        const FileDescriptor setting(open("/proc/sys/vm/overcommit_memory", O_RDONLY | O_CLOEXEC));
        char mode = '0';
        return setting.IsOpen() && read(setting.Get(), &mode, 1) == 1 && mode == '2';
    }();
    return strictly;
}

bool Shape(int file, off_t size) {
    return ftruncate(file, size) == 0 &&
           (!CommitsStrictly() || Retried([&] { return fallocate(file, 0, 0, size); }) == 0) &&
           fcntl(file, F_ADD_SEALS, kSeals) == 0;
}

/// From this size on memory is for one long message, which fills it; smaller ones may be used in part only.
constexpr std::size_t kFilledFrom = std::size_t{4} << 20;

/// Takes the pages of a long message at once, a fifth to a third faster than its writer would take them one
/// by one. False when there is no memory for them.
bool Fill(std::span<char> bytes) {
    if (bytes.size() < kFilledFrom || madvise(bytes.data(), bytes.size(), MADV_POPULATE_WRITE) == 0) {
        return true;
    }
    return errno == EINVAL;  // the system does not know it
}

/// Empty when there is no room for it; errno says why.
std::span<char> Mapped(int file, std::size_t size) {
    void* begin = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    return begin != MAP_FAILED ? std::span(static_cast<char*>(begin), size) : std::span<char>();
}

bool IsSealedMemory(int file) {
    struct statfs system {};
    const int seals = fcntl(file, F_GET_SEALS);
    return seals >= 0 && (seals & kSeals) == kSeals && fstatfs(file, &system) == 0 &&
           system.f_type == TMPFS_MAGIC;
}

}  // namespace

SharedMemory::SharedMemory(std::span<char> bytes, FileDescriptor file)
    : m_bytes(bytes), m_file(std::move(file)) {}

SharedMemory::~SharedMemory() {
    munmap(m_bytes.data(), m_bytes.size());
}

void SharedMemory::Prepare(std::size_t offset, std::size_t size) {
    static const auto s_page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t begin = offset / s_page * s_page;
    const std::size_t end = std::min((offset + size + s_page - 1) / s_page * s_page, m_bytes.size());
    [[maybe_unused]] const int result = madvise(m_bytes.data() + begin, end - begin, MADV_POPULATE_WRITE);
}

std::unique_ptr<SharedMemory> SharedMemory::Make(SpareDescriptors& spares, std::size_t size) {
    FileDescriptor file =
        spares.ToKeep([] { return memfd_create("zyl-backbone", MFD_CLOEXEC | MFD_ALLOW_SEALING); });
    if (!file.IsOpen() || !Shape(file.Get(), static_cast<off_t>(size))) {
        return nullptr;
    }
    const std::span<char> bytes = Mapped(file.Get(), size);
    if (bytes.empty()) {
        return nullptr;
    }
    std::unique_ptr<SharedMemory> memory(new SharedMemory(bytes, std::move(file)));
    return Fill(bytes) ? std::move(memory) : nullptr;
}

SharedMemory::Received SharedMemory::Map(const FileDescriptor& file) {
    struct stat status {};
    if (!IsSealedMemory(file.Get()) || fstat(file.Get(), &status) != 0) {
        return {nullptr, "it is no shared memory of a size that is sealed"};
    }
    if (status.st_size == 0 || status.st_size > kLargest) {
        return {nullptr, fmt::format("it has {} bytes; there must be some, and {} at the most",
                                     status.st_size, kLargest)};
    }
    const std::span<char> bytes = Mapped(file.Get(), static_cast<std::size_t>(status.st_size));
    if (bytes.empty()) {
        return {nullptr, platform::SystemError::Last("it cannot be mapped").Text()};
    }
    return {std::unique_ptr<SharedMemory>(new SharedMemory(bytes)), {}};
}

}  // namespace zyl::backbone::system::posix

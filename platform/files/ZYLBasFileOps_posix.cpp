#include "ZYLBasFileOps.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "platform/system/FileDescriptor.h"
#include "platform/system/Retried.h"

namespace {

using zyl::platform::FileDescriptor;
using zyl::platform::Retried;

constexpr int kReadWrite = 0x0002;
constexpr int kCreate = 0x0100;
constexpr int kTruncate = 0x0200;
constexpr int kBinary = 0x8000;

/// How often OpenBeneath resolves a path again because another process renames directories on it.
constexpr int kResolveAttempts = 100;

/// How often, a millisecond apart, LockToEmpty tries to lock a file, and how often it must observe a
/// shared lock to believe it.
constexpr int kLockAttempts = 50;
constexpr int kConvincingSharedLocks = 3;

bool AreValid(int flags) {
    const bool isKnown = (flags & ~(kReadWrite | kCreate | kTruncate | kBinary)) == 0;
    const bool truncatesUnwritable = (flags & kTruncate) != 0 && (flags & kReadWrite) == 0;
    return isKnown && !truncatesUnwritable;
}

/// O_NONBLOCK keeps open from waiting for the other end of a FIFO; it has no effect on a regular file.
/// O_TRUNC is left out, because a held file must not be emptied.
int HostFlags(int flags) {
    return ((flags & kReadWrite) != 0 ? O_RDWR : O_RDONLY) | ((flags & kCreate) != 0 ? O_CREAT : 0) |
           O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
}

bool Lock(int descriptor, int operation) {
    return Retried([&] { return ::flock(descriptor, operation | LOCK_NB); }) == 0;
}

/// 0 for a regular file, else the errno with which Open refuses it.
int ErrorUnlessRegular(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return errno;
    }
    if (S_ISREG(status.st_mode)) {
        return 0;
    }
    return S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP;
}

/// Locks a file exclusively for the moment in which it is emptied. Returns 0, or the errno that refuses
/// it.
///
/// If neither an exclusive nor a shared lock can be had, another process has an exclusive lock: an Open
/// that empties the file unlocks it soon, another program may not. If only a shared lock can be had,
/// others share the file; the lock may have changed hands between the two attempts, so this must be
/// observed repeatedly.
int LockToEmpty(int descriptor) {
    int sharedLocks = 0;
    for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
        if (Lock(descriptor, LOCK_EX) || errno != EWOULDBLOCK) {
            return 0;
        }
        if (Lock(descriptor, LOCK_SH)) {
            Lock(descriptor, LOCK_UN);
            if (++sharedLocks == kConvincingSharedLocks) {
                return EBUSY;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return ENOLCK;
}

/// Empties a file unless it is held. Returns 0, or the errno that refuses it.
int Empty(int descriptor) {
    if (const int error = LockToEmpty(descriptor)) {
        return error;
    }
    // The lock lasts until the file is empty, so that no hold can begin in between.
    const int failure = Retried([&] { return ::ftruncate(descriptor, 0); }) == 0 ? 0 : errno;
    Lock(descriptor, LOCK_UN);
    return failure;
}

/// Accepts the descriptor of a regular file, which it empties if the flags say so. Closes any other and
/// returns -1 with errno set.
int Accept(FileDescriptor opened, int flags) {
    if (!opened.IsOpen()) {
        return -1;
    }
    int error = ErrorUnlessRegular(opened.Get());
    if (error == 0 && (flags & kTruncate) != 0) {
        error = Empty(opened.Get());
    }
    if (error != 0) {
        errno = error;
        return -1;
    }
    return opened.Release();
}

}  // namespace

FILE* ZYLBasFileOps::Fopen(const ZYLString& path, const char* mode) {
    const std::string closedOnExec = std::string(mode) + "e";
    return std::fopen(path.GetUTF8(), closedOnExec.c_str());
}

int ZYLBasFileOps::Open(const char* path, int flags, int permissions) {
    if (!AreValid(flags)) {
        errno = EINVAL;
        return -1;
    }
    const auto open = [&] { return ::open(path, HostFlags(flags), static_cast<mode_t>(permissions)); };
    return Accept(FileDescriptor(Retried(open)), flags);
}

int ZYLBasFileOps::OpenDirectory(const char* path) {
    return Retried([&] { return ::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC); });
}

int ZYLBasFileOps::OpenBeneath(int directory, const char* path, int flags, int permissions) {
    if (!AreValid(flags)) {
        errno = EINVAL;
        return -1;
    }
    open_how how{};
    how.flags = static_cast<unsigned>(HostFlags(flags));
    how.mode = (flags & kCreate) != 0 ? static_cast<unsigned>(permissions) : 0;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    const auto open = [&] {
        return static_cast<int>(::syscall(SYS_openat2, directory, path, &how, sizeof how));
    };
    FileDescriptor opened(Retried(open));
    for (int attempt = 1; !opened.IsOpen() && errno == EAGAIN && attempt < kResolveAttempts; ++attempt) {
        opened = FileDescriptor(Retried(open));
    }
    return Accept(std::move(opened), flags);
}

void ZYLBasFileOps::Hold(int descriptor) {
    Lock(descriptor, LOCK_SH);
}

void ZYLBasFileOps::Release(int descriptor) {
    Lock(descriptor, LOCK_UN);
}

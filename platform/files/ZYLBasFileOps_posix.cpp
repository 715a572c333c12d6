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

#include "RetryInterrupted_posix.h"

namespace {

constexpr int kReadWrite = 0x0002;
constexpr int kCreate = 0x0100;
constexpr int kTruncate = 0x0200;
constexpr int kBinary = 0x8000;

/// How often a path is resolved anew when somebody renames directories on it meanwhile.
constexpr int kResolveAttempts = 100;

/// How often, a millisecond apart, a file is tried to be locked, and readers of it are to be seen.
constexpr int kLockAttempts = 50;
constexpr int kSightsThatCount = 3;

bool AreValid(int flags) {
    const bool isKnown = (flags & ~(kReadWrite | kCreate | kTruncate | kBinary)) == 0;
    const bool truncatesUnwritable = (flags & kTruncate) != 0 && (flags & kReadWrite) == 0;
    return isKnown && !truncatesUnwritable;
}

/// O_NONBLOCK keeps the open of a FIFO from waiting for its other end; it means nothing to a regular file.
/// O_TRUNC is left out: what is held must be found so before it is emptied.
int HostFlags(int flags) {
    return ((flags & kReadWrite) != 0 ? O_RDWR : O_RDONLY) | ((flags & kCreate) != 0 ? O_CREAT : 0) |
           O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
}

bool Lock(int descriptor, int operation) {
    return RetryInterrupted([&] { return ::flock(descriptor, operation | LOCK_NB); }) == 0;
}

/// 0 for a regular file, else the errno that refuses it.
int Refusal(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return errno;
    }
    if (S_ISREG(status.st_mode)) {
        return 0;
    }
    return S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP;
}

/// Locks a file for the moment in which it is emptied. 0, or the errno that refuses it.
///
/// A file that nobody can lock as a reader either is being emptied by another process, which soon lets go, or
/// locked by a program that does not. One that a reader can lock has readers; but the sight may deceive when
/// it changes in between, so that it counts only when it comes again.
int LockToEmpty(int descriptor) {
    int sightsOfReaders = 0;
    for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
        if (Lock(descriptor, LOCK_EX) || errno != EWOULDBLOCK) {
            return 0;
        }
        if (Lock(descriptor, LOCK_SH)) {
            Lock(descriptor, LOCK_UN);
            if (++sightsOfReaders == kSightsThatCount) {
                return EBUSY;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return ENOLCK;
}

/// Empties a file that nobody holds. 0, or the errno that refuses it.
int Emptying(int descriptor) {
    if (const int refusal = LockToEmpty(descriptor)) {
        return refusal;
    }
    // Locked until it is empty, so that nobody begins to hold it in between.
    const int failure = RetryInterrupted([&] { return ::ftruncate(descriptor, 0); }) == 0 ? 0 : errno;
    Lock(descriptor, LOCK_UN);
    return failure;
}

/// The descriptor of a regular file, emptied where the flags say so; or -1 with errno set.
int Checked(int descriptor, int flags) {
    if (descriptor < 0) {
        return -1;
    }
    int refusal = Refusal(descriptor);
    if (refusal == 0 && (flags & kTruncate) != 0) {
        refusal = Emptying(descriptor);
    }
    if (refusal != 0) {
        ::close(descriptor);
        errno = refusal;
        return -1;
    }
    return descriptor;
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
    return Checked(
        RetryInterrupted([&] { return ::open(path, HostFlags(flags), static_cast<mode_t>(permissions)); }),
        flags);
}

int ZYLBasFileOps::OpenDirectory(const char* path) {
    return RetryInterrupted([&] { return ::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC); });
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
    int descriptor = -1;
    for (int attempt = 0; attempt < kResolveAttempts; ++attempt) {
        descriptor = static_cast<int>(
            RetryInterrupted([&] { return ::syscall(SYS_openat2, directory, path, &how, sizeof how); }));
        if (descriptor >= 0 || errno != EAGAIN) {
            break;
        }
    }
    return Checked(descriptor, flags);
}

void ZYLBasFileOps::Hold(int descriptor) {
    Lock(descriptor, LOCK_SH);
}

void ZYLBasFileOps::Release(int descriptor) {
    Lock(descriptor, LOCK_UN);
}

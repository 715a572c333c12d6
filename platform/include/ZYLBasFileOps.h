#ifndef ZYLBASFILEOPS_H
#define ZYLBASFILEOPS_H

#include <cstdio>

#include "ZYLPlatformExport.h"
#include "ZYLString.h"

/// Opening of files. Static operations without state, safe on every thread. What they open is not inherited
/// by programs that this process starts.
class ZYLPLATFORM_EXPORT ZYLBasFileOps {
  public:
    /// fopen of the C library, with `path` in UTF-8. Returns a stream that the caller closes, or null with
    /// errno set.
    static FILE* Fopen(const ZYLString& path, const char* mode);

    /// Opens a regular file and returns a descriptor that the caller closes with _close, or -1 with errno
    /// set.
    ///
    /// `flags` is an "or" of the values of the home platform's C runtime:
    ///   0x0002  read and write (read only without it)
    ///   0x0100  create the file if it is missing
    ///   0x0200  empty the file; only together with 0x0002. A file that is held (see Hold), or that other
    ///           programs have locked together (a shared lock), is refused with EBUSY and keeps its bytes;
    ///           one that a program has locked for itself alone with ENOLCK, after some 50 milliseconds of
    ///           trying: another Open that empties it lets go sooner.
    ///   0x8000  no newline translation; there is none here with or without it
    /// Any other bit, or 0x0200 without 0x0002, fails with EINVAL.
    ///
    /// `permissions` are those of a file that is created, 0640 for example, less what the process's file mode
    /// mask takes away.
    ///
    /// Symbolic links are followed. A directory is refused with EISDIR; a FIFO, socket or device with
    /// ENOTSUP, and the call never blocks waiting for the other end of one.
    static int Open(const char* path, int flags, int permissions);

    /// Returns a descriptor of the directory `path` for OpenBeneath, which the caller closes with _close, or
    /// -1 with errno set. Symbolic links are followed; the descriptor stays with the directory that was
    /// found, whatever happens to its name.
    static int OpenDirectory(const char* path);

    /// Opens like Open, with `path` relative to `directory`, and never anything outside of that directory:
    /// an absolute path, and one that leaves the directory through ".." or a symbolic link, fails with
    /// EXDEV; a link of the kernel's own that is no path (those in /proc/self/fd) with ELOOP. Symbolic links
    /// that stay inside are followed. The system resolves the path and checks it in one step, so that nobody
    /// can exchange a directory for a link in between; a path that is being changed all the time fails with
    /// EAGAIN. Where the system cannot do so (Linux before 5.6) every call fails with ENOSYS.
    ///
    /// A hard link inside the directory is inside, and so is what is mounted there.
    static int OpenBeneath(int directory, const char* path, int flags, int permissions);

    /// Holds the file of `descriptor`, which Open or OpenBeneath has given: until Release, or until the
    /// descriptor is closed, neither of them empties that file, in any process and under any of its names. A
    /// file may be held by several at once.
    ///
    /// Those who open files in other ways are not kept from anything; to those who lock them it is a shared
    /// lock. Where the file system has no locks, and where somebody has locked the file for himself alone,
    /// nothing is held, which is no error.
    static void Hold(int descriptor);

    /// Ends a hold, also where a child process shares the descriptor. The descriptor stays open.
    static void Release(int descriptor);
};

#endif

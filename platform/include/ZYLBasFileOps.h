#ifndef ZYLBASFILEOPS_H
#define ZYLBASFILEOPS_H

#include <cstdio>

#include "ZYLPlatformExport.h"
#include "ZYLString.h"

/// Opens files. Static operations without state, safe on every thread. Descriptors and streams are closed
/// on exec.
class ZYLPLATFORM_EXPORT ZYLBasFileOps {
  public:
    /// fopen of the C library, with `path` in UTF-8. Returns a stream that the caller closes, or null with
    /// errno set.
    static FILE* Fopen(const ZYLString& path, const char* mode);

    /// Opens a regular file and returns a descriptor that the caller closes with _close, or -1 with errno
    /// set.
    ///
    /// `flags` is an "or" of the values of the home platform's C runtime:
    ///   0x0002  open for reading and writing (without it, for reading)
    ///   0x0100  create the file if it is missing
    ///   0x0200  empty the file; only together with 0x0002. If the file is held (see Hold), or other programs
    ///           have a shared lock on it, the call fails with EBUSY and the file keeps its bytes. If another
    ///           program has an exclusive lock, the call retries for about 50 ms and fails with ENOLCK: an
    ///           Open that empties the file unlocks it sooner.
    ///   0x8000  no newline translation; has no effect here
    ///
    /// Any other bit, or 0x0200 without 0x0002, fails with EINVAL.
    ///
    /// `permissions` apply to a file that is created, for example 0640, masked by the process's umask.
    ///
    /// Symbolic links are followed. A directory fails with EISDIR; a FIFO, socket or device fails with
    /// ENOTSUP without waiting for its other end.
    static int Open(const char* path, int flags, int permissions);

    /// Returns a descriptor of the directory `path` for OpenBeneath, which the caller closes with _close,
    /// or -1 with errno set. Symbolic links are followed. The descriptor refers to the directory even
    /// after the directory is renamed.
    static int OpenDirectory(const char* path);

    /// Opens like Open, with `path` relative to `directory`, and never a file outside that directory: an
    /// absolute path, or one that leaves the directory through ".." or a symbolic link, fails with EXDEV;
    /// a magic link of the kernel (those in /proc/self/fd) fails with ELOOP. Symbolic links that stay
    /// inside are followed. The kernel resolves and checks the path in one step, so that nobody can
    /// replace a directory by a link in between; a path that keeps changing fails with EAGAIN. On kernels
    /// that lack the call (Linux before 5.6) every call fails with ENOSYS.
    ///
    /// Hard links and mounts inside the directory count as inside.
    static int OpenBeneath(int directory, const char* path, int flags, int permissions);

    /// Holds the file of `descriptor`, which Open or OpenBeneath returned. Until Release, or until the
    /// descriptor is closed, neither function empties that file, in any process and under any of its
    /// names. Several descriptors may hold a file at once.
    ///
    /// A hold is an advisory shared lock: it does not restrict programs that open the file without locking
    /// it. On a file system without locks, or on a file that another program has locked exclusively, the
    /// call has no effect and reports no error.
    static void Hold(int descriptor);

    /// Ends a hold, even if a child process shares the descriptor. The descriptor stays open.
    static void Release(int descriptor);
};

#endif

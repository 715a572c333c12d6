#ifndef ZYLCRUNTIME_H
#define ZYLCRUNTIME_H

/// The C runtime's descriptor operations, for platforms whose own runtime lacks them under these names.

#ifdef _WIN32
#include <io.h>
#else

#include "ZYLPlatformExport.h"

// The names are those of the home platform's C runtime, reserved or not.
// NOLINTBEGIN(bugprone-reserved-identifier)

/// Reads up to `count` bytes (at most 2^31 - 1; more fails with EINVAL) into `buffer`, from where the last
/// read ended. Returns the number read, 0 at the end of the file, or -1 with errno set. Restarts when a
/// signal interrupts it.
ZYLPLATFORM_EXPORT int _read(int descriptor, void* buffer, unsigned count);

/// Writes `count` bytes (at most 2^31 - 1; more fails with EINVAL) from `buffer`. Returns `count` when all
/// are written. If an error stops it, it sets errno and returns the number written so far, or -1 if that
/// is 0. Restarts when a signal interrupts it.
ZYLPLATFORM_EXPORT int _write(int descriptor, const void* buffer, unsigned count);

/// Closes the descriptor, which is invalid afterwards whatever the result. Returns 0, or -1 with errno
/// set.
ZYLPLATFORM_EXPORT int _close(int descriptor);

// NOLINTEND(bugprone-reserved-identifier)

#endif

#endif

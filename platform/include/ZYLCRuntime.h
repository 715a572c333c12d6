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
/// read ended. Returns the number read, 0 at the end of the file, or -1 with errno set. An interrupted call
/// is repeated.
ZYLPLATFORM_EXPORT int _read(int descriptor, void* buffer, unsigned count);

/// Writes `count` bytes (at most 2^31 - 1; more fails with EINVAL) from `buffer`. Returns when all are
/// written, with `count`, or when an error stops it: with errno set, and the number written until then, or -1
/// if that is none. An interrupted call is repeated.
ZYLPLATFORM_EXPORT int _write(int descriptor, const void* buffer, unsigned count);

/// Closes the descriptor, which is gone afterwards whatever the result. Returns 0, or -1 with errno set.
ZYLPLATFORM_EXPORT int _close(int descriptor);

// NOLINTEND(bugprone-reserved-identifier)

#endif

#endif

#ifndef QORFATALERROR_H
#define QORFATALERROR_H

#include "ZYLPlatformExport.h"

/// Ends the process because one of its own checks failed: flushes standard output, writes one line to
/// standard error with a single write, so that the lines of several processes do not mix, flushes every
/// stream of the process and aborts. A stream that another thread has locked delays the abort by two
/// seconds at most. No destructors and no exit handlers run.
///
/// The line reads "Fatal error: <message> (<sourceFile>:<line>)". The details that are not null follow the
/// message, separated by spaces. `message` and `sourceFile` must not be null.
[[noreturn]] ZYLPLATFORM_EXPORT void QORFatalError(const char* message, const char* detail1,
                                                   const char* detail2, const char* detail3,
                                                   const char* sourceFile, int line);

#endif

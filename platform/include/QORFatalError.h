#ifndef QORFATALERROR_H
#define QORFATALERROR_H

#include "ZYLPlatformExport.h"

/// Ends the process because one of its own checks failed: flushes standard output, writes one line to
/// standard error with a single write, so that the lines of several processes do not mix, flushes every
/// stream of the process and aborts. A stream that another thread holds keeps it from the end for two seconds
/// at most. No destructors and no exit handlers run.
///
/// The line reads "Fatal error: <message> (<sourceFile>:<line>)". The three details, each null for none,
/// stand behind the message, separated by spaces. `message` and `sourceFile` are not null.
[[noreturn]] ZYLPLATFORM_EXPORT void QORFatalError(const char* message, const char* detail1,
                                                   const char* detail2, const char* detail3,
                                                   const char* sourceFile, int line);

#endif

#ifndef ZYLMSGASSERT_H
#define ZYLMSGASSERT_H

#include "QORFatalError.h"

/// The one form of the library's fatal checks: when `condition` is false the process ends through
/// QORFatalError with "AssertionFailed:" and the condition's own text, the constant `kSourceFile` of the
/// using source (its path within the source tree, without extension) and the line of the check. The text must
/// be formed here, in the outermost macro: one level further in, NULL would read as whatever the compiler
/// makes of it. A condition is therefore written exactly as its message is to read.
#define ZYL_ASSERT(condition)                                                                               \
    do {                                                                                                    \
        if (!(condition)) {                                                                                 \
            QORFatalError("AssertionFailed:" #condition, nullptr, nullptr, nullptr, kSourceFile, __LINE__); \
        }                                                                                                   \
    } while (false)

#endif

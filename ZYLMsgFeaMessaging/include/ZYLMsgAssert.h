#ifndef ZYLMSGASSERT_H
#define ZYLMSGASSERT_H

#include "QORFatalError.h"

/// The library's fatal check: if `condition` is false, the process ends through QORFatalError with
/// "AssertionFailed:" and the text of the condition, the constant `kSourceFile` of the calling source (its
/// path within the source tree, without extension) and the line of the check. Write the condition exactly
/// as its message must read. The outermost macro must stringify it: in a nested macro NULL would already
/// be expanded.
#define ZYL_ASSERT(condition)                                                                               \
    do {                                                                                                    \
        if (!(condition)) {                                                                                 \
            QORFatalError("AssertionFailed:" #condition, nullptr, nullptr, nullptr, kSourceFile, __LINE__); \
        }                                                                                                   \
    } while (false)

#endif

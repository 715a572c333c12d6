#ifndef MEM_COPY_H
#define MEM_COPY_H

#include <cstddef>
#include <cstring>

#include "ZYLPlatformExport.h"

/// mem_Copy for runs of kmem_LargeCopy bytes or more.
ZYLPLATFORM_EXPORT void mem_CopyLarge(void* to, const void* from, std::size_t size);

/// Below this many bytes the usual copy is fast wherever the runs lie.
constexpr std::size_t kmem_LargeCopy = 2048;

/// Copies `size` bytes between runs that do not overlap, like memcpy, and at about the same speed wherever
/// the two runs lie: the usual copy is up to 20 times slower on some processors when the target begins 1 to
/// 31 bytes further into its 4096-byte page than the source. For the bytes of messages, whose place in a
/// buffer depends on the names in front of them. Null is allowed on both sides when `size` is 0.
inline void mem_Copy(void* to, const void* from, std::size_t size) {
    if (size >= kmem_LargeCopy) {
        mem_CopyLarge(to, from, size);
    } else if (size > 0) {
        std::memcpy(to, from, size);
    }
}

#endif

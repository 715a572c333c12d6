#ifndef MEM_COPY_H
#define MEM_COPY_H

#include <cstddef>
#include <cstring>

#include "ZYLPlatformExport.h"

/// mem_Copy for runs of kmem_LargeCopy bytes or more.
ZYLPLATFORM_EXPORT void mem_CopyLarge(void* to, const void* from, std::size_t size);

/// Below this many bytes memcpy is fast at any alignment.
constexpr std::size_t kmem_LargeCopy = 2048;

/// memcpy without the penalty of 4K aliasing: on some processors memcpy is up to 20 times slower if the
/// target begins 1 to 31 bytes further into its 4096-byte page than the source. Use it for the bodies of
/// messages, whose position in a buffer depends on the names in front of them. The two runs must not
/// overlap; both pointers may be null when `size` is 0.
inline void mem_Copy(void* to, const void* from, std::size_t size) {
    if (size >= kmem_LargeCopy) {
        mem_CopyLarge(to, from, size);
    } else if (size > 0) {
        std::memcpy(to, from, size);
    }
}

#endif

#ifndef MEM_ALLOCATION_H
#define MEM_ALLOCATION_H

#include <cstddef>

#include "ZYLPlatformExport.h"

/// The allocation library: the one heap that applications and libraries share, so that a block allocated
/// by one of them can be freed by another.
///
/// Each of the three allocating functions returns a block of at least `size` bytes, which the caller owns
/// and frees with mem_Free. The block is aligned for every built-in type; a block of 65536 bytes or more
/// begins on a 4096-byte boundary, which keeps bulk copies between such blocks fast. A size of 0 yields a
/// distinct block, never null. They raise std::bad_alloc when memory is exhausted.
///
/// Safe on every thread.

/// For objects.
ZYLPLATFORM_EXPORT void* mem_OperatorNewThrow(std::size_t size);
/// For small objects that are made in great number, such as reference counts.
ZYLPLATFORM_EXPORT void* mem_OperatorNewTinyThrow(std::size_t size);
/// For raw byte buffers, in particular those that one module allocates and another frees.
ZYLPLATFORM_EXPORT void* mem_OperatorNewThrowBuiltin(std::size_t size);

/// Frees a block of any of the above; null is allowed and does nothing.
ZYLPLATFORM_EXPORT void mem_Free(void* block) noexcept;

#endif

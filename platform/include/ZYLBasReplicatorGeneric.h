#ifndef ZYLBASREPLICATORGENERIC_H
#define ZYLBASREPLICATORGENERIC_H

#include <cstddef>

/// How a ZYLBasTreeGeneric copies and destroys key/value pairs whose type it does not know.
struct ZYLBasReplicatorGeneric {
    std::size_t m_pairSize;
    /// Copy-constructs the pair at `from` into the `m_pairSize` raw bytes at `to`. If it raises, `to`
    /// stays raw.
    void (*m_copy)(void* to, const void* from);
    /// Destroys the pair and leaves raw bytes.
    void (*m_destroy)(void* pair) noexcept;
};

#endif

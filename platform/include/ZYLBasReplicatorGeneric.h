#ifndef ZYLBASREPLICATORGENERIC_H
#define ZYLBASREPLICATORGENERIC_H

#include <cstddef>

/// How a ZYLBasTreeGeneric copies and destroys key/value pairs whose type it does not know.
struct ZYLBasReplicatorGeneric {
    std::size_t m_pairSize;
    /// Copy-constructs the pair at `from` into the `m_pairSize` raw bytes at `to`; may raise, and then leaves
    /// `to` raw.
    void (*m_copy)(void* to, const void* from);
    /// Destroys the pair, leaving raw bytes.
    void (*m_destroy)(void* pair) noexcept;
};

#endif

#ifndef ZYLBASNODEOFFSETS_H
#define ZYLBASNODEOFFSETS_H

#include <cstddef>

/// The layout of an entry of a ZYLBasTreeGeneric, in bytes from the start of its key/value pair.
struct ZYLBasNodeOffsets {
    std::size_t m_key;
};

#endif

#ifndef BTREECOMPARE_H
#define BTREECOMPARE_H

#include "ZYLFoundationExport.h"
#include "cow_String.h"

/// The order of a tree map's keys. The sign is the reverse of strcmp's: positive when `a` orders before
/// `b`, negative when it orders after, 0 when they are equal.

/// By `operator<`; 1, -1 or 0.
template <class K>
int BtreeCompare(const K& a, const K& b) {
    if (a < b) {
        return 1;
    }
    return b < a ? -1 : 0;
}

/// By strnatcmp while the natural-order switch is on (it is read at every call); otherwise by unsigned
/// bytes, returning 1, -1 or 0. A string made without text equals the empty text.
ZYLFOUNDATION_EXPORT int BtreeCompare(const cow_String& a, const cow_String& b);

#endif

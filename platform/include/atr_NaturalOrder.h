#ifndef ATR_NATURALORDER_H
#define ATR_NATURALORDER_H

#include "ZYLPlatformExport.h"

/// The process-wide natural-order switch: nonzero when string keys order naturally (file9 before file10), 0,
/// the initial value, when they order by their bytes. A plain integer, for one thread at a time.
ZYLPLATFORM_EXPORT int atr_getNaturalOrder();
/// Sets the switch. Ordered containers whose keys went in under another setting are not re-ordered.
ZYLPLATFORM_EXPORT void atr_setNaturalOrder(int naturalOrder);

/// Compares two NUL-terminated texts, neither null, under natural ordering: -1 when `a` orders first, 1 when
/// `b` does, 0 only when the two are the same bytes.
///
/// A run of the digits 0 to 9 compares with another run by its numeric value, however long the runs are;
/// everything else compares as unsigned bytes, and a proper prefix orders first. Leading zeros decide last:
/// among texts that are equal otherwise, the one whose first differing run has fewer leading zeros orders
/// first (a1, a01, a001, a2).
ZYLPLATFORM_EXPORT int strnatcmp(const char* a, const char* b);

#endif

#include "BtreeCompare.h"

#include "atr_NaturalOrder.h"

int BtreeCompare(const cow_String& a, const cow_String& b) {
    return atr_getNaturalOrder() != 0 ? strnatcmp(b.CStr(), a.CStr()) : b.Compare(a);
}

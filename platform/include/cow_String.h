#ifndef COW_STRING_H
#define COW_STRING_H

#include "ZYLPlatformExport.h"
#include "atr_StringBase.h"

/// The string that keys the tree maps and names paths: atr_StringBase, without data of its own. Everything
/// said there (shared text, one thread at a time, no text equals the empty text) holds here.
class ZYLPLATFORM_EXPORT cow_String : public atr_StringBase {
  public:
    cow_String() = default;
    /// Copies `text`; null is the same as no text.
    cow_String(const char* text) : atr_StringBase(text) {}
};

#endif

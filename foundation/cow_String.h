#ifndef COW_STRING_H
#define COW_STRING_H

#include "ZYLFoundationExport.h"
#include "atr_StringBase.h"

/// The string that keys the tree maps and names paths: atr_StringBase, without data of its own. Everything
/// said there (shared text, one thread at a time, no text equals the empty text) holds here.
class ZYLFOUNDATION_EXPORT cow_String : public atr_StringBase {
  public:
    /// No text.
    cow_String();
    /// Copies `text`; null is the same as no text. Raises std::bad_alloc when memory is exhausted.
    cow_String(const char* text);
    /// Shares the other's text; allocates nothing.
    cow_String(const atr_StringBase& other);
    cow_String(const cow_String& other);
    cow_String& operator=(const cow_String& other);
    ~cow_String();

    /// The text, never null; valid until the last string that shares it is gone.
    const char* CStr() const;
};

#endif

#ifndef COW_STRING_H
#define COW_STRING_H

#include "ZYLFoundationExport.h"
#include "atr_StringBase.h"

/// The key of the tree maps, and the name of paths: an atr_StringBase without additional data, with the
/// same sharing and thread rules.
class ZYLFOUNDATION_EXPORT cow_String : public atr_StringBase {
  public:
    /// No text.
    cow_String();
    /// Copies `text`; null is the same as no text. Raises std::bad_alloc when memory is exhausted.
    cow_String(const char* text);
    /// Shares the text of `other`; allocates nothing.
    cow_String(const atr_StringBase& other);
    cow_String(const cow_String& other);
    cow_String& operator=(const cow_String& other);
    ~cow_String();

    /// The text, never null; valid until the last string that shares it is destroyed.
    const char* CStr() const;
};

#endif

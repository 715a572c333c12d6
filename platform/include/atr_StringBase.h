#ifndef ATR_STRINGBASE_H
#define ATR_STRINGBASE_H

#include <cstddef>
#include <cstdint>

#include "ZYLPlatformExport.h"

/// The shared representation of a string's text: a plain (non-atomic) count of the strings that share it,
/// followed in the same block of the allocation library by the NUL-terminated text. Made and freed by
/// atr_StringBase.
class ZYLPLATFORM_EXPORT atr_StringRep {
  public:
    void Increment() { ++m_count; }
    /// Returns true when no string shares the representation any more.
    bool Decrement() { return --m_count == 0; }

  private:
    std::int32_t m_count = 1;
};

/// An immutable NUL-terminated byte string whose text is shared between copies. A string made without text
/// has no representation and equals the empty text. Strings that share a text are used on one thread at a
/// time.
///
/// Copying and assigning never allocate. Comparisons go by unsigned bytes and never consult the
/// natural-order switch.
class ZYLPLATFORM_EXPORT atr_StringBase {
  public:
    /// No text, no representation.
    atr_StringBase() = default;
    /// Copies `text` into a representation of its own, the empty text too; null is the same as no text.
    /// Raises std::bad_alloc when memory is exhausted.
    atr_StringBase(const char* text);
    atr_StringBase(const atr_StringBase& other);
    atr_StringBase& operator=(const atr_StringBase& other);
    ~atr_StringBase() { Release(); }

    /// Copies the `size` bytes at `text`, none of which is NUL. They may be part of this string. Raises
    /// std::bad_alloc, with nothing changed, when memory is exhausted.
    void Assign(const char* text, std::size_t size);

    /// The text, never null; valid until the last string that shares it is destroyed.
    const char* CStr() const { return m_rep != nullptr ? m_text : ""; }

    /// -1 when this orders first, 1 when it orders after, 0 when the texts are equal.
    int Compare(const atr_StringBase& other) const;
    /// The same against a text that is not null.
    int Compare(const char* text) const;

  protected:
    /// Frees the representation, which no other string shares.
    void Delete();

  private:
    void Release() {
        if (m_rep != nullptr && m_rep->Decrement()) {
            Delete();
        }
    }

    const char* m_text = nullptr;
    atr_StringRep* m_rep = nullptr;
};

ZYLPLATFORM_EXPORT bool operator==(const atr_StringBase& a, const atr_StringBase& b);
/// `b` is not null.
ZYLPLATFORM_EXPORT bool operator==(const atr_StringBase& a, const char* b);
/// `b` is not null.
ZYLPLATFORM_EXPORT bool operator!=(const atr_StringBase& a, const char* b);
/// A proper prefix orders first.
ZYLPLATFORM_EXPORT bool operator<(const atr_StringBase& a, const atr_StringBase& b);

#endif

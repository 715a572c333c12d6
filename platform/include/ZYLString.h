#ifndef ZYLSTRING_H
#define ZYLSTRING_H

#include <cstddef>

#include "ZYLPlatformExport.h"
#include "atr_StringBase.h"

/// The system's string: NUL-terminated UTF-8 text of up to 2^31 - 1 bytes. Copies share the text (copy on
/// write) through a plain, non-atomic count, so a string and its copies are used on one thread at a time.
/// An empty string has no representation.
///
/// The bytes are not checked: text that is not well-formed UTF-8 is stored, compared and converted
/// unchanged.
class ZYLPLATFORM_EXPORT ZYLString {
  public:
    /// The empty string.
    ZYLString() = default;

    /// Copies `text` up to its terminating zero; null gives the empty string. Raises std::bad_alloc when
    /// memory is exhausted and std::length_error for a text of more than 2^31 - 1 bytes.
    static ZYLString BuildFromUTF8(const char* text);

    /// Copies the `size` bytes at `text`, or those before the first NUL among them. Raises as above, with
    /// nothing changed.
    void AssignUTF8(const char* text, std::size_t size);

    /// The text, never null; valid until this string is changed or destroyed.
    const char* GetUTF8() const { return m_text.CStr(); }
    /// Bytes, without the terminating NUL. Constant time.
    int GetLengthInByte() const { return m_lengthInByte; }
    /// Characters: a UTF-8 lead byte with all the continuation bytes it announces counts as one, and so
    /// does each byte that belongs to no such sequence. A character is at most four bytes.
    int GetLengthInChar() const;
    bool IsEmpty() const { return m_lengthInByte == 0; }

    /// Writes the text and its terminating NUL to `buffer`, which has room for GetLengthInByte() + 1
    /// bytes, and the number of bytes before the NUL to `*length`.
    void ConvertToUTF8(char* buffer, std::size_t* length) const;

    /// Appends the text of `other`, which may be this string. Raises as BuildFromUTF8, with nothing
    /// changed.
    void Append(const ZYLString& other);
    /// Converts a to z to upper case and leaves every other byte unchanged.
    void ASCIIToUpper();

  private:
    /// AssignUTF8 of bytes without a NUL.
    void Take(const char* text, std::size_t length);

    atr_StringBase m_text;
    int m_lengthInByte = 0;
};

/// These compare unsigned bytes; a proper prefix orders first. A `const char*` operand must not be null.
/// `!=` follows from `==`.
ZYLPLATFORM_EXPORT bool operator==(const ZYLString& a, const ZYLString& b);
ZYLPLATFORM_EXPORT bool operator==(const ZYLString& a, const char* b);
ZYLPLATFORM_EXPORT bool operator<(const ZYLString& a, const ZYLString& b);
ZYLPLATFORM_EXPORT bool operator<(const ZYLString& a, const char* b);
ZYLPLATFORM_EXPORT bool operator<(const char* a, const ZYLString& b);

#endif

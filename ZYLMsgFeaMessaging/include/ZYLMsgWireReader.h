#ifndef ZYLMSGWIREREADER_H
#define ZYLMSGWIREREADER_H

#include <cstddef>
#include <cstring>
#include <memory>

#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"
#include "mem_Allocation.h"

/// Reads wire integers and wire strings in sequence from a buffer, in place. The bytes are not trusted: an
/// item that exceeds the rest of the buffer, or whose length is negative, is the fatal error
///
///     AssertionFailed:<field>: <n> bytes needed, <m> bytes left
///
/// with the name that the caller passes for the item. The reader never reads outside the buffer. Bytes
/// left unread are no error. It owns nothing; use it as a local object on one thread.
class ZYLMSGMODULES_EXPORT ZYLMsgWireReader {
  public:
    /// Frees a copy made by CopyText.
    struct FreeText {
        void operator()(char* text) const { mem_Free(text); }
    };
    using Text = std::unique_ptr<char[], FreeText>;

    /// `bytes` may have any alignment, and may be null if `size` is not positive. A negative `size` counts
    /// as an empty buffer.
    ZYLMsgWireReader(const void* bytes, int size) : m_next(static_cast<const char*>(bytes)), m_left(size) {}

    /// A wire integer: 4 bytes, two's complement, least significant byte first.
    int ReadInt(const char* field) {
        int value = 0;
        std::memcpy(&value, ReadBytes(sizeof value, field), sizeof value);
        return value;
    }

    /// The next `length` bytes, in place.
    const char* ReadBytes(int length, const char* field) {
        if (length < 0 || length > m_left) {
            Refuse(length, field);
        }
        const char* const bytes = m_next;
        m_next += length;
        m_left -= length;
        return bytes;
    }

    /// A copy of the next `length` bytes with a NUL after them, in a block of the built-in allocation
    /// form.
    Text CopyText(int length, const char* field);

    /// Replaces `text` by the next `length` bytes, up to the first NUL among them.
    void ReadText(ZYLString& text, int length, const char* field) {
        const char* const bytes = ReadBytes(length, field);
        text.AssignUTF8(bytes, static_cast<std::size_t>(length));
    }

    /// ReadText of a wire string: its length in bytes as a wire integer, then its UTF-8 bytes.
    void ReadString(ZYLString& text, const char* field) {
        const int length = ReadInt(field);
        ReadText(text, length, field);
    }

    /// The unread rest, and its size in bytes.
    const char* Rest() const { return m_next; }
    int Left() const { return m_left; }

  private:
    [[noreturn]] void Refuse(int length, const char* field) const;

    const char* m_next;
    int m_left;
};

#endif

#ifndef ZYLMSGWIREREADER_H
#define ZYLMSGWIREREADER_H

#include <cstddef>
#include <cstring>
#include <memory>

#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"
#include "mem_Allocation.h"

/// Reads wire integers and wire strings one after another from a run of bytes of known size, in place. The
/// bytes are foreign and never trusted: an item that does not lie wholly within what is left, or whose length
/// is negative, is the fatal error
///
///     AssertionFailed:<field>: <n> bytes needed, <m> bytes left
///
/// with the name that the caller gives the item. Nothing outside the run is read. Bytes that nobody asks for
/// are no error. The reader refers to the bytes and owns nothing; it is a local object of one thread.
class ZYLMSGMODULES_EXPORT ZYLMsgWireReader {
  public:
    /// Frees a copy made by CopyText.
    struct FreeText {
        void operator()(char* text) const { mem_Free(text); }
    };
    using Text = std::unique_ptr<char[], FreeText>;

    /// `bytes` may have any alignment, and may be null when `size` is not positive. A negative `size` leaves
    /// nothing to be read.
    ZYLMsgWireReader(const void* bytes, int size) : m_next(static_cast<const char*>(bytes)), m_left(size) {}

    /// A wire integer: 4 bytes, two's complement, least significant byte first.
    int ReadInt(const char* field) {
        int value = 0;
        std::memcpy(&value, ReadBytes(sizeof value, field), sizeof value);
        return value;
    }

    /// The next `length` bytes where they stand.
    const char* ReadBytes(int length, const char* field) {
        if (length < 0 || length > m_left) {
            Refuse(length, field);
        }
        const char* const bytes = m_next;
        m_next += length;
        m_left -= length;
        return bytes;
    }

    /// A copy of the next `length` bytes with a NUL after them, in a block of the built-in allocation form.
    Text CopyText(int length, const char* field);

    /// Replaces `text` by the next `length` bytes, up to the first NUL among them; other copies of its old
    /// text keep it.
    void ReadText(ZYLString& text, int length, const char* field) {
        const char* const bytes = ReadBytes(length, field);
        text.AssignUTF8(bytes, static_cast<std::size_t>(length));
    }

    /// The same for a wire string: its length in bytes as a wire integer, then its UTF-8 bytes.
    void ReadString(ZYLString& text, const char* field) {
        const int length = ReadInt(field);
        ReadText(text, length, field);
    }

    /// What has not been read yet, and its size in bytes.
    const char* Rest() const { return m_next; }
    int Left() const { return m_left; }

  private:
    [[noreturn]] void Refuse(int length, const char* field) const;

    const char* m_next;
    int m_left;
};

#endif

#ifndef ZYLBASXMLDOCUMENT_H
#define ZYLBASXMLDOCUMENT_H

#include <cstddef>
#include <optional>

#include "ZYLBasXmlNode.h"
#include "ZYLPlatformExport.h"
#include "ZYLString.h"

/// Reads an XML document from memory and keeps its document element.
///
/// The text may come from anybody: whatever it holds, reading it ends with a status. A document is accepted
/// when it is well-formed and within the limits below; nothing outside its bytes is ever opened. Only the
/// document element is kept; what lies below it is checked and dropped, so a document takes no more memory
/// afterwards than its first element.
///
/// Encodings: a ZYLString is UTF-8, whatever an encoding declaration in it says. Bytes are UTF-8, UTF-16 of
/// either byte order, and ISO-8859-1 and US-ASCII where the XML declaration says so. The declaration is taken
/// at its word: one that contradicts the bytes, such as encoding="UTF-16" in a text of one-byte characters,
/// makes the document not well-formed.
///
/// Document type declarations are accepted, but not entity declarations, internal or external: a few hundred
/// bytes of them can stand for gigabytes or for files of this machine. A text that refers to an entity left
/// to an external declaration is refused too, since that is never read; in an attribute's value such a
/// reference stands for nothing.
///
/// A document is a value, used on one thread at a time.
class ZYLPLATFORM_EXPORT ZYLBasXmlDocument {
  public:
    /// What reading answers. The value of kOk is S_OK.
    enum Status : long {
        kOk = S_OK,
        kNotWellFormed = 1,  ///< also: an encoding that is unknown or contradicts the bytes
        kTooLarge = 2,       ///< more than kMaxSize bytes
        kTooDeep = 3,        ///< elements nested more than kMaxDepth deep
        kEntityRefused = 4,  ///< an entity is declared, or one declared elsewhere is referred to
        kOutOfMemory = 5,
        kNoDocument = 6  ///< GetDom only: no document has been read
    };

    /// The largest document, in bytes. The documents of this system are messages of some hundred bytes up to
    /// a few megabytes; reading takes a small multiple of the size in memory, which a sender shall not drive
    /// at will.
    static constexpr std::size_t kMaxSize = std::size_t{64} << 20;

    /// The deepest nesting; the document element is at depth 1. The parser keeps a record for each open
    /// element, many times larger than the three bytes a hostile document spends on it, and sensible
    /// documents have a few levels.
    static constexpr int kMaxDepth = 1000;

    /// Reads the document that is the text of `xml`, as UTF-8: its bytes up to the first NUL, which no UTF-8
    /// document holds. A former document is forgotten, also when this one is refused. @return S_OK, or
    /// another Status
    long ReadString(const ZYLString& xml);

    /// Reads the document that is the `size` bytes at `bytes`, which may be null when `size` is 0. The way to
    /// read UTF-16, whose bytes hold NULs. A former document is forgotten as above. @return S_OK, or another
    /// Status
    long ReadBytes(const void* bytes, std::size_t size);

    /// Copies the document element into `root`. @return S_OK; kNoDocument, with `root` unchanged, when the
    /// last reading failed or there was none
    long GetDom(ZYLBasXmlNode& root) const;

  private:
    long Read(const void* bytes, std::size_t size, const char* encoding);

    std::optional<ZYLBasXmlNode> m_root;
};

#endif

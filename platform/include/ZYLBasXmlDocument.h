#ifndef ZYLBASXMLDOCUMENT_H
#define ZYLBASXMLDOCUMENT_H

#include <cstddef>
#include <optional>

#include "ZYLBasXmlNode.h"
#include "ZYLPlatformExport.h"
#include "ZYLString.h"

/// Reads an XML document from memory and keeps its document element.
///
/// The text is not trusted: whatever it contains, reading it ends with a status. A document is accepted if
/// it is well-formed and within the limits below; no file or network resource it names is ever opened.
/// Elements below the document element are checked and dropped, so a document keeps no more memory than
/// that one element needs.
///
/// Encodings: a ZYLString is UTF-8, whatever its encoding declaration says. Bytes are UTF-8, UTF-16 of
/// either byte order, or, if the XML declaration says so, ISO-8859-1 or US-ASCII. A declaration that
/// contradicts the bytes, such as encoding="UTF-16" in a text of one-byte characters, makes the document
/// not well-formed.
///
/// Document type declarations are accepted, but entity declarations, internal or external, are refused: a
/// few hundred bytes of them can expand to gigabytes or include files of this machine. A text that refers
/// to an entity of the external subset is refused too, because the external subset is never read; in an
/// attribute value such a reference expands to nothing.
///
/// A document is a value, used on one thread at a time.
class ZYLPLATFORM_EXPORT ZYLBasXmlDocument {
  public:
    /// The result of reading.
    enum Status : long {
        kOk = S_OK,
        kNotWellFormed = 1,  ///< also: an encoding that is unknown or contradicts the bytes
        kTooLarge = 2,       ///< more than kMaxSize bytes
        kTooDeep = 3,        ///< elements nested more than kMaxDepth deep
        kEntityRefused = 4,  ///< the document declares an entity, or refers to one of the external subset
        kOutOfMemory = 5,
        kNoDocument = 6  ///< GetDom only: no document has been read
    };

    /// The largest document, in bytes. The documents of this system have some hundred bytes up to a few
    /// megabytes. Parsing needs a small multiple of the size in memory, which this limit keeps a sender
    /// from driving up.
    static constexpr std::size_t kMaxSize = std::size_t{64} << 20;

    /// The deepest nesting; the document element is at depth 1. Sensible documents have a few levels,
    /// while a hostile one makes the parser allocate a record for every three bytes.
    static constexpr int kMaxDepth = 1000;

    /// Parses the text of `xml` as UTF-8. An earlier document is discarded even if this one is refused.
    /// @return S_OK, or another Status
    long ReadString(const ZYLString& xml);

    /// Parses the `size` bytes at `bytes`, which may be null when `size` is 0. This is the way to read
    /// UTF-16, whose bytes include NULs. An earlier document is discarded even if this one is refused.
    /// @return S_OK, or another Status
    long ReadBytes(const void* bytes, std::size_t size);

    /// Copies the document element into `root`.
    /// @return S_OK; kNoDocument, with `root` unchanged, if nothing was read or the last reading failed
    long GetDom(ZYLBasXmlNode& root) const;

  private:
    long Read(const void* bytes, std::size_t size, const char* encoding);

    std::optional<ZYLBasXmlNode> m_root;
};

#endif

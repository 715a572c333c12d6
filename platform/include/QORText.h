#ifndef QORTEXT_H
#define QORTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "ZYLPlatformExport.h"

/// Sanitises texts from callers and peers. Static members only.
class ZYLPLATFORM_EXPORT QORText {
  public:
    /// Long enough for any name that a person chose, short enough for one line.
    static constexpr std::size_t kQuotedLength = 120;

    /// `text` itself, or the empty text for null.
    static const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

    /// Makes `text` safe to print on one line of any terminal: UTF-8 is kept, a backslash becomes \\, and
    /// each byte of a control character or of malformed UTF-8 becomes \xNN. Bytes after the first `limit`
    /// are replaced by "...". Raises std::bad_alloc.
    static std::string Printable(std::string_view text, std::size_t limit = kQuotedLength);

    /// Printable text in single quotes.
    static std::string Quoted(std::string_view text, std::size_t limit = kQuotedLength);
};

#endif

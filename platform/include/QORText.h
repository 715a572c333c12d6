#ifndef QORTEXT_H
#define QORTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "ZYLPlatformExport.h"

/// What is done to texts that come from elsewhere: from a caller, from a peer. Static members only.
class ZYLPLATFORM_EXPORT QORText {
  public:
    /// Long enough for any name a person gave, short enough for one line.
    static constexpr std::size_t kQuotedLength = 120;

    /// `text` itself; null counts as the empty text.
    static const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

    /// `text` safe to print on one line, whatever the terminal: UTF-8 as it is, a backslash as \\, and the
    /// bytes of control characters and of what is no UTF-8 as \xNN. "..." stands in place of what comes after
    /// the first `limit` bytes. Raises std::bad_alloc.
    static std::string Printable(std::string_view text, std::size_t limit = kQuotedLength);

    /// The same between single quotes.
    static std::string Quoted(std::string_view text, std::size_t limit = kQuotedLength);
};

#endif

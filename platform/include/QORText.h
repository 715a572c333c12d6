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

    /// `text` between single quotes, safe to print on one line: control characters as \xNN for each of their
    /// bytes, and "..." in place of what comes after the first kQuotedLength bytes. Raises std::bad_alloc.
    static std::string Quoted(std::string_view text);
};

#endif

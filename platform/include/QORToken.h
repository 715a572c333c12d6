#ifndef QORTOKEN_H
#define QORTOKEN_H

#include <cstddef>
#include <string>

#include "QORUnicodeString.h"
#include "ZYLPlatformExport.h"

/// Cuts a text into pieces, one a call, each up to a separator named in that call. It owns a copy of the
/// text, so it may outlive the string it was made from. Used on one thread.
class ZYLPLATFORM_EXPORT QORToken {
  public:
    /// A tokenizer at the start of `text`. There is one way of cutting, so `mode` is not looked at; callers
    /// pass 0.
    QORToken(const QORUnicodeString& text, unsigned char mode);

    /// Returns the piece from the current position up to the next `separator`, or up to the end when there is
    /// none, and moves past that separator. The piece is empty when the text is used up, and also where the
    /// text goes on with a separator: at its very start, or when two stand in a row. An empty separator
    /// occurs nowhere.
    ///
    /// The second argument is not looked at; callers pass null.
    QORUnicodeString GetNextToken(const QORUnicodeString& separator, unsigned char* unused);

  private:
    std::string m_text;
    std::size_t m_position = 0;
};

#endif

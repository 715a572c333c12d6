#ifndef QORTOKEN_H
#define QORTOKEN_H

#include <cstddef>
#include <string>

#include "QORUnicodeString.h"
#include "ZYLPlatformExport.h"

/// Splits a text into tokens, one per call; each call names the separator that ends its token. It owns a
/// copy of the text, so it may outlive the string it was made from. Used on one thread.
class ZYLPLATFORM_EXPORT QORToken {
  public:
    /// A tokenizer at the start of `text`. `mode` is ignored; callers pass 0.
    QORToken(const QORUnicodeString& text, unsigned char mode);

    /// Returns the token from the current position up to the next `separator`, or up to the end of the
    /// text if there is none, and moves past that separator. The token is empty at the end of the text,
    /// and also before a separator at the current position. An empty separator never matches.
    ///
    /// The second argument is ignored; callers pass null.
    QORUnicodeString GetNextToken(const QORUnicodeString& separator, unsigned char* unused);

  private:
    std::string m_text;
    std::size_t m_position = 0;
};

#endif

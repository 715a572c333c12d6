#ifndef QORUNICODESTRING_H
#define QORUNICODESTRING_H

#include "ZYLPlatformExport.h"
#include "ZYLString.h"

/// The system toolkit's string: UTF-8 text. A value; copies share their text by a plain count, so a string
/// and its copies are used on one thread.
class ZYLPLATFORM_EXPORT QORUnicodeString {
  public:
    /// Copies the NUL-terminated UTF-8 `text`; null gives the empty string.
    QORUnicodeString(const char* text);  // not explicit: callers pass plain texts

    /// The number of characters, not of bytes; 0 for the empty string.
    int GetLengthInChar() const;

    /// The NUL-terminated text, valid while this string lives; never null.
    const char* ConvertToChar() const;

  private:
    ZYLString m_text;
};

#endif

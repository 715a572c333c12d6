#include "QORUnicodeString.h"

QORUnicodeString::QORUnicodeString(const char* text) : m_text(ZYLString::BuildFromUTF8(text)) {}

int QORUnicodeString::GetLengthInChar() const {
    return m_text.GetLengthInChar();
}

const char* QORUnicodeString::ConvertToChar() const {
    return m_text.GetUTF8();
}

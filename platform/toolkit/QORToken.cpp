#include "QORToken.h"

#include <string_view>

QORToken::QORToken(const QORUnicodeString& text, unsigned char /*mode*/) : m_text(text.ConvertToChar()) {}

QORUnicodeString QORToken::GetNextToken(const QORUnicodeString& separator, unsigned char* /*unused*/) {
    const std::string_view mark = separator.ConvertToChar();
    const std::size_t start = m_position;
    const std::size_t end = mark.empty() ? std::string::npos : m_text.find(mark, start);
    m_position = end == std::string::npos ? m_text.size() : end + mark.size();
    return m_text.substr(start, end - start).c_str();
}

#include "ZYLString.h"

#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

bool IsContinuationByte(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

/// The number of continuation bytes that a lead byte announces; 0 for any other byte.
int AnnouncedBytes(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0xC0 || byte > 0xF7) {
        return 0;
    }
    return byte < 0xE0 ? 1 : (byte < 0xF0 ? 2 : 3);
}

/// The end of the character at `text`. The terminating NUL is no continuation byte, so the loop stops
/// there.
const char* NextCharacter(const char* text) {
    const char* end = text + 1;
    for (int left = AnnouncedBytes(*text); left > 0; --left, ++end) {
        if (!IsContinuationByte(*end)) {
            return text + 1;
        }
    }
    return end;
}

}  // namespace

ZYLString ZYLString::BuildFromUTF8(const char* text) {
    ZYLString built;
    if (text != nullptr) {
        built.Take(text, std::strlen(text));
    }
    return built;
}

void ZYLString::AssignUTF8(const char* text, std::size_t size) {
    const void* const end = size > 0 ? std::memchr(text, '\0', size) : nullptr;
    Take(text, end != nullptr ? static_cast<std::size_t>(static_cast<const char*>(end) - text) : size);
}

void ZYLString::Take(const char* text, std::size_t length) {
    if (length > INT_MAX) {
        throw std::length_error("a ZYLString holds at most 2^31 - 1 bytes");
    }
    if (length > 0) {
        m_text.Assign(text, length);
    } else {
        m_text = atr_StringBase();
    }
    m_lengthInByte = static_cast<int>(length);
}

int ZYLString::GetLengthInChar() const {
    int characters = 0;
    for (const char* at = GetUTF8(); *at != '\0'; at = NextCharacter(at)) {
        ++characters;
    }
    return characters;
}

void ZYLString::ConvertToUTF8(char* buffer, std::size_t* length) const {
    *length = static_cast<std::size_t>(m_lengthInByte);
    std::memcpy(buffer, GetUTF8(), *length + 1);
}

void ZYLString::Append(const ZYLString& other) {
    const std::string joined = std::string(GetUTF8()) + other.GetUTF8();
    *this = BuildFromUTF8(joined.c_str());
}

void ZYLString::ASCIIToUpper() {
    std::string upper = GetUTF8();
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    *this = BuildFromUTF8(upper.c_str());
}

bool operator==(const ZYLString& a, const ZYLString& b) {
    return a.GetLengthInByte() == b.GetLengthInByte() && a == b.GetUTF8();
}

bool operator==(const ZYLString& a, const char* b) {
    return std::strcmp(a.GetUTF8(), b) == 0;
}

bool operator<(const ZYLString& a, const ZYLString& b) {
    return a < b.GetUTF8();
}

bool operator<(const ZYLString& a, const char* b) {
    return std::strcmp(a.GetUTF8(), b) < 0;
}

bool operator<(const char* a, const ZYLString& b) {
    return std::strcmp(a, b.GetUTF8()) < 0;
}

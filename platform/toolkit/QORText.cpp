#include "QORText.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

bool IsWithin(unsigned byte, unsigned first, unsigned last) {
    return first <= byte && byte <= last;
}

/// The length in bytes of the printable UTF-8 character at the start of `text`, which is not empty; 0 if
/// the first byte must be escaped.
std::size_t PrintableLength(std::string_view text) {
    const auto at = [text](std::size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
    };
    const unsigned lead = at(0);
    if (lead < 0x80) {
        return IsWithin(lead, 0x20, 0x7e) && lead != '\\' ? 1 : 0;
    }
    if (!IsWithin(lead, 0xc2, 0xf4)) {
        return 0;
    }
    // The range of the second byte excludes U+0080 to U+009F (terminal control codes), overlong forms,
    // surrogates and code points above U+10FFFF.
    const unsigned first = lead == 0xc2 || lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
    const unsigned last = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
    const std::size_t size = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    for (std::size_t index = 2; index < size; ++index) {
        if (!IsWithin(at(index), 0x80, 0xbf)) {
            return 0;
        }
    }
    return IsWithin(at(1), first, last) ? size : 0;
}

std::string Escaped(char character) {
    return character == '\\' ? "\\\\" : fmt::format("\\x{:02x}", static_cast<unsigned char>(character));
}

}  // namespace

std::string QORText::Printable(std::string_view text, std::size_t limit) {
    std::string result;
    for (std::size_t at = 0; at < std::min(text.size(), limit);) {
        const std::size_t size = PrintableLength(text.substr(at));
        result += size > 0 ? std::string(text.substr(at, size)) : Escaped(text[at]);
        at += std::max<std::size_t>(size, 1);
    }
    if (text.size() > limit) {
        result += "...";
    }
    return result;
}

std::string QORText::Quoted(std::string_view text, std::size_t limit) {
    return fmt::format("'{}'", Printable(text, limit));
}

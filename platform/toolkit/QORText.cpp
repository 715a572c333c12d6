#include "QORText.h"

#include <array>
#include <cstdio>

namespace {

/// The bytes of the control character at the start of `text`; 0 for any other character. Those above ASCII
/// are U+0080 to U+009F, which terminals obey too.
std::size_t ControlCharacter(std::string_view text) {
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    if (byte(0) < 0x20 || byte(0) == 0x7f) {
        return 1;
    }
    return byte(0) == 0xc2 && text.size() > 1 && byte(1) >= 0x80 && byte(1) < 0xa0 ? 2 : 0;
}

}  // namespace

std::string QORText::Quoted(std::string_view text) {
    std::string result = "'";
    std::size_t escaped = 0;
    for (std::string_view rest = text.substr(0, kQuotedLength); !rest.empty(); rest.remove_prefix(1)) {
        if (escaped == 0) {
            escaped = ControlCharacter(rest);
        }
        if (escaped > 0) {
            --escaped;
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned char>(rest.front()));
            result += escape.data();
        } else {
            result += rest.front();
        }
    }
    return result + (text.size() > kQuotedLength ? "...'" : "'");
}

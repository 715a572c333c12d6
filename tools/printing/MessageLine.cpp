#include "MessageLine.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace {

bool IsWithin(unsigned char byte, unsigned first, unsigned last) {
    return first <= byte && byte <= last;
}

/// The number of bytes of the UTF-8 character at the start of `text`, which is not empty; 0 when there is
/// none, or one that a terminal would obey.
std::size_t ShownCharacter(std::string_view text) {
    const auto at = [&](std::size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : static_cast<unsigned char>(0);
    };
    const unsigned char lead = at(0);
    if (lead < 0x80) {
        return IsWithin(lead, 0x20, 0x7e) && lead != '\\' ? 1 : 0;
    }
    if (!IsWithin(lead, 0xc2, 0xf4)) {
        return 0;
    }
    // The second byte's range keeps out C1 control characters, overlong forms, surrogates and what lies
    // beyond the last character.
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

std::string Escape(char character) {
    switch (character) {
        case '\n':
            return "\\n";
        case '\t':
            return "\\t";
        case '\\':
            return "\\\\";
        default:
            std::array<char, 5> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned char>(character));
            return escape.data();
    }
}

std::string Escaped(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < std::min(text.size(), kShownBytes);) {
        const std::size_t size = ShownCharacter(text.substr(at));
        result += size > 0 ? std::string(text.substr(at, size)) : Escape(text[at]);
        at += std::max<std::size_t>(size, 1);
    }
    return result;
}

const char* CutMark(std::string_view text) {
    return text.size() > kShownBytes ? "..." : "";
}

std::string Now() {
    using std::chrono::system_clock;
    const system_clock::time_point now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    const auto part = now - std::chrono::floor<std::chrono::seconds>(now);
    std::array<char, 16> clock{};
    std::strftime(clock.data(), clock.size(), "%H:%M:%S",
                  std::localtime(&seconds));  // NOLINT(concurrency-mt-unsafe): the programs have one thread
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "%s.%03d", clock.data(),
                  static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(part).count()));
    return text.data();
}

}  // namespace

std::string Printable(std::string_view text) {
    return Escaped(text) + CutMark(text);
}

std::string Quoted(std::string_view text) {
    return '"' + Escaped(text) + '"' + CutMark(text);
}

std::string MessageLine(std::string_view sender, std::string_view type, std::size_t size,
                        const std::string& content) {
    return Now() + ' ' + Printable(sender) + ' ' + Printable(type) + " (" + std::to_string(size) +
           (size == 1 ? " byte): " : " bytes): ") + content;
}

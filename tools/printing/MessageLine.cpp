#include "MessageLine.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "QORText.h"

namespace {

std::string Now() {
    using std::chrono::system_clock;
    const system_clock::time_point now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    const auto part = now - std::chrono::floor<std::chrono::seconds>(now);
    std::array<char, 16> clock{};
    std::strftime(clock.data(), clock.size(), "%H:%M:%S", std::localtime(&seconds));
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "%s.%03d", clock.data(),
                  static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(part).count()));
    return text.data();
}

}  // namespace

std::string Content(std::string_view text) {
    return QORText::Quoted(text, kShownBytes);
}

std::string MessageLine(std::string_view sender, std::string_view type, std::size_t size,
                        const std::string& content) {
    return Now() + ' ' + QORText::Printable(sender) + ' ' + QORText::Printable(type) + " (" +
           std::to_string(size) + (size == 1 ? " byte): " : " bytes): ") + content;
}

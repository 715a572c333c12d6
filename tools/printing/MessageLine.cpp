#include "MessageLine.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <ctime>

#include "QORText.h"

namespace {

std::string Now() {
    using std::chrono::system_clock;
    const system_clock::time_point now = system_clock::now();
    const auto part = now - std::chrono::floor<std::chrono::seconds>(now);
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(part).count();
    return fmt::format("{:%H:%M:%S}.{:03}", fmt::localtime(system_clock::to_time_t(now)), milliseconds);
}

}  // namespace

std::string Content(std::string_view text) {
    return QORText::Quoted(text, kShownBytes);
}

std::string MessageLine(std::string_view sender, std::string_view type, std::size_t size,
                        const std::string& content) {
    return fmt::format("{} {} {} ({} byte{}): {}", Now(), QORText::Printable(sender),
                       QORText::Printable(type), size, size == 1 ? "" : "s", content);
}

#include "Environment.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdlib>

#include "Diagnostics.h"

namespace zyl::backbone::environment {

namespace {

constexpr const char* kSourceFile = "backbone/transport/Environment";

/// A year: beyond any wait that is meant, and far from overflow in milliseconds.
constexpr double kLongestTimeout = 365.0 * 24 * 3600;

}  // namespace

std::string Text(const char* variable) {
    const char* value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): the backbone has one thread
    return value != nullptr ? value : "";
}

std::chrono::milliseconds Seconds(const char* variable, std::chrono::milliseconds standard) {
    const std::string text = Text(variable);
    if (text.empty()) {
        return standard;
    }
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool valid = error == std::errc() && end == text.data() + text.size() && seconds >= 0 &&
                       seconds <= kLongestTimeout;
    if (!valid) {
        Fatal(fmt::format("{} is {}; it must be a number of seconds from 0 to 31536000", variable,
                          Quoted(text)),
              kSourceFile, __LINE__);
    }
    return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

}  // namespace zyl::backbone::environment

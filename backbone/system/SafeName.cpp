#include "system/SafeName.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace zyl::backbone::system {

namespace {

/// Leaves the address of a socket room for the directory's path.
constexpr std::size_t kLongestSafeName = 64;
constexpr std::size_t kHashSize = 16;
constexpr std::size_t kHashAt = kLongestSafeName - kHashSize;

bool StandsForItself(char character) {
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'z') ||
           character == '-';
}

bool IsHashed(const std::string& safe) {
    return safe.size() == kLongestSafeName && safe[kHashAt - 1] == '~' &&
           safe.find_first_not_of("0123456789abcdef", kHashAt) == std::string::npos;
}

/// The name that became `safe`, if any did, and it was not hashed.
std::string Decoded(const std::string& safe) {
    std::string name;
    for (std::size_t at = 0; at < safe.size(); ++at) {
        unsigned char byte = static_cast<unsigned char>(safe[at]);
        if (byte == '%') {
            std::from_chars(safe.data() + at + 1, safe.data() + std::min(at + 3, safe.size()), byte, 16);
            at += 2;
        }
        name += static_cast<char>(byte);
    }
    return name;
}

}  // namespace

std::string HashText(std::string_view text) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char character : text) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 1099511628211U;
    }
    return fmt::format("{:016x}", hash);
}

std::string SafeName(const std::string& name) {
    std::string safe;
    for (const char character : name) {
        if (StandsForItself(character)) {
            safe += character;
        } else {
            fmt::format_to(std::back_inserter(safe), "%{:02X}", static_cast<unsigned char>(character));
        }
    }
    return safe.size() <= kLongestSafeName
               ? safe
               : fmt::format("{}~{}", std::string_view(safe).substr(0, kHashAt - 1), HashText(name));
}

bool IsSafeName(const std::string& safe) {
    return IsHashed(safe) || SafeName(Decoded(safe)) == safe;
}

}  // namespace zyl::backbone::system

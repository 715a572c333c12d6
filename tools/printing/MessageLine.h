#ifndef ZYL_TOOLS_MESSAGELINE_H
#define ZYL_TOOLS_MESSAGELINE_H

#include <cstddef>
#include <string>
#include <string_view>

/// The programs of this project show each message as one line, whatever its bytes.

/// The longest text shown; sentences and documents for people are shorter.
inline constexpr std::size_t kShownBytes = 400;

/// A text in quotes, safe to print and truncated to kShownBytes.
std::string Content(std::string_view text);

/// "<time> <sender> <type> (<size> bytes): <content>", with the local time in milliseconds. Escapes sender
/// and type; `content` must be printable.
std::string MessageLine(std::string_view sender, std::string_view type, std::size_t size,
                        const std::string& content);

#endif

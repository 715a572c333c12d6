#ifndef ZYL_TOOLS_MESSAGELINE_H
#define ZYL_TOOLS_MESSAGELINE_H

#include <cstddef>
#include <string>
#include <string_view>

/// How the programs of this project show a message: one line each, whatever the bytes in it are.

/// So much of a text is shown: any sentence, and the documents that people read, are shorter.
inline constexpr std::size_t kShownBytes = 400;

/// A message's text between quotes, safe to print. It is cut where a screen would be flooded.
std::string Content(std::string_view text);

/// "<time> <sender> <type> (<size> bytes): <content>". The time is now, local, to the millisecond; sender and
/// type are made printable, the content is so already.
std::string MessageLine(std::string_view sender, std::string_view type, std::size_t size,
                        const std::string& content);

#endif

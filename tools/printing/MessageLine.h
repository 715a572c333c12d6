#ifndef ZYL_TOOLS_MESSAGELINE_H
#define ZYL_TOOLS_MESSAGELINE_H

#include <cstddef>
#include <string>
#include <string_view>

/// How the programs of this project show a message: one line each, whatever the bytes in it are.

/// Enough for any sentence, and for the documents that are read by people; a screen is not flooded.
constexpr std::size_t kShownBytes = 400;

/// `text` as it can stand in a line: UTF-8 as it is; a backslash, control characters and what is no UTF-8
/// escaped, so that no byte reaches the terminal as an order. Cut after kShownBytes, which "..." then says.
std::string Printable(std::string_view text);

/// The same between quotes.
std::string Quoted(std::string_view text);

/// "<time> <sender> <type> (<size> bytes): <content>". The time is now, local, to the millisecond; sender and
/// type are made printable, the content is so already.
std::string MessageLine(std::string_view sender, std::string_view type, std::size_t size,
                        const std::string& content);

#endif

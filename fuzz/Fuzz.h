#ifndef ZYL_FUZZ_FUZZ_H
#define ZYL_FUZZ_FUZZ_H

#include <string_view>

/// What the programs of this folder have in common. Each feeds foreign bytes to one reader. A fatal error is
/// the ordinary end of an input, for here it is an exception; anything else that stops the program is a find.

/// Thrown by this program's QORFatalError, which takes the place of the library's.
struct FatalError {};

/// One input. Defined by each program.
void RunInput(std::string_view input);

/// Ends the program with `text` where the reader did not keep a promise.
void Require(bool kept, const char* text);

#endif

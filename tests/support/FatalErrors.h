#ifndef ZYL_TESTS_FATALERRORS_H
#define ZYL_TESTS_FATALERRORS_H

#include <functional>
#include <string>

/// Runs `action` until a fatal error ends it. Gives what was written on standard error, and then the error as
/// "<message> (<source file>)"; FatalErrors.cpp, linked into the test program, makes an exception of it.
std::string FatalErrorOf(const std::function<void()>& action);

/// What FatalErrorOf gives for a check of the messaging library: `source` is the rest of the file's name after
/// "ZYLMsgFeaMessaging/ZYLMsg".
std::string Failed(const std::string& check, const std::string& source);

#endif

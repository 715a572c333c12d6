#include "FatalErrors.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "QORFatalError.h"

namespace {

struct FatalError {
    std::string text;
};

}  // namespace

void QORFatalError(const char* message, const char*, const char*, const char*, const char* source, int) {
    throw FatalError{fmt::format("{} ({})", message, source)};
}

std::string FatalErrorOf(const std::function<void()>& action) {
    testing::internal::CaptureStderr();
    std::string error;
    try {
        action();
    } catch (const FatalError& thrown) {
        error = thrown.text;
    }
    return testing::internal::GetCapturedStderr() + error;
}

std::string Failed(const std::string& check, const std::string& source) {
    return fmt::format("AssertionFailed:{} (ZYLMsgFeaMessaging/ZYLMsg{})", check, source);
}

#include "ZYLMsgFileTransferTexts.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "QORText.h"

namespace {

// Enough for a path and a sentence.
constexpr size_t kLongestText = 5000;

std::string Printable(const char* text) {
    return QORText::Printable(QORText::OrEmpty(text), kLongestText);
}

// Printable for a report of the other side, in which the names are already escaped: their backslashes are
// not escaped again.
std::string Reported(const char* text) {
    std::string reported = Printable(text);
    for (size_t at = 0; (at = reported.find("\\\\", at)) != std::string::npos; ++at) {
        reported.erase(at, 1);
    }
    return reported;
}

const char* Reason(int error) {
    switch (error) {
        case EBUSY:
            return "it is being sent, or locked by another program, and keeps its bytes";
        case ENOLCK:
            return "another program has locked it, and it keeps its bytes";
        case EXDEV:
            return "it is not in an allowed directory";
        default:
            return strerror(error);
    }
}

}  // namespace

namespace ZYLMsgFileTransferTexts {

std::string NotThere(const char* application) {
    return fmt::format("application {} was not there", Printable(application));
}

std::string Lost(const char* application) {
    return fmt::format("application {} was lost", Printable(application));
}

std::string EndedByAnother(const char* application, const char* event) {
    return fmt::format("the wait ended with another transfer, before application {} had {}",
                       Printable(application), event);
}

std::string CannotOpen(const std::string& attempt, const char* file, const char* circumstance, int error) {
    return fmt::format("{} file {}{}: {}", attempt, Printable(file), circumstance, Reason(error));
}

std::string CutShort(const char* act, const char* file, int error) {
    return fmt::format("cannot {} all of file {}: {}", act, Printable(file), strerror(error));
}

std::string Report(const char* application, const char* failure) {
    return fmt::format("{} reports: {}", Printable(application), Reported(failure));
}

std::string NotWhole(const char* file, const char* application, const char* failure) {
    return fmt::format("file {} is not whole: {}", Printable(file), Report(application, failure));
}

std::string Incomplete(const char* file, const std::string& cause, long long bytes) {
    return fmt::format("file {} is incomplete: {} after {} bytes were written", Printable(file), cause,
                       bytes);
}

std::string NoOpenFile(const char* what, const char* source, const char* open) {
    return fmt::format(
        "a {} came from '{}', but no file from it is open here (open: {}). The sender's identifier "
        "(ZYLMsgBBCallbackManager::SetMessageID) must be the application name under which it sends the file; "
        "or one of the two was started again in the middle of it.",
        what, Printable(source), Printable(open));
}

std::string SecondFile(const char* source, const char* newFile, const char* openFile) {
    return fmt::format(
        "a second file from '{}' begins, {}, while its file {} is still open here. Either a ReceiveFile from "
        "it returned before its file had ended, because another transfer ended the wait (its outcome says "
        "so): let that file end before asking for the next. Or it was lost in the middle of the file and is "
        "back: a disconnect handler must call ApplicationLost.",
        Printable(source), Printable(newFile), Printable(openFile));
}

}  // namespace ZYLMsgFileTransferTexts

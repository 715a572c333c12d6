#include "ZYLMsgFileTransferTexts.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "QORText.h"

namespace {

// As much of a text as holds a path and a sentence.
constexpr size_t kLongestText = 5000;

std::string Printable(const char* text) {
    return QORText::Printable(QORText::OrEmpty(text), kLongestText);
}

// The same of what the other side reports, where the names are escaped already: their backslashes stay as
// they are.
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
    return "application " + Printable(application) + " was not there";
}

std::string Lost(const char* application) {
    return "application " + Printable(application) + " was lost";
}

std::string EndedByAnother(const char* application, const char* event) {
    return "the wait ended with another transfer, before application " + Printable(application) + " had " +
           event;
}

std::string CannotOpen(const std::string& attempt, const char* file, const char* circumstance, int error) {
    return attempt + " file " + Printable(file) + circumstance + ": " + Reason(error);
}

std::string CutShort(const char* act, const char* file, int error) {
    return std::string("cannot ") + act + " all of file " + Printable(file) + ": " + strerror(error);
}

std::string Report(const char* application, const char* failure) {
    return Printable(application) + " reports: " + Reported(failure);
}

std::string NotWhole(const char* file, const char* application, const char* failure) {
    return "file " + Printable(file) + " is not whole: " + Report(application, failure);
}

std::string Incomplete(const char* file, const std::string& cause, long long bytes) {
    return "file " + Printable(file) + " is incomplete: " + cause + " after " + std::to_string(bytes) +
           " bytes were written";
}

std::string NoOpenFile(const char* what, const char* source, const char* open) {
    return std::string("a ") + what + " came from '" + Printable(source) +
           "', but no file from it is open here (open: " + Printable(open) +
           "). The sender's identifier (ZYLMsgBBCallbackManager::SetMessageID) must be the application name "
           "under which it sends the file; or one of the two was started again in the middle of it.";
}

std::string SecondFile(const char* source, const char* newFile, const char* openFile) {
    return "a second file from '" + Printable(source) + "' begins, " + Printable(newFile) +
           ", while its file " + Printable(openFile) +
           " is still open here. Either a ReceiveFile from it returned before its file had ended, because "
           "another transfer ended the wait (its outcome says so): let that file end before asking for the "
           "next. Or it was lost in the middle of the file and is back: a disconnect handler must call "
           "ApplicationLost.";
}

}  // namespace ZYLMsgFileTransferTexts

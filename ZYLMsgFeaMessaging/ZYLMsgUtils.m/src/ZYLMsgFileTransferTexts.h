#ifndef ZYLMSGFILETRANSFERTEXTS_H
#define ZYLMSGFILETRANSFERTEXTS_H

#include <string>

/// What the file-transfer engine says of failures, each on one line without an end of line. The names and
/// reports that go in come from outside: here they are escaped and bounded; null counts as "".
namespace ZYLMsgFileTransferTexts {

std::string NotThere(const char* application);
std::string Lost(const char* application);

/// `event` completes "before it had".
std::string EndedByAnother(const char* application, const char* event);

/// `attempt` and `circumstance` stand before and behind the file's name, `error` is an errno.
std::string CannotOpen(const std::string& attempt, const char* file, const char* circumstance, int error);

/// A file that cannot be read or written (`act`) to its end, for the errno `error`.
std::string CutShort(const char* act, const char* file, int error);

/// What `application` says of its own side.
std::string Report(const char* application, const char* failure);
std::string NotWhole(const char* file, const char* application, const char* failure);

/// `cause` is one of these texts.
std::string Incomplete(const char* file, const std::string& cause, long long bytes);

/// What to look for when a chunk or a completion (`what`) comes from a source that has no file open; `open`
/// names those that have one.
std::string NoOpenFile(const char* what, const char* source, const char* open);

/// What to look for when a source begins a file while one from it is open.
std::string SecondFile(const char* source, const char* newFile, const char* openFile);

}  // namespace ZYLMsgFileTransferTexts

#endif

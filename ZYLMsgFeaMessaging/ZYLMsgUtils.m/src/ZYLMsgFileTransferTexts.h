#ifndef ZYLMSGFILETRANSFERTEXTS_H
#define ZYLMSGFILETRANSFERTEXTS_H

#include <string>

/// The file-transfer engine's texts about failures, each one line without a line end. The functions escape
/// and truncate the names and reports passed to them, which are not trusted; null counts as "".
namespace ZYLMsgFileTransferTexts {

std::string NotThere(const char* application);
std::string Lost(const char* application);

/// `event` completes "before it had".
std::string EndedByAnother(const char* application, const char* event);

/// `attempt` precedes the file's name and `circumstance` follows it; `error` is an errno.
std::string CannotOpen(const std::string& attempt, const char* file, const char* circumstance, int error);

/// A file that cannot be read or written (`act`) to its end; `error` is an errno.
std::string CutShort(const char* act, const char* file, int error);

/// The failure that `application` reports about its own side.
std::string Report(const char* application, const char* failure);
std::string NotWhole(const char* file, const char* application, const char* failure);

/// `cause` is one of these texts.
std::string Incomplete(const char* file, const std::string& cause, long long bytes);

/// The likely causes when a chunk or a completion (`what`) comes from a source that has no file open;
/// `open` lists the sources that have one.
std::string NoOpenFile(const char* what, const char* source, const char* open);

/// The likely causes when a source begins a file while another one from it is open.
std::string SecondFile(const char* source, const char* newFile, const char* openFile);

}  // namespace ZYLMsgFileTransferTexts

#endif

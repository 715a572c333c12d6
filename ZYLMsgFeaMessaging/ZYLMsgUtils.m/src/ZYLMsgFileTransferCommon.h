#ifndef ZYLMSGFILETRANSFERCOMMON_H
#define ZYLMSGFILETRANSFERCOMMON_H

#include <initializer_list>
#include <string>

#include "ZYLMsgFileTransferData.h"
#include "ZYLMsgFileTransferOutcome.h"
#include "ZYLString.h"

/// What the sending and the receiving side of the file-transfer engine have in common.
namespace ZYLMsgFileTransferCommon {

/// In the value of the home platform's C runtime; ZYLBasFileOps::Open maps it to the host's.
constexpr int kReadBinary = 0x8000;

ZYLString Text(const char* utf8);

/// Replaces the caller's null texts by empty ones.
void FillNulls(std::initializer_list<const char**> texts);

/// The absolute path of a file. Names beyond the limit of 64 KiB are only concatenated, which saves the memory
/// of path resolution; no system opens such a name.
ZYLString FormPath(const char* baseDir, const char* jobDir, const char* fileName);

/// Opens a source file. Returns a descriptor, or -1 with errno set.
int OpenToRead(const char* fileName);

/// Sets the fields that all messages except chunks have in common.
void SetControl(ZYLMsgFileTransferData& data, int dataType);
void SetNames(ZYLMsgFileTransferData& data, const char* sourceApplication, const char* sourceBaseDir,
              const char* sourceJobDir, const char* sourceFileName, const char* targetApplication,
              const char* targetBaseDir, const char* targetJobDir, const char* targetFileName);

/// Whether the target of the last message was there.
bool WasTargetThere();

void SetFailure(ZYLMsgFileTransferOutcome& outcome, const std::string& text);

/// Writes a line on standard error, whatever the verbosity.
void WriteLine(const std::string& text);

/// Reports a failure on standard error, whatever the verbosity.
void WriteAlarm(const ZYLMsgFileTransferOutcome& outcome);

}  // namespace ZYLMsgFileTransferCommon

#endif

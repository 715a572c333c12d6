#include "ZYLMsgFileTransferCommon.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstring>

#include "QORText.h"
#include "ZYLBasFileOps.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgPathExplorer.h"

namespace {

// The limit for the three names of a file together, many times the longest path that a system accepts.
constexpr std::size_t kLongestNames = 65536;

}  // namespace

namespace ZYLMsgFileTransferCommon {

ZYLString Text(const char* utf8) {
    return ZYLString::BuildFromUTF8(utf8);
}

void FillNulls(std::initializer_list<const char**> texts) {
    for (const char** text : texts) {
        *text = QORText::OrEmpty(*text);
    }
}

ZYLString FormPath(const char* baseDir, const char* jobDir, const char* fileName) {
    if (strlen(baseDir) + strlen(jobDir) + strlen(fileName) > kLongestNames) {
        return Text(fmt::format("{}{}{}", baseDir, jobDir, fileName).c_str());
    }
    return ZYLMsgPathExplorer::FormPath(Text(baseDir), Text(jobDir), Text(fileName));
}

int OpenToRead(const char* fileName) {
    return ZYLBasFileOps::Open(fileName, kReadBinary, 0);
}

void SetControl(ZYLMsgFileTransferData& data, int dataType) {
    data.m_dataType = dataType;
    data.m_chunkId = -1;
    data.m_chunkSize = 0;
    data.m_chunk = nullptr;
}

void SetNames(ZYLMsgFileTransferData& data, const char* sourceApplication, const char* sourceBaseDir,
              const char* sourceJobDir, const char* sourceFileName, const char* targetApplication,
              const char* targetBaseDir, const char* targetJobDir, const char* targetFileName) {
    data.m_sourceApplication = Text(sourceApplication);
    data.m_sourceBaseDir = Text(sourceBaseDir);
    data.m_sourceJobDir = Text(sourceJobDir);
    data.m_sourceFileName = Text(sourceFileName);
    data.m_targetApplication = Text(targetApplication);
    data.m_targetBaseDir = Text(targetBaseDir);
    data.m_targetJobDir = Text(targetJobDir);
    data.m_targetFileName = Text(targetFileName);
}

bool WasTargetThere() {
    return ZYLMsgBBCallbackManager::IsPendingMessageStreamed();
}

void SetFailure(ZYLMsgFileTransferOutcome& outcome, const std::string& text) {
    outcome.ok = false;
    outcome.text = Text(text.c_str());
}

void WriteLine(const std::string& text) {
    fprintf(stderr, "ZYLMsgFileTransfer: %s\n", text.c_str());
    fflush(stderr);
}

void WriteAlarm(const ZYLMsgFileTransferOutcome& outcome) {
    WriteLine(outcome.text.GetUTF8());
}

}  // namespace ZYLMsgFileTransferCommon

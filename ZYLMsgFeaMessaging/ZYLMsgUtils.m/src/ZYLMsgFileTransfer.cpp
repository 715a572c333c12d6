#include "ZYLMsgFileTransfer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include "QORText.h"
#include "ZYLBasFileOps.h"
#include "ZYLBasUtlFilePath.h"
#include "ZYLCRuntime.h"
#include "ZYLMsgAssert.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgFileTransferCommon.h"
#include "ZYLMsgFileTransferTexts.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgFileTransferWait.h"
#include "ZYLMsgHeldFile.h"
#include "mem_Allocation.h"

namespace Texts = ZYLMsgFileTransferTexts;

using ZYLMsgFileTransferCommon::FillNulls;
using ZYLMsgFileTransferCommon::FormPath;
using ZYLMsgFileTransferCommon::kReadBinary;
using ZYLMsgFileTransferCommon::OpenToRead;
using ZYLMsgFileTransferCommon::SetControl;
using ZYLMsgFileTransferCommon::SetFailure;
using ZYLMsgFileTransferCommon::SetNames;
using ZYLMsgFileTransferCommon::Text;
using ZYLMsgFileTransferCommon::WasTargetThere;
using ZYLMsgFileTransferCommon::WriteAlarm;
using ZYLMsgFileTransferCommon::WriteLine;

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgUtils.m/src/ZYLMsgFileTransfer";

// In the values of the home platform's C runtime, like kReadBinary.
constexpr int kReadWriteCreateTruncateBinary = 0x8302;
constexpr int kOwnerReadsAndWritesGroupReads = 0x1A0;

int FlagsFor(bool isSender) {
    return isSender ? kReadBinary : kReadWriteCreateTruncateBinary;
}

// Whether the source application is known to belong to this process.
bool IsInThisProcess(const char* sourceApplication, const char* targetApplication) {
    const ZYLString source = Text(sourceApplication);
    return source == Text(targetApplication) || source == Text(ZYLMsgBBCallbackManager::MessageID());
}

}  // namespace

ZYLMsgFileTransfer::ZYLMsgFileTransfer(int communicatorId, FILE* logStream, int verbosity)
    : m_communicatorId(communicatorId), m_logStream(logStream), m_verbosity(verbosity) {
    if (logStream == nullptr && verbosity >= 1) {
        m_logStream = stderr;
    }
    std::unique_ptr<ZYLMsgFileTransferType> contentMsg(new ZYLMsgFileTransferType);
    contentMsg->Data().m_chunk = mem_OperatorNewThrowBuiltin(static_cast<size_t>(m_maxChunkSize));
    m_contentMsg = contentMsg.release();
    ZYL_ASSERT(m_contentMsg != NULL);
}

ZYLMsgFileTransfer::~ZYLMsgFileTransfer() {
    ZYL_ASSERT(m_contentMsg != NULL);
    CloseAllowedRoots();
    mem_Free(const_cast<void*>(m_contentMsg->Data().m_chunk));
    delete m_contentMsg;
    m_contentMsg = nullptr;
    m_logStream = nullptr;
}

const ZYLMsgFileTransferOutcome& ZYLMsgFileTransfer::LastOutcome() const {
    return m_lastOutcome;
}

int ZYLMsgFileTransfer::SetCommunicatorId(int communicatorId) {
    m_communicatorId = communicatorId;
    return 0;
}

int ZYLMsgFileTransfer::SetAllowedRoots(const char* const* directories, int count) {
    CloseAllowedRoots();
    m_isConfined = true;
    int result = 0;
    for (int index = 0; index < count; ++index) {
        const ZYLString path = FormPath(QORText::OrEmpty(directories[index]), "", "");
        const int directory = ZYLBasFileOps::OpenDirectory(path.GetUTF8());
        if (directory < 0) {
            Log(1, "ZYLMsgFileTransfer: cannot allow directory %s: %s\n", path.GetUTF8(), strerror(errno));
            Flush(1);
            result = -1;
        } else if (!m_allowedRoots.insert({path, directory}).second) {
            _close(directory);
        }
    }
    return result;
}

void ZYLMsgFileTransfer::CloseAllowedRoots() {
    for (auto itr = m_allowedRoots.begin(); itr != m_allowedRoots.end(); ++itr) {
        _close(itr->second);
    }
    m_allowedRoots = {};
}

int ZYLMsgFileTransfer::ReceiveFile(const char* sourceApplication, const char* sourceBaseDir,
                                    const char* sourceJobDir, const char* sourceFileName,
                                    const char* targetApplication, const char* targetBaseDir,
                                    const char* targetJobDir, const char* targetFileName) {
    FillNulls({&sourceApplication, &sourceBaseDir, &sourceJobDir, &sourceFileName, &targetApplication,
               &targetBaseDir, &targetJobDir, &targetFileName});
    ZYL_ASSERT(m_contentMsg != NULL);
    Log(1,
        "ReceiveFile from application %s to application %s\n"
        "sourceFileName %s, targetFileName %s\n"
        "sourceBaseDir %s, targetBaseDir %s\n"
        "sourceJobDir %s, targetJobDir %s\n",
        sourceApplication, targetApplication, sourceFileName, targetFileName, sourceBaseDir, targetBaseDir,
        sourceJobDir, targetJobDir);
    Flush(1);
    Wait wait(*this, Awaited::kFile, sourceApplication);
    OpenOwnTarget(sourceApplication, FormPath(sourceBaseDir, sourceJobDir, sourceFileName), targetApplication,
                  FormPath(targetBaseDir, targetJobDir, targetFileName));
    Log(4, "opened file %s\n", targetFileName);
    Flush(4);
    ZYLMsgFileTransferType request;
    SetControl(request.Data(), FILE_TRANSFER_SEND_REQUEST);
    SetNames(request.Data(), sourceApplication, sourceBaseDir, sourceJobDir, sourceFileName,
             targetApplication, targetBaseDir, targetJobDir, targetFileName);
    ZYLMsgBBAPI::SendRequest(m_communicatorId, sourceApplication, request);
    if (WasTargetThere()) {
        wait.Run();
    } else {
        SetFailure(m_receptionMap[wait.m_application].m_outcome, Texts::NotThere(sourceApplication));
        EndReception(wait.m_application);
        wait.Look();
    }
    m_lastOutcome = wait.m_outcome;
    return 0;
}

void ZYLMsgFileTransfer::OpenOwnTarget(const char* sourceApplication, const ZYLString& source,
                                       const char* targetApplication, const ZYLString& target) {
    ReleaseSentFiles(sourceApplication);
    const bool isSourceHere = IsInThisProcess(sourceApplication, targetApplication);
    const ZYLMsgHeldFile held(isSourceHere ? OpenToRead(source.GetUTF8()) : -1);
    OpenFile(sourceApplication, target.GetUTF8(), false);
}

int ZYLMsgFileTransfer::OpenFile(const char* applicationId, const char* fileName, bool isSender) {
    const int fileId = ZYLBasFileOps::Open(fileName, FlagsFor(isSender), kOwnerReadsAndWritesGroupReads);
    return KeepFile(applicationId, fileName, isSender, fileId,
                    fileId >= 0 ? "" : Texts::CannotOpen("cannot open", fileName, "", errno));
}

int ZYLMsgFileTransfer::OpenRequestedFile(const char* applicationId, const char* fileName, bool isSender) {
    if (!m_isConfined) {
        return OpenFile(applicationId, fileName, isSender);
    }
    const int fileId = OpenInAllowedRoot(fileName, FlagsFor(isSender));
    if (fileId >= 0) {
        return KeepFile(applicationId, fileName, isSender, fileId, "");
    }
    const std::string failure = Texts::CannotOpen(isSender ? "refused to read" : "refused to write", fileName,
                                                  " as another application asks", errno);
    KeepFile(applicationId, fileName, isSender, fileId, failure);
    LogFailure(failure.c_str());
    if (!isSender) {
        m_receptionMap[Text(applicationId)].m_isFailureLogged = true;
    }
    return 0;
}

int ZYLMsgFileTransfer::OpenToHold(const char* fileName) {
    return m_isConfined ? OpenInAllowedRoot(fileName, kReadBinary) : OpenToRead(fileName);
}

int ZYLMsgFileTransfer::OpenInAllowedRoot(const char* fileName, int flags) {
    const char* name = nullptr;
    int root = -1;
    // The names ascend, so the innermost directory that contains the file comes last.
    for (auto itr = m_allowedRoots.begin(); itr != m_allowedRoots.end(); ++itr) {
        if (const char* beneath = ZYLBasUtlFilePath::NameBeneath(itr->first.GetUTF8(), fileName)) {
            name = beneath;
            root = itr->second;
        }
    }
    if (name == nullptr) {
        errno = EXDEV;
        return -1;
    }
    return ZYLBasFileOps::OpenBeneath(root, name, flags, kOwnerReadsAndWritesGroupReads);
}

int ZYLMsgFileTransfer::KeepFile(const char* applicationId, const char* fileName, bool isSender, int fileId,
                                 const std::string& failure) {
    const ZYLMsgFileTransferOutcome outcome{fileId >= 0, Text(failure.c_str()), 0};
    Log(4, "::OpenFile applicationId %s fileName %s isSender %d fileId %d\n", applicationId, fileName,
        isSender ? 1 : 0, fileId);
    Flush(4);
    if (fileId < 0) {
        Log(4, "ZYLMsgFileTransfer::OpenFile Opening file %s Failed\n", fileName);
        Flush(4);
        WriteAlarm(outcome);
    }
    if (isSender) {
        m_fileId = fileId;
        m_lastOutcome = outcome;
        return 0;
    }
    const ZYLString application = Text(applicationId);
    const auto itr = m_receiveFileMap.find(application);
    if (itr != m_receiveFileMap.end()) {
        Log(1, "ERROR: already have a file opened for application %s\n", applicationId);
        WriteLine(Texts::SecondFile(applicationId, fileName, m_receptionMap[application].m_path.GetUTF8()));
    }
    ZYL_ASSERT(itr == m_receiveFileMap.end());
    m_receiveFileMap.insert({application, fileId});
    m_receiveFileChunkIdMap.insert({application, 0});
    m_receptionMap.insert({application, {Text(fileName), outcome}});
    return 0;
}

int ZYLMsgFileTransfer::Receive(const char* sourceApplication, const char* sourceBaseDir,
                                const char* sourceJobDir, const char* sourceFileName,
                                const char* targetApplication, const char* targetBaseDir,
                                const char* targetJobDir, const char* targetFileName) {
    Log(1,
        "Receive from application %s to application %s\n"
        "sourceFileName %s, targetFileName %s\n"
        "sourceBaseDir (%s), targetBaseDir (%s)\n"
        "sourceJobDir (%s), targetJobDir (%s)\n",
        sourceApplication, targetApplication, sourceFileName, targetFileName, sourceBaseDir, targetBaseDir,
        sourceJobDir, targetJobDir);
    Flush(1);
    ReleaseSentFiles(sourceApplication);
    OpenRequestedFile(sourceApplication, FormPath(targetBaseDir, targetJobDir, targetFileName).GetUTF8(),
                      false);
    Log(1, "opened file %s\n", targetFileName);
    Flush(1);
    return 0;
}

int ZYLMsgFileTransfer::ReceiveChunk(const char* sourceApplication, int chunkId, int chunkSize,
                                     const void* data) {
    ZYL_ASSERT(m_contentMsg != NULL);
    Log(4, "::ReceiveChunk sourceApplication=%s chunkId=%d chunkSize=%d\n", sourceApplication, chunkId,
        chunkSize);
    Flush(4);
    const auto itr = m_receiveFileChunkIdMap.find(Text(sourceApplication));
    if (itr == m_receiveFileChunkIdMap.end()) {
        Log(4, "**ERROR**, cannot write this chunk since we havent initialized the file for app: %s\n",
            sourceApplication);
        ExplainNoOpenFile("chunk", sourceApplication);
    }
    ZYL_ASSERT(itr != m_receiveFileChunkIdMap.end() &&
               "**ERROR**, cannot write this chunk since we havent initialized the file for app");
    // The number is not trusted: it may be INT_MIN, which must not overflow.
    const int previousId = static_cast<int>(static_cast<unsigned>(chunkId) - 1U);
    if (itr->second != previousId) {
        Log(1, "obtained incorrect file chunk from %s, expected %d got %d\n", sourceApplication, itr->second,
            previousId);
    }
    ZYL_ASSERT(itr->second == previousId && "obtained incorrect file chunk during remote file copy");
    ZYL_ASSERT(chunkSize > 0);
    itr->second += 1;
    Log(1, "updating chunkId %d for source Application %s\n", chunkId, sourceApplication);
    WriteChunk(sourceApplication, chunkSize, data);
    return 0;
}

int ZYLMsgFileTransfer::WriteChunk(const char* sourceApplication, int chunkSize, const void* data) {
    Log(4, "::WriteChunk sourceApplication=%s chunkSize=%d\n", sourceApplication, chunkSize);
    Flush(4);
    const auto itr = m_receiveFileMap.find(Text(sourceApplication));
    ZYL_ASSERT(itr != m_receiveFileMap.end());
    const int fileId = itr->second;
    const int bytesWritten = fileId < 0 ? -1 : _write(fileId, data, static_cast<unsigned>(chunkSize));
    const int writeError = errno;
    Log(4, "::WriteChunk bytesWritten=%d\n", bytesWritten);
    Flush(4);
    Reception& reception = m_receptionMap[itr->first];
    reception.m_outcome.bytes += std::max(bytesWritten, 0);
    if (bytesWritten != chunkSize) {
        ReportFailedWrite(reception, writeError);
    }
    return 0;
}

void ZYLMsgFileTransfer::ReportFailedWrite(Reception& reception, int writeError) {
    if (reception.m_outcome.ok) {
        SetFailure(reception.m_outcome, Texts::CutShort("write", reception.m_path.GetUTF8(), writeError));
        WriteAlarm(reception.m_outcome);
    }
    if (!reception.m_isFailureLogged) {
        reception.m_isFailureLogged = true;
        LogFailure(reception.m_outcome.text.GetUTF8());
    }
}

void ZYLMsgFileTransfer::NoteSourceFailure(const char* sourceApplication, const char* failure) {
    const auto itr = m_receptionMap.find(Text(sourceApplication));
    if (*failure == '\0' || itr == m_receptionMap.end() || !itr->second.m_outcome.ok) {
        return;
    }
    Reception& reception = itr->second;
    SetFailure(reception.m_outcome, Texts::NotWhole(reception.m_path.GetUTF8(), sourceApplication, failure));
    Log(4, "ZYLMsgFileTransfer: %s\n", reception.m_outcome.text.GetUTF8());
    Flush(4);
}

// Precedes a fatal error.
void ZYLMsgFileTransfer::ExplainNoOpenFile(const char* what, const char* sourceApplication) const {
    std::string open;
    for (auto itr = m_receiveFileMap.begin(); itr != m_receiveFileMap.end(); ++itr) {
        open += fmt::format("{}'{}'", open.empty() ? "" : ", ", itr->first.GetUTF8());
    }
    WriteLine(Texts::NoOpenFile(what, sourceApplication, open.empty() ? "none" : open.c_str()));
}

int ZYLMsgFileTransfer::ReceiveISendCompletion(const char* sourceApplication) {
    ZYL_ASSERT(m_contentMsg != NULL);
    const ZYLString application = Text(sourceApplication);
    const auto itr = m_receiveFileMap.find(application);
    Log(1, "::ReceiveISendCompletion sourceApplication=%s\n", sourceApplication);
    if (itr == m_receiveFileMap.end()) {
        Log(1, "cannot find file for sourceApplication\n");
        ExplainNoOpenFile("completion", sourceApplication);
    }
    Flush(1);
    ZYL_ASSERT(itr != m_receiveFileMap.end());
    EndReception(application);
    m_fileId = -1;
    m_endingCondition = 0;
    m_contentMsg->Data().m_chunkId = 0;
    return 0;
}

void ZYLMsgFileTransfer::EndReception(const ZYLString& sourceApplication) {
    const int fileId = m_receiveFileMap[sourceApplication];
    Reception& reception = m_receptionMap[sourceApplication];
    if (fileId >= 0 && _close(fileId) != 0) {
        ReportFailedWrite(reception, errno);
    }
    m_lastOutcome = reception.m_outcome;
    m_receiveFileMap.erase(sourceApplication);
    m_receiveFileChunkIdMap.erase(sourceApplication);
    m_receptionMap.erase(sourceApplication);
    if (Wait* wait = OldestWait(Awaited::kFile, &sourceApplication)) {
        wait->End(m_lastOutcome);
    }
}

int ZYLMsgFileTransfer::ReceiveSendCompletion(const char* sourceApplication) {
    ReceiveISendCompletion(sourceApplication);
    SendReceiveCompletion(sourceApplication);
    return 0;
}

int ZYLMsgFileTransfer::SendReceiveCompletion(const char* applicationId) {
    Log(1, "::SendReceiveCompletion applicationId=%s\n", applicationId);
    Flush(1);
    ZYLMsgFileTransferType completion;
    SetControl(completion.Data(), FILE_TRANSFER_RECEIVE_COMPLETION);
    completion.Data().m_targetFileName = m_lastOutcome.text;
    ZYLMsgBBAPI::SendRequest(m_communicatorId, applicationId, completion);
    return 0;
}

int ZYLMsgFileTransfer::ApplicationLost(const char* application) {
    const ZYLString name = Text(application);
    const std::string lost = Texts::Lost(application);
    const auto itr = m_receptionMap.find(name);
    if (itr != m_receptionMap.end()) {
        Reception& reception = itr->second;
        SetFailure(reception.m_outcome,
                   Texts::Incomplete(reception.m_path.GetUTF8(), lost, reception.m_outcome.bytes));
        WriteAlarm(reception.m_outcome);
        LogFailure(reception.m_outcome.text.GetUTF8());
        EndReception(name);
    }
    m_lateConfirmationMap.erase(name);
    while (Wait* wait = OldestWait(Awaited::kConfirmation, &name)) {
        wait->End({false, Text(fmt::format("{} before it confirmed the copy", lost).c_str()), 0});
    }
    // Ends the innermost wait only: an outer one checks its own state when the inner one has ended.
    if (m_innermostWait != nullptr && m_innermostWait->m_isOver) {
        m_endingCondition = 0;
    }
    return 0;
}

void ZYLMsgFileTransfer::LogFailure(const char* text) const {
    if (m_logStream != stderr) {
        Log(1, "ZYLMsgFileTransfer: %s\n", text);
        Flush(1);
    }
}

void ZYLMsgFileTransfer::Log(int level, const char* format, ...) const {
    if (IsLogged(level)) {
        va_list arguments;
        va_start(arguments, format);
        // The analyzer loses sight of va_start when it is given several sources at once.
        vfprintf(m_logStream, format, arguments);  // NOLINT(clang-analyzer-valist.Uninitialized)
        va_end(arguments);
    }
}

void ZYLMsgFileTransfer::Flush(int level) const {
    if (IsLogged(level)) {
        fflush(m_logStream);
    }
}

bool ZYLMsgFileTransfer::IsLogged(int level) const {
    return m_logStream != nullptr && m_verbosity >= level;
}

#include "ZYLMsgFileTransfer.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <memory>

#include "ZYLBasFileOps.h"
#include "ZYLBasUtlFilePath.h"
#include "ZYLCRuntime.h"
#include "ZYLMsgAssert.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgPathExplorer.h"
#include "mem_Allocation.h"

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgUtils.m/src/ZYLMsgFileTransfer";

// Flags and permissions in the values of the home platform's C runtime; ZYLBasFileOps::Open maps them to the
// host's.
constexpr int kReadBinary = 0x8000;
constexpr int kReadWriteCreateTruncateBinary = 0x8302;
constexpr int kOwnerReadsAndWritesGroupReads = 0x1A0;

int FlagsFor(bool isSender) {
    return isSender ? kReadBinary : kReadWriteCreateTruncateBinary;
}

ZYLString Text(const char* utf8) {
    return ZYLString::BuildFromUTF8(utf8);
}

ZYLString FormPath(const char* baseDir, const char* jobDir, const char* fileName) {
    return ZYLMsgPathExplorer::FormPath(Text(baseDir), Text(jobDir), Text(fileName));
}

// What every message but a chunk has in common.
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

int ZYLMsgFileTransfer::SetCommunicatorId(int communicatorId) {
    m_communicatorId = communicatorId;
    return 0;
}

int ZYLMsgFileTransfer::SetAllowedRoots(const char* const* directories, int count) {
    CloseAllowedRoots();
    m_isConfined = true;
    int result = 0;
    for (int index = 0; index < count; ++index) {
        const ZYLString path = FormPath(directories[index], "", "");
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

int ZYLMsgFileTransfer::SendFile(const char* sourceApplication, const char* sourceBaseDir,
                                 const char* sourceJobDir, const char* sourceFileName,
                                 const char* targetApplication, const char* targetBaseDir,
                                 const char* targetJobDir, const char* targetFileName) {
    SendNotifyAndContent(sourceApplication, sourceBaseDir, sourceJobDir, sourceFileName, targetApplication,
                         targetBaseDir, targetJobDir, targetFileName);
    SendSendCompletion(sourceApplication, targetApplication);
    m_endingCondition = -1;
    ZYLMsgBBAPI::WaitingLoop(m_communicatorId, -1, m_endingCondition);
    return 0;
}

int ZYLMsgFileTransfer::ISendFile(const char* sourceApplication, const char* sourceBaseDir,
                                  const char* sourceJobDir, const char* sourceFileName,
                                  const char* targetApplication, const char* targetBaseDir,
                                  const char* targetJobDir, const char* targetFileName) {
    SendNotifyAndContent(sourceApplication, sourceBaseDir, sourceJobDir, sourceFileName, targetApplication,
                         targetBaseDir, targetJobDir, targetFileName);
    SendISendCompletion(targetApplication);
    return 0;
}

int ZYLMsgFileTransfer::ReceiveFile(const char* sourceApplication, const char* sourceBaseDir,
                                    const char* sourceJobDir, const char* sourceFileName,
                                    const char* targetApplication, const char* targetBaseDir,
                                    const char* targetJobDir, const char* targetFileName) {
    ZYL_ASSERT(m_contentMsg != NULL);
    Log(1,
        "ReceiveFile from application %s to application %s\n"
        "sourceFileName %s, targetFileName %s\n"
        "sourceBaseDir %s, targetBaseDir %s\n"
        "sourceJobDir %s, targetJobDir %s\n",
        sourceApplication, targetApplication, sourceFileName, targetFileName, sourceBaseDir, targetBaseDir,
        sourceJobDir, targetJobDir);
    Flush(1);
    OpenFile(sourceApplication, FormPath(targetBaseDir, targetJobDir, targetFileName).GetUTF8(), false);
    Log(4, "opened file %s\n", targetFileName);
    Flush(4);
    ZYLMsgFileTransferType request;
    SetControl(request.Data(), FILE_TRANSFER_SEND_REQUEST);
    SetNames(request.Data(), sourceApplication, sourceBaseDir, sourceJobDir, sourceFileName,
             targetApplication, targetBaseDir, targetJobDir, targetFileName);
    ZYLMsgBBAPI::SendRequest(m_communicatorId, sourceApplication, request);
    m_endingCondition = -1;
    ZYLMsgBBAPI::WaitingLoop(m_communicatorId, -1, m_endingCondition);
    return 0;
}

int ZYLMsgFileTransfer::SendNotifyAndContent(const char* sourceApplication, const char* sourceBaseDir,
                                             const char* sourceJobDir, const char* sourceFileName,
                                             const char* targetApplication, const char* targetBaseDir,
                                             const char* targetJobDir, const char* targetFileName) {
    ZYLMsgFileTransferType request;
    SetControl(request.Data(), FILE_TRANSFER_RECEIVE_REQUEST);
    SetNames(request.Data(), sourceApplication, sourceBaseDir, sourceJobDir, sourceFileName,
             targetApplication, targetBaseDir, targetJobDir, targetFileName);
    ZYLMsgBBAPI::SendRequest(m_communicatorId, targetApplication, request);
    return SendContent(&ZYLMsgFileTransfer::OpenFile, sourceApplication, sourceBaseDir, sourceJobDir,
                       sourceFileName, targetApplication, targetBaseDir, targetJobDir, targetFileName);
}

int ZYLMsgFileTransfer::Send(const char* sourceApplication, const char* sourceBaseDir,
                             const char* sourceJobDir, const char* sourceFileName,
                             const char* targetApplication, const char* targetBaseDir,
                             const char* targetJobDir, const char* targetFileName) {
    return SendContent(&ZYLMsgFileTransfer::OpenRequestedFile, sourceApplication, sourceBaseDir, sourceJobDir,
                       sourceFileName, targetApplication, targetBaseDir, targetJobDir, targetFileName);
}

int ZYLMsgFileTransfer::SendContent(Opener open, const char* sourceApplication, const char* sourceBaseDir,
                                    const char* sourceJobDir, const char* sourceFileName,
                                    const char* targetApplication, const char* targetBaseDir,
                                    const char* targetJobDir, const char* targetFileName) {
    ZYL_ASSERT(m_contentMsg != NULL);
    Log(1,
        "::Send from application %s\n"
        "sourceFileName %s, targetFileName %s\n"
        "sourceBaseDir (%s) ==> targetBaseDir (%s)\n"
        "sourceJobDir (%s) ==> targetJobDir (%s)\n",
        sourceApplication, sourceFileName, targetFileName, sourceBaseDir, targetBaseDir, sourceJobDir,
        targetJobDir);
    Flush(1);
    if (m_fileId >= 0) {
        Log(1, "ZYLMsgFileTransfer: Attempt to send a new file before completion of a previous one\n");
        Flush(1);
    }
    (this->*open)(sourceApplication, FormPath(sourceBaseDir, sourceJobDir, sourceFileName).GetUTF8(), true);
    for (ReadChunk(); m_contentMsg->Data().m_chunkSize > 0; ReadChunk()) {
        SendChunk(targetApplication);
    }
    CloseFile(m_fileId);
    m_contentMsg->Data().m_chunkId = 0;
    return 0;
}

int ZYLMsgFileTransfer::OpenFile(const char* applicationId, const char* fileName, bool isSender) {
    return KeepFile(applicationId, fileName, isSender,
                    ZYLBasFileOps::Open(fileName, FlagsFor(isSender), kOwnerReadsAndWritesGroupReads));
}

int ZYLMsgFileTransfer::OpenRequestedFile(const char* applicationId, const char* fileName, bool isSender) {
    if (!m_isConfined) {
        return OpenFile(applicationId, fileName, isSender);
    }
    const int fileId = OpenInAllowedRoot(fileName, FlagsFor(isSender));
    const int openError = errno;
    KeepFile(applicationId, fileName, isSender, fileId);
    if (fileId < 0) {
        Log(1, "ZYLMsgFileTransfer: refused to %s file %s as another application asks: %s\n",
            isSender ? "read" : "write", fileName,
            openError == EXDEV ? "it is not in an allowed directory" : strerror(openError));
        Flush(1);
        m_unreportedFileMap.erase(Text(applicationId));
    }
    return 0;
}

int ZYLMsgFileTransfer::OpenInAllowedRoot(const char* fileName, int flags) {
    const char* name = nullptr;
    int root = -1;
    // Names ascend, so that of those the file lies in the innermost comes last.
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

int ZYLMsgFileTransfer::KeepFile(const char* applicationId, const char* fileName, bool isSender, int fileId) {
    const int openError = fileId < 0 ? errno : 0;
    Log(4, "::OpenFile applicationId %s fileName %s isSender %d fileId %d\n", applicationId, fileName,
        isSender ? 1 : 0, fileId);
    Flush(4);
    if (fileId < 0) {
        Log(4, "ZYLMsgFileTransfer::OpenFile Opening file %s Failed\n", fileName);
        Flush(4);
    }
    if (isSender) {
        m_fileId = fileId;
        return 0;
    }
    const ZYLString application = Text(applicationId);
    const auto itr = m_receiveFileMap.find(application);
    if (itr != m_receiveFileMap.end()) {
        Log(1, "ERROR: already have a file opened for application %s\n", applicationId);
    }
    ZYL_ASSERT(itr == m_receiveFileMap.end());
    m_receiveFileMap.insert({application, fileId});
    m_receiveFileChunkIdMap.insert({application, 0});
    m_unreportedFileMap.insert({application, {Text(fileName), openError}});
    return 0;
}

int ZYLMsgFileTransfer::ReadChunk() {
    ZYL_ASSERT(m_contentMsg != NULL);
    ZYLMsgFileTransferData& data = m_contentMsg->Data();
    data.m_chunkSize = m_fileId < 0 ? -1
                                    : _read(m_fileId, const_cast<void*>(data.m_chunk),
                                            static_cast<unsigned>(m_maxChunkSize));
    Log(4, "::ReadChunk fileId %d bytes %d\n", m_fileId, data.m_chunkSize);
    Flush(4);
    return 0;
}

int ZYLMsgFileTransfer::SendChunk(const char* targetApplication) {
    ZYL_ASSERT(m_contentMsg != NULL);
    m_contentMsg->Data().m_chunkId += 1;
    m_contentMsg->Data().m_dataType = FILE_TRANSFER_CHUNK;
    ZYLMsgBBAPI::SendRequest(m_communicatorId, targetApplication, *m_contentMsg);
    return 0;
}

int ZYLMsgFileTransfer::CloseFile(int fileId) {
    if (fileId >= 0) {
        _close(fileId);
    }
    m_fileId = -1;
    return 0;
}

int ZYLMsgFileTransfer::SendSendCompletion(const char* sourceApplication, const char* targetApplication) {
    Log(1, "::SendSendCompletion sourceApplication=%s targetApplication=%s\n", sourceApplication,
        targetApplication);
    Flush(1);
    ZYLMsgFileTransferType completion;
    SetControl(completion.Data(), FILE_TRANSFER_SEND_COMPLETION);
    completion.Data().m_sourceApplication = Text(sourceApplication);
    ZYLMsgBBAPI::SendRequest(m_communicatorId, targetApplication, completion);
    return 0;
}

int ZYLMsgFileTransfer::SendISendCompletion(const char* application) {
    Log(1, "::SendISendCompletion Application=%s \n", application);
    Flush(1);
    ZYLMsgFileTransferType completion;
    SetControl(completion.Data(), FILE_TRANSFER_ISEND_COMPLETION);
    ZYLMsgBBAPI::SendRequest(m_communicatorId, application, completion);
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
    }
    ZYL_ASSERT(itr != m_receiveFileChunkIdMap.end() &&
               "**ERROR**, cannot write this chunk since we havent initialized the file for app");
    // The number comes from outside and may be the least int there is.
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
    if (bytesWritten != chunkSize) {
        ReportFailedWrite(Text(sourceApplication), writeError);
    }
    return 0;
}

void ZYLMsgFileTransfer::ReportFailedWrite(const ZYLString& sourceApplication, int writeError) {
    const auto itr = m_unreportedFileMap.find(sourceApplication);
    if (itr == m_unreportedFileMap.end()) {
        return;
    }
    const UnreportedFile& file = itr->second;
    Log(1, "ZYLMsgFileTransfer: cannot write all of file %s: %s\n", file.m_path.GetUTF8(),
        strerror(file.m_openError != 0 ? file.m_openError : writeError));
    Flush(1);
    m_unreportedFileMap.erase(sourceApplication);
}

int ZYLMsgFileTransfer::ReceiveISendCompletion(const char* sourceApplication) {
    ZYL_ASSERT(m_contentMsg != NULL);
    const ZYLString application = Text(sourceApplication);
    const auto itr = m_receiveFileMap.find(application);
    Log(1, "::ReceiveISendCompletion sourceApplication=%s\n", sourceApplication);
    if (itr == m_receiveFileMap.end()) {
        Log(1, "cannot find file for sourceApplication\n");
    }
    Flush(1);
    ZYL_ASSERT(itr != m_receiveFileMap.end());
    CloseFile(itr->second);
    m_receiveFileMap.erase(application);
    m_receiveFileChunkIdMap.erase(application);
    m_unreportedFileMap.erase(application);
    m_endingCondition = 0;
    m_contentMsg->Data().m_chunkId = 0;
    return 0;
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
    ZYLMsgBBAPI::SendRequest(m_communicatorId, applicationId, completion);
    return 0;
}

int ZYLMsgFileTransfer::ReceiveReceiveCompletion() {
    m_endingCondition = 0;
    return 0;
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

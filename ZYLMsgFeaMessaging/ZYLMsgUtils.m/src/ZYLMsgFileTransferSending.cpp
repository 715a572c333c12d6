// The sending side of the file-transfer engine: SendFile and ISendFile, the answer to another application's
// ReceiveFile, and the confirmations of the receivers.
#include <cerrno>

#include "ZYLCRuntime.h"
#include "ZYLMsgAssert.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferCommon.h"
#include "ZYLMsgFileTransferTexts.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgFileTransferWait.h"
#include "ZYLMsgHeldFile.h"

namespace Texts = ZYLMsgFileTransferTexts;

using ZYLMsgFileTransferCommon::FillNulls;
using ZYLMsgFileTransferCommon::FormPath;
using ZYLMsgFileTransferCommon::OpenToRead;
using ZYLMsgFileTransferCommon::SetControl;
using ZYLMsgFileTransferCommon::SetFailure;
using ZYLMsgFileTransferCommon::SetNames;
using ZYLMsgFileTransferCommon::Text;
using ZYLMsgFileTransferCommon::WasTargetThere;
using ZYLMsgFileTransferCommon::WriteAlarm;

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgUtils.m/src/ZYLMsgFileTransferSending";

}  // namespace

int ZYLMsgFileTransfer::SendFile(const char* sourceApplication, const char* sourceBaseDir,
                                 const char* sourceJobDir, const char* sourceFileName,
                                 const char* targetApplication, const char* targetBaseDir,
                                 const char* targetJobDir, const char* targetFileName) {
    FillNulls({&sourceApplication, &sourceBaseDir, &sourceJobDir, &sourceFileName, &targetApplication,
               &targetBaseDir, &targetJobDir, &targetFileName});
    ZYLMsgHeldFile source(OpenToRead(FormPath(sourceBaseDir, sourceJobDir, sourceFileName).GetUTF8()));
    Wait wait(*this, Awaited::kConfirmation, targetApplication);
    wait.m_sender = Text(sourceApplication);
    wait.m_sentFile = &source;
    SendNotifyAndContent(sourceApplication, sourceBaseDir, sourceJobDir, sourceFileName, targetApplication,
                         targetBaseDir, targetJobDir, targetFileName);
    SendSendCompletion(sourceApplication, targetApplication);
    const ZYLMsgFileTransferOutcome sent = m_lastOutcome;
    if (WasTargetThere()) {
        wait.Run();
    } else {
        wait.End({false, Text(Texts::NotThere(targetApplication).c_str()), 0});
        wait.Look();
    }
    if (!wait.m_isOver) {
        m_lateConfirmationMap[wait.m_application] += 1;
    }
    const ZYLMsgFileTransferOutcome& failed = sent.ok ? wait.m_outcome : sent;
    m_lastOutcome = {failed.ok, failed.text, sent.bytes};
    return 0;
}

int ZYLMsgFileTransfer::ISendFile(const char* sourceApplication, const char* sourceBaseDir,
                                  const char* sourceJobDir, const char* sourceFileName,
                                  const char* targetApplication, const char* targetBaseDir,
                                  const char* targetJobDir, const char* targetFileName) {
    FillNulls({&sourceApplication, &sourceBaseDir, &sourceJobDir, &sourceFileName, &targetApplication,
               &targetBaseDir, &targetJobDir, &targetFileName});
    const ZYLMsgHeldFile source(OpenToRead(FormPath(sourceBaseDir, sourceJobDir, sourceFileName).GetUTF8()));
    SendNotifyAndContent(sourceApplication, sourceBaseDir, sourceJobDir, sourceFileName, targetApplication,
                         targetBaseDir, targetJobDir, targetFileName);
    SendISendCompletion(targetApplication);
    if (m_lastOutcome.ok && !WasTargetThere()) {
        SetFailure(m_lastOutcome, Texts::NotThere(targetApplication));
    }
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
    const ZYLString path = FormPath(sourceBaseDir, sourceJobDir, sourceFileName);
    const ZYLMsgHeldFile source(OpenToHold(path.GetUTF8()));
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
    const ZYLString path = FormPath(sourceBaseDir, sourceJobDir, sourceFileName);
    (this->*open)(sourceApplication, path.GetUTF8(), true);
    for (ReadChunk(); m_contentMsg->Data().m_chunkSize > 0; ReadChunk()) {
        SendChunk(targetApplication);
    }
    const int readError = errno;
    if (m_fileId >= 0 && m_contentMsg->Data().m_chunkSize < 0) {
        SetFailure(m_lastOutcome, Texts::CutShort("read", path.GetUTF8(), readError));
        WriteAlarm(m_lastOutcome);
    }
    CloseFile(m_fileId);
    m_contentMsg->Data().m_chunkId = 0;
    return 0;
}

int ZYLMsgFileTransfer::ReadChunk() {
    ZYL_ASSERT(m_contentMsg != NULL);
    ZYLMsgFileTransferData& data = m_contentMsg->Data();
    data.m_chunkSize = m_fileId < 0 ? -1
                                    : _read(m_fileId, const_cast<void*>(data.m_chunk),
                                            static_cast<unsigned>(m_maxChunkSize));
    const int readError = errno;
    Log(4, "::ReadChunk fileId %d bytes %d\n", m_fileId, data.m_chunkSize);
    Flush(4);
    errno = readError;
    return 0;
}

int ZYLMsgFileTransfer::SendChunk(const char* targetApplication) {
    ZYL_ASSERT(m_contentMsg != NULL);
    m_contentMsg->Data().m_chunkId += 1;
    m_contentMsg->Data().m_dataType = FILE_TRANSFER_CHUNK;
    ZYLMsgBBAPI::SendRequest(m_communicatorId, targetApplication, *m_contentMsg);
    if (WasTargetThere()) {
        m_lastOutcome.bytes += m_contentMsg->Data().m_chunkSize;
    }
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
    completion.Data().m_targetFileName = m_lastOutcome.text;
    ZYLMsgBBAPI::SendRequest(m_communicatorId, targetApplication, completion);
    return 0;
}

int ZYLMsgFileTransfer::SendISendCompletion(const char* application) {
    Log(1, "::SendISendCompletion Application=%s \n", application);
    Flush(1);
    ZYLMsgFileTransferType completion;
    SetControl(completion.Data(), FILE_TRANSFER_ISEND_COMPLETION);
    completion.Data().m_targetFileName = m_lastOutcome.text;
    ZYLMsgBBAPI::SendRequest(m_communicatorId, application, completion);
    return 0;
}

int ZYLMsgFileTransfer::ReceiveReceiveCompletion() {
    m_endingCondition = 0;
    return 0;
}

void ZYLMsgFileTransfer::NoteConfirmation(const char* targetApplication, const char* failure) {
    const ZYLString application = Text(targetApplication);
    Wait* wait = OldestWait(Awaited::kConfirmation, &application);
    auto late = m_lateConfirmationMap.find(application);
    if (wait == nullptr && late == m_lateConfirmationMap.end() && !IsKnown(application)) {
        // The identifier of a target need not be its name.
        wait = OldestWait(Awaited::kConfirmation, nullptr);
        late = m_lateConfirmationMap.begin();
    }
    if (late != m_lateConfirmationMap.end()) {
        if (--late->second == 0) {
            m_lateConfirmationMap.erase(ZYLString(late->first));
        }
        return;
    }
    if (wait == nullptr) {
        return;
    }
    ZYLMsgFileTransferOutcome outcome;
    if (*failure != '\0') {
        SetFailure(outcome, Texts::Report(targetApplication, failure));
        Log(4, "ZYLMsgFileTransfer: %s\n", outcome.text.GetUTF8());
        Flush(4);
    }
    wait->End(outcome);
}

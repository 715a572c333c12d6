#include "ZYLMsgFileTransferHandler.h"

#include "ZYLMsgAssert.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferType.h"

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgHandlers.m/src/ZYLMsgFileTransferHandler";

}  // namespace

ZYLMsgFileTransferHandler::ZYLMsgFileTransferHandler(ZYLMsgFileTransfer* fileTransfer)
    : m_fileTransfer(fileTransfer) {}

ZYLMsgFileTransferHandler::~ZYLMsgFileTransferHandler() = default;

void ZYLMsgFileTransferHandler::HandleMessage(const ZYLMsgBBMessage& message, const char* id) {
    const auto* fileTransferMessage = static_cast<const ZYLMsgFileTransferType*>(&message);
    ZYL_ASSERT(fileTransferMessage != NULL);
    ZYL_ASSERT(m_fileTransfer != NULL);
    const ZYLMsgFileTransferData& data = fileTransferMessage->Data();
    switch (data.m_dataType) {
        case FILE_TRANSFER_SEND_REQUEST:
            m_fileTransfer->Send(data.m_sourceApplication.GetUTF8(), data.m_sourceBaseDir.GetUTF8(),
                                 data.m_sourceJobDir.GetUTF8(), data.m_sourceFileName.GetUTF8(),
                                 data.m_targetApplication.GetUTF8(), data.m_targetBaseDir.GetUTF8(),
                                 data.m_targetJobDir.GetUTF8(), data.m_targetFileName.GetUTF8());
            m_fileTransfer->SendISendCompletion(data.m_targetApplication.GetUTF8());
            break;
        case FILE_TRANSFER_RECEIVE_REQUEST:
            m_fileTransfer->Receive(data.m_sourceApplication.GetUTF8(), data.m_sourceBaseDir.GetUTF8(),
                                    data.m_sourceJobDir.GetUTF8(), data.m_sourceFileName.GetUTF8(),
                                    data.m_targetApplication.GetUTF8(), data.m_targetBaseDir.GetUTF8(),
                                    data.m_targetJobDir.GetUTF8(), data.m_targetFileName.GetUTF8());
            break;
        case FILE_TRANSFER_CHUNK:
            m_fileTransfer->ReceiveChunk(id, data.m_chunkId, data.m_chunkSize, data.m_chunk);
            break;
        case FILE_TRANSFER_SEND_COMPLETION:
            m_fileTransfer->NoteSourceFailure(id, data.m_targetFileName.GetUTF8());
            m_fileTransfer->ReceiveSendCompletion(id);
            break;
        case FILE_TRANSFER_ISEND_COMPLETION:
            m_fileTransfer->NoteSourceFailure(id, data.m_targetFileName.GetUTF8());
            m_fileTransfer->ReceiveISendCompletion(id);
            break;
        case FILE_TRANSFER_RECEIVE_COMPLETION:
            m_fileTransfer->NoteConfirmation(id, data.m_targetFileName.GetUTF8());
            m_fileTransfer->ReceiveReceiveCompletion();
            break;
        default:
            break;
    }
}

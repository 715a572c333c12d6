#ifndef ZYLMSGFILETRANSFERHANDLER_H
#define ZYLMSGFILETRANSFERHANDLER_H

#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgModulesExport.h"

class ZYLMsgFileTransfer;

/// Drives a file-transfer engine with the file-transfer messages that come in. It is registered with a
/// ZYLMsgFileTransferType as its prototype, and under no other type: the message is not asked what it is. The
/// callback manager owns it once it is registered.
class ZYLMSGMODULES_EXPORT ZYLMsgFileTransferHandler : public ZYLMsgBBMessageHandler {
  public:
    /// The engine is not owned and must outlive the registration. A null one is a fatal error on the first
    /// message.
    ZYLMsgFileTransferHandler(ZYLMsgFileTransfer* fileTransfer);
    ~ZYLMsgFileTransferHandler() override;

    /// Answers one step of the protocol. A request to send sends the whole file before it returns. An unknown
    /// step is ignored.
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override;

  private:
    ZYLMsgFileTransfer* m_fileTransfer;
};

#endif

#ifndef ZYLMSGFILETRANSFERHANDLER_H
#define ZYLMSGFILETRANSFERHANDLER_H

#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgModulesExport.h"

class ZYLMsgFileTransfer;

/// Drives a file-transfer engine with the incoming file-transfer messages. Register it only with a
/// ZYLMsgFileTransferType as the prototype: it casts every message to that class unchecked. The callback
/// manager owns it once it is registered.
class ZYLMSGMODULES_EXPORT ZYLMsgFileTransferHandler : public ZYLMsgBBMessageHandler {
  public:
    /// The engine is not owned and must outlive the registration. With a null engine, the first message is
    /// a fatal error.
    ZYLMsgFileTransferHandler(ZYLMsgFileTransfer* fileTransfer);
    ~ZYLMsgFileTransferHandler() override;

    /// Handles one step of the protocol and ignores an unknown one. For a send request it sends the whole
    /// file before it returns.
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override;

  private:
    ZYLMsgFileTransfer* m_fileTransfer;
};

#endif

#ifndef ZYLMSGPRINTINGHANDLER_H
#define ZYLMSGPRINTINGHANDLER_H

#include <cstdio>

#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgModulesExport.h"

/// Writes each incoming message to a stream: a line with the sender's identifier, flushed, then what the
/// message's own Print writes. Any message type may be registered with one. The callback manager owns it once
/// it is registered.
class ZYLMSGMODULES_EXPORT ZYLMsgPrintingHandler : public ZYLMsgBBMessageHandler {
  public:
    /// `stream` is not owned and must stay open while the handler is registered. Without one nothing is
    /// written.
    ZYLMsgPrintingHandler(FILE* stream);
    ~ZYLMsgPrintingHandler() override;

    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override;

  private:
    FILE* m_stream;
};

#endif

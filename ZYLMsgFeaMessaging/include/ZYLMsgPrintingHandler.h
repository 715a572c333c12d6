#ifndef ZYLMSGPRINTINGHANDLER_H
#define ZYLMSGPRINTINGHANDLER_H

#include <cstdio>

#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgModulesExport.h"

/// Writes each incoming message to a stream: a line with the sender's identifier, flushed, then the
/// message's own Print. It works with any message type. The callback manager owns it once it is
/// registered.
class ZYLMSGMODULES_EXPORT ZYLMsgPrintingHandler : public ZYLMsgBBMessageHandler {
  public:
    /// `stream` is not owned and must stay open while the handler is registered. With a null stream the
    /// handler writes nothing.
    ZYLMsgPrintingHandler(FILE* stream);
    ~ZYLMsgPrintingHandler() override;

    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override;

  private:
    FILE* m_stream;
};

#endif

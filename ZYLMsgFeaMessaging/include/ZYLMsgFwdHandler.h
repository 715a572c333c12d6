#ifndef ZYLMSGFWDHANDLER_H
#define ZYLMSGFWDHANDLER_H

#include <cstdio>

#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// Forwards each incoming message to another application. The content is unchanged, but the identifier is
/// this process's, so the receiver does not learn the original sender. It works with any message type. The
/// callback manager owns it once it is registered.
class ZYLMSGMODULES_EXPORT ZYLMsgFwdHandler : public ZYLMsgBBMessageHandler {
  public:
    /// Forwards to the application `target` over `communicator`, without a trace.
    ZYLMsgFwdHandler(const ZYLString& target, int communicator);
    ~ZYLMsgFwdHandler() override;

    /// Prints each message to `stream` after forwarding it; null ends the trace. The stream is not owned
    /// and must stay open while the handler is registered.
    void SetTrace(FILE* stream);

    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override;

  private:
    ZYLString m_target;
    int m_communicator;
    bool m_trace = false;
    FILE* m_traceStream = nullptr;
};

#endif

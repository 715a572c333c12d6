#ifndef ZYLMSGFWDHANDLER_H
#define ZYLMSGFWDHANDLER_H

#include <cstdio>

#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// Sends each incoming message on to one other application, as it was received but with this process's
/// identifier in front: the receiver does not learn who sent it first. Any message type may be registered
/// with one. The callback manager owns it once it is registered.
class ZYLMSGMODULES_EXPORT ZYLMsgFwdHandler : public ZYLMsgBBMessageHandler {
  public:
    /// Forwards to the application `target` over `communicator`, without a trace.
    ZYLMsgFwdHandler(const ZYLString& target, int communicator);
    ~ZYLMsgFwdHandler() override;

    /// Prints each message to `stream` after it was forwarded; null ends the trace. The stream is not owned
    /// and must stay open while the handler is registered. The library itself never sets a trace.
    void SetTrace(FILE* stream);

    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override;

  private:
    ZYLString m_target;
    int m_communicator;
    bool m_trace = false;
    FILE* m_traceStream = nullptr;
};

#endif

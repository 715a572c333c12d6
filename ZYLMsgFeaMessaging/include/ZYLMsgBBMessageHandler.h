#ifndef ZYLMSGBBMESSAGEHANDLER_H
#define ZYLMSGBBMESSAGEHANDLER_H

#include "ZYLMsgModulesExport.h"
#include "mem_AllocationOperators.h"

class ZYLMsgBBMessage;

/// Receives every incoming message of the type under which it is registered. Applications derive their own
/// handlers from it. Create a handler with `new` and register it once; the callback manager then owns and
/// deletes it. It runs inside the application's waiting loops, on their thread, and may send and wait.
class ZYLMSGMODULES_EXPORT ZYLMsgBBMessageHandler : public mem_AllocationOperators {
  public:
    ZYLMsgBBMessageHandler();
    ZYLMsgBBMessageHandler(const ZYLMsgBBMessageHandler&) = delete;
    ZYLMsgBBMessageHandler& operator=(const ZYLMsgBBMessageHandler&) = delete;
    virtual ~ZYLMsgBBMessageHandler();

    /// Called once for each incoming message. `id` is the sender's identifier, NUL-terminated. Both are
    /// valid only during the call.
    virtual void HandleMessage(const ZYLMsgBBMessage& message, const char* id) = 0;
};

#endif

#ifndef ZYLMSGBBDISCONNECTHANDLER_H
#define ZYLMSGBBDISCONNECTHANDLER_H

#include "ZYLMsgModulesExport.h"
#include "mem_AllocationOperators.h"

/// Receives the reports of lost peers. At most one handler is associated with the callback manager, which
/// does not own it: the application keeps it alive as long as reports may arrive, and deletes it. It runs
/// inside the application's waiting loops, on their thread.
class ZYLMSGMODULES_EXPORT ZYLMsgBBDisconnectHandler : public mem_AllocationOperators {
  public:
    ZYLMsgBBDisconnectHandler();
    ZYLMsgBBDisconnectHandler(const ZYLMsgBBDisconnectHandler&) = delete;
    ZYLMsgBBDisconnectHandler& operator=(const ZYLMsgBBDisconnectHandler&) = delete;
    virtual ~ZYLMsgBBDisconnectHandler();

    /// Called for every lost peer with its process number, application name, host and user. The texts are
    /// NUL-terminated UTF-8 and valid only during the call.
    virtual void DetectDisconnection(int pid, const char* app, const char* host, const char* user) const = 0;
};

#endif

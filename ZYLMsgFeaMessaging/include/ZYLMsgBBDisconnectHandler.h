#ifndef ZYLMSGBBDISCONNECTHANDLER_H
#define ZYLMSGBBDISCONNECTHANDLER_H

#include "ZYLMsgModulesExport.h"
#include "mem_AllocationOperators.h"

/// Receives the reports of lost peers. At most one is associated with the callback manager, which never owns
/// it: the application keeps it alive for as long as reports may come, and deletes it afterwards. It runs
/// inside the application's waiting loops, on their thread.
class ZYLMSGMODULES_EXPORT ZYLMsgBBDisconnectHandler : public mem_AllocationOperators {
  public:
    ZYLMsgBBDisconnectHandler();
    ZYLMsgBBDisconnectHandler(const ZYLMsgBBDisconnectHandler&) = delete;
    ZYLMsgBBDisconnectHandler& operator=(const ZYLMsgBBDisconnectHandler&) = delete;
    virtual ~ZYLMsgBBDisconnectHandler();

    /// Called for every report: the lost peer's process number, application name, host and user, as
    /// NUL-terminated UTF-8 that lives only during the call.
    virtual void DetectDisconnection(int pid, const char* app, const char* host, const char* user) const = 0;
};

#endif

#ifndef ZYLMSGPROCESSCONTROLTYPEFACTORY_H
#define ZYLMSGPROCESSCONTROLTYPEFACTORY_H

#include "ZYLBasSharedPtr.h"
#include "ZYLMsgBBMessage.h"
#include "ZYLMsgModulesExport.h"

/// Makes encoded kill requests, ready to send. Static members only.
class ZYLMSGMODULES_EXPORT ZYLMsgProcessControlTypeFactory {
  public:
    /// A new ZYLMsgProcessControlType that asks for a soft or a hard kill. The pointer returned is its
    /// only owner.
    static ZYLBasSharedPtr<ZYLMsgBBMessage> CreateSoftKillMsg();
    static ZYLBasSharedPtr<ZYLMsgBBMessage> CreateHardKillMsg();

  private:
    static ZYLBasSharedPtr<ZYLMsgBBMessage> CreateKillMsg(const char* killType);
};

#endif

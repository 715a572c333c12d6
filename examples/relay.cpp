// The relay of a small analysis: forwards every string message to the monitor, and leaves with the solver.

#include <cstdio>

#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgFwdHandler.h"
#include "ZYLMsgSimpleDisconnectHandler.h"
#include "ZYLMsgStringType.h"

int main() {
    // Deletes the prototypes and handlers when the process ends, in whatever way.
    static const ZYLMsgBBCallbackManager manager;
    int domain = 0;
    ZYLMsgBBAPI::RegisterCommunicator("analysis", domain);
    ZYLMsgBBAPI::DeclareApplicationId(domain, "relay", true);
    ZYLMsgBBCallbackManager::SetMessageID("relay");
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(
        new ZYLMsgStringType, new ZYLMsgFwdHandler(ZYLString::BuildFromUTF8("monitor"), domain));

    ZYLMsgSimpleDisconnectHandler solver;
    solver.SetWatchApplication("solver", -1, nullptr);
    solver.SetDisconnectBehavior(ZYLMsgSimpleDisconnectHandler::e_exit);
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&solver);

    ZYLMsgBBAPI::EnableReceiveHandling(domain, "relay");
    ZYLMsgBBAPI::EnableDisconnectHandling(domain, "relay");
    ZYLMsgBBAPI::WaitingLoop(domain, -1, solver.EndingCondition());
}

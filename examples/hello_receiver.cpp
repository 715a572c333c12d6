#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgPrintingHandler.h"
#include "ZYLMsgStringType.h"

int main() {
    int domain = 0;
    ZYLMsgBBAPI::RegisterCommunicator("hello", domain);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType,
                                                      new ZYLMsgPrintingHandler(stdout));
    ZYLMsgBBAPI::EnableReceiveHandling(domain, "receiver");
    int endingCondition = -1;
    ZYLMsgBBAPI::WaitingLoop(domain, -1, endingCondition);  // prints what comes until it is interrupted
}

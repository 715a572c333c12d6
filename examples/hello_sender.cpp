#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgStringType.h"

int main() {
    int domain = 0;
    ZYLMsgBBAPI::RegisterCommunicator("hello", domain);
    ZYLMsgBBAPI::DeclareApplicationId(domain, "sender", true);
    ZYLMsgBBCallbackManager::SetMessageID("sender");
    ZYLMsgStringType message;
    message.SetData("Hello!", 6);
    ZYLMsgBBAPI::SendRequest(domain, "receiver", message);  // waits for a receiver that is not there yet
}

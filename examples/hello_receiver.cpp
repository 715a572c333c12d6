#include <cstdio>

#include "QORText.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgStringType.h"

class TextPrinter : public ZYLMsgBBMessageHandler {
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        const auto& text = static_cast<const ZYLMsgStringType&>(message);
        const auto size = static_cast<std::size_t>(text.Size());
        // Printable gives a terminal no orders, whatever was sent.
        std::printf("%s says: %s\n", QORText::Printable(id).c_str(),
                    QORText::Printable({text.Data(), size}, size).c_str());
        std::fflush(stdout);
    }
};

int main() {
    int domain = 0;
    ZYLMsgBBAPI::RegisterCommunicator("hello", domain);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType, new TextPrinter);
    ZYLMsgBBAPI::EnableReceiveHandling(domain, "receiver");
    int endingCondition = -1;
    ZYLMsgBBAPI::WaitingLoop(domain, -1, endingCondition);  // prints what comes until it is interrupted
}

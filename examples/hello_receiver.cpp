#include <cctype>
#include <cstdio>
#include <string_view>

#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgStringType.h"

/// Gives a terminal no orders.
void Show(std::string_view text) {
    for (const char character : text) {
        std::putchar(std::iscntrl(static_cast<unsigned char>(character)) != 0 ? '?' : character);
    }
}

class TextPrinter : public ZYLMsgBBMessageHandler {
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        const auto& text = static_cast<const ZYLMsgStringType&>(message);
        Show(id);
        Show(" says: ");
        Show({text.Data(), static_cast<std::size_t>(text.Size())});
        std::puts("");
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

// A whole received buffer of any registered type: shown as a line, and on its way through the callback
// manager.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "EnvelopeLine.h"
#include "Fuzz.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgStringType.h"

namespace {

/// One of the concrete messages, which the first byte of an input selects.
std::unique_ptr<ZYLMsgBBMessage> NewMessage(char selector) {
    switch (static_cast<unsigned char>(selector) % 4) {
        case 0:
            return std::make_unique<ZYLMsgStringType>();
        case 1:
            return std::make_unique<ZYLMsgFileTransferType>();
        case 2:
            return std::make_unique<ZYLMsgAnalysisMessageType>();
        default:
            return std::make_unique<ZYLMsgProcessControlType>();
    }
}

/// What Stream writes, into a block of exactly its size.
std::string BodyOf(const ZYLMsgBBMessage& message) {
    const int size = message.RequiredBufferSize();
    Require(size >= 0, "a body's size is not negative");
    const auto block = std::make_unique<char[]>(static_cast<std::size_t>(size));
    message.Stream(block.get(), size);
    return {block.get(), static_cast<std::size_t>(size)};
}

/// Looks at everything in a message that was accepted from `size` bytes, and sends it on.
void Use(const ZYLMsgBBMessage& message, std::size_t size) {
    static FILE* const nowhere = std::fopen("/dev/null", "w");
    message.Print(nowhere, "prefix ");
    const std::string body = BodyOf(message);
    Require(body.size() <= size, "a message is not longer than the bytes it came from");
    const std::unique_ptr<ZYLMsgBBMessage> again(message.Clone());
    again->Unstream(body.data(), static_cast<int>(body.size()));
    Require(BodyOf(*again) == body, "a body that was read and written again stays as it is");
}

struct Handler final : ZYLMsgBBMessageHandler {
    static inline std::size_t s_received = 0;
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        Require(std::strlen(id) <= s_received, "an identifier lies within its envelope");
        Use(message, s_received);
    }
};

/// All types, for as long as the object lives.
class Registration {
  public:
    Registration() {
        for (const char selector : {'\0', '\1', '\2', '\3'}) {
            ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(NewMessage(selector).release(), new Handler);
        }
    }

  private:
    ZYLMsgBBCallbackManager m_emptiesTheRegistries;
};

}  // namespace

void RunInput(std::string_view input) {
    static const Registration registered;
    if (input.empty()) {
        return;
    }
    const std::unique_ptr<ZYLMsgBBMessage> named = NewMessage(input.front());
    input.remove_prefix(1);
    const std::string line = EnvelopeLine(named->Type(), input);
    Require(
        std::none_of(line.begin(), line.end(), [](unsigned char byte) { return std::iscntrl(byte) != 0; }),
        "a line is one line and gives no orders");
    Handler::s_received = input.size();
    ZYLMsgBBCallbackManager::HandleMessage(named->Type(), input.data(), static_cast<int>(input.size()));
}

// A whole received buffer of any registered type: shown as a line, and on its way through the callback
// manager.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "EnvelopeLine.h"
#include "Messages.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"

namespace {

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

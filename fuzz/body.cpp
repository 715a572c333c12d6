// The body of each message, read into a fresh message and once more into the same one.
#include "Messages.h"

void RunInput(std::string_view input) {
    if (input.empty()) {
        return;
    }
    const std::unique_ptr<ZYLMsgBBMessage> message = NewMessage(input.front());
    input.remove_prefix(1);
    const auto size = static_cast<int>(input.size());
    message->Unstream(input.data(), size);
    Use(*message, input.size());
    message->Unstream(input.data(), size / 2);
    Use(*message, input.size());
}

// The document of a kill request.
#include <cstdint>
#include <cstring>

#include "Messages.h"

void RunInput(std::string_view input) {
    const auto length = static_cast<std::uint32_t>(input.size());
    std::string body(sizeof length, '\0');
    std::memcpy(body.data(), &length, sizeof length);
    body += input;
    ZYLMsgProcessControlType message;
    message.Unstream(body.data(), static_cast<int>(body.size()));
    const ZYLString kill = message.GetVal(ZYLString::BuildFromUTF8("Kill"));
    Require(kill == "SOFT_KILL" || kill == "HARD_KILL", "an accepted request is soft or hard");
    Require(message.ControlType() == ZYLMsgProcessControlType::PROCESS_CONTROL_KILL, "it is a kill request");
    Use(message, body.size());
}

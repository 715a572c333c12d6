#include "ZYLMsgBBMessage.h"

#include <cstring>

ZYLMsgBBMessage::ZYLMsgBBMessage(const ZYLString& type) : m_type(type) {}

ZYLMsgBBMessage::~ZYLMsgBBMessage() = default;

const char* ZYLMsgBBMessage::Type() const {
    return m_type.GetUTF8();
}

bool ZYLMsgBBMessage::SameType(const ZYLMsgBBMessage& other) const {
    return std::strcmp(other.Type(), Type()) == 0;
}

void ZYLMsgBBMessage::Print(FILE* stream, const char* prefix) const {
    const ZYLString prefixText = ZYLString::BuildFromUTF8(prefix);
    std::fprintf(stream, "%sMessage Type: %s\n", prefixText.GetUTF8(), Type());
}

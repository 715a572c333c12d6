#include "ZYLMsgWireReader.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "QORFatalError.h"
#include "mem_AllocationOperators.h"

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgBackbone.m/src/ZYLMsgWireReader";

}  // namespace

ZYLMsgWireReader::Text ZYLMsgWireReader::CopyText(int length, const char* field) {
    const char* const bytes = ReadBytes(length, field);
    Text text(new (mem_BuiltInAlloc{}) char[static_cast<std::size_t>(length) + 1]);
    *std::copy_n(bytes, length, text.get()) = '\0';
    return text;
}

ZYLString ZYLMsgWireReader::ReadText(int length, const char* field) {
    return length == 0 ? ZYLString() : ZYLString::BuildFromUTF8(CopyText(length, field).get());
}

ZYLString ZYLMsgWireReader::ReadString(const char* field) {
    const int length = ReadInt(field);
    return ReadText(length, field);
}

void ZYLMsgWireReader::Refuse(int length, const char* field) const {
    const std::string message = std::string("AssertionFailed:") + field + ": " + std::to_string(length) +
                                " bytes needed, " + std::to_string(m_left) + " bytes left";
    QORFatalError(message.c_str(), nullptr, nullptr, nullptr, kSourceFile, __LINE__);
}

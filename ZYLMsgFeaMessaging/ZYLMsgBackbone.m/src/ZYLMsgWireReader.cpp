#include "ZYLMsgWireReader.h"

#include <fmt/format.h>

#include <cstddef>
#include <string>

#include "QORFatalError.h"
#include "mem_AllocationOperators.h"
#include "mem_Copy.h"

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgBackbone.m/src/ZYLMsgWireReader";

}  // namespace

ZYLMsgWireReader::Text ZYLMsgWireReader::CopyText(int length, const char* field) {
    const char* const bytes = ReadBytes(length, field);
    Text text(new (mem_BuiltInAlloc{}) char[static_cast<std::size_t>(length) + 1]);
    mem_Copy(text.get(), bytes, static_cast<std::size_t>(length));
    text[static_cast<std::size_t>(length)] = '\0';
    return text;
}

void ZYLMsgWireReader::Refuse(int length, const char* field) const {
    const std::string message =
        fmt::format("AssertionFailed:{}: {} bytes needed, {} bytes left", field, length, m_left);
    QORFatalError(message.c_str(), nullptr, nullptr, nullptr, kSourceFile, __LINE__);
}

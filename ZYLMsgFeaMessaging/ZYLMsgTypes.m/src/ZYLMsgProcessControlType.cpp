#include "ZYLMsgProcessControlType.h"

#include <climits>
#include <memory>

#include "ZYLMsgAssert.h"
#include "ZYLMsgProcessControlEncoder.h"
#include "ZYLMsgStreamUtils.h"
#include "ZYLMsgWireReader.h"

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgProcessControlType";

}  // namespace

ZYLMsgProcessControlType::ZYLMsgProcessControlType()
    : ZYLMsgBBMessage(ZYLString::BuildFromUTF8("ZYLMsgProcessControlType")),
      m_processControlType(PROCESS_CONTROL_NONE) {}

ZYLMsgProcessControlType::~ZYLMsgProcessControlType() = default;

ZYLMsgProcessControlType::ProcessControlTypeEnm ZYLMsgProcessControlType::ControlType() const {
    return m_processControlType;
}

ZYLString ZYLMsgProcessControlType::GetVal(const ZYLString& name) const {
    const auto attribute = m_attributes.find(name);
    return attribute != m_attributes.end() ? attribute->second : ZYLString();
}

bool ZYLMsgProcessControlType::isPresent(const ZYLString& name) const {
    return m_attributes.find(name) != m_attributes.end();
}

int ZYLMsgProcessControlType::RequiredBufferSize() const {
    ZYL_ASSERT(m_xmlMessage.GetLengthInChar() > 0);
    ZYL_ASSERT(m_xmlMessage.GetLengthInByte() <= INT_MAX - 4);
    return m_xmlMessage.GetLengthInByte() + 4;
}

void ZYLMsgProcessControlType::Stream(void* buffer, int size) const {
    ZYL_ASSERT(size >= RequiredBufferSize());
    int offset = 0;
    ZYLMsgStreamUtils::StreamZYLString(m_xmlMessage, static_cast<char*>(buffer), offset);
}

void ZYLMsgProcessControlType::Unstream(const void* buffer, int size) {
    ZYLMsgWireReader body(buffer, size);
    const int len = body.ReadInt("m_xmlMessage");
    ZYL_ASSERT(len > 0);
    body.ReadText(m_xmlMessage, len, "m_xmlMessage");
    ZYLMsgProcessControlEncoder::InternalizeProcessControlMsg(*this);
}

ZYLMsgProcessControlType* ZYLMsgProcessControlType::Clone() const {
    auto clone = std::make_unique<ZYLMsgProcessControlType>();
    clone->m_xmlMessage = m_xmlMessage;
    clone->m_attributes = m_attributes;
    clone->m_processControlType = m_processControlType;
    return clone.release();
}

void ZYLMsgProcessControlType::Print(FILE* stream, const char* prefix) const {
    const ZYLString prefixText = ZYLString::BuildFromUTF8(prefix);
    ZYLMsgBBMessage::Print(stream, prefix);
    std::fprintf(stream, "%s   Content: %s\n", prefixText.GetUTF8(), m_xmlMessage.GetUTF8());
    std::fflush(stream);
}

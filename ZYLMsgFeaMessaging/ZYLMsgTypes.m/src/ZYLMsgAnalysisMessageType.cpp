#include "ZYLMsgAnalysisMessageType.h"

#include <climits>
#include <memory>

#include "ZYLBasXmlDocument.h"
#include "ZYLBasXmlNode.h"
#include "ZYLMsgAssert.h"
#include "ZYLMsgStreamUtils.h"
#include "ZYLMsgWireReader.h"

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgAnalysisMessageType";

}  // namespace

ZYLMsgAnalysisMessageType::ZYLMsgAnalysisMessageType()
    : ZYLMsgBBMessage(ZYLString::BuildFromUTF8("ZYLMsgAnalysisMessageType")) {}

ZYLMsgAnalysisMessageType::ZYLMsgAnalysisMessageType(const ZYLString& xmlBuffer)
    : ZYLMsgBBMessage(ZYLString::BuildFromUTF8("ZYLMsgAnalysisMessageType")), m_msgBuffer(xmlBuffer) {
    ZYL_ASSERT(xmlBuffer.GetLengthInByte() > 0);
}

ZYLMsgAnalysisMessageType::~ZYLMsgAnalysisMessageType() = default;

const ZYLString& ZYLMsgAnalysisMessageType::Document() const {
    return m_msgBuffer;
}

int ZYLMsgAnalysisMessageType::RequiredBufferSize() const {
    ZYL_ASSERT(m_msgBuffer.GetLengthInByte() > 0);
    ZYL_ASSERT(m_msgBuffer.GetLengthInByte() <= INT_MAX - 4);
    return m_msgBuffer.GetLengthInByte() + 4;
}

void ZYLMsgAnalysisMessageType::Stream(void* buffer, int size) const {
    ZYL_ASSERT(size >= RequiredBufferSize());
    int offset = 0;
    ZYLMsgStreamUtils::StreamZYLString(m_msgBuffer, static_cast<char*>(buffer), offset);
}

void ZYLMsgAnalysisMessageType::Unstream(const void* buffer, int size) {
    ZYLMsgWireReader(buffer, size).ReadString(m_msgBuffer, "m_msgBuffer");
}

ZYLMsgAnalysisMessageType* ZYLMsgAnalysisMessageType::Clone() const {
    auto clone = std::make_unique<ZYLMsgAnalysisMessageType>();
    clone->m_msgBuffer = m_msgBuffer;
    return clone.release();
}

void ZYLMsgAnalysisMessageType::Print(FILE* stream, const char* prefix) const {
    const ZYLString prefixText = ZYLString::BuildFromUTF8(prefix != nullptr ? prefix : "DefaultPfix");
    std::fprintf(stream, "Analysis Message Prefix%s\n", prefixText.GetUTF8());
    std::fprintf(stream, "%s\n", m_msgBuffer.GetUTF8());
    std::fflush(stream);
}

ZYLString ZYLMsgAnalysisMessageType::GetRootElemNameFromXml(const ZYLString& xml) {
    ZYLBasXmlDocument document;
    const long hr = document.ReadString(xml);
    ZYL_ASSERT(hr == S_OK);
    ZYLBasXmlNode root;
    document.GetDom(root);
    ZYLString name;
    root.GetTagName(name);
    return name;
}

ZYLString ZYLMsgAnalysisMessageType::GetTypeFromXmlBuffer(const ZYLString& xml) const {
    ZYLString name = GetRootElemNameFromXml(xml);
    const int len = name.GetLengthInChar();
    ZYL_ASSERT(len > 0);
    return name;
}

#include "ZYLMsgStringType.h"

#include <cstddef>

#include "ZYLMsgAssert.h"
#include "ZYLMsgWireReader.h"
#include "mem_Copy.h"

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgStringType";

}  // namespace

ZYLMsgStringType::ZYLMsgStringType()
    : ZYLMsgBBMessage(ZYLString::BuildFromUTF8("ZYLMsgStringType")),
      m_data(nullptr),
      m_size(0),
      m_ownsData(false) {}

ZYLMsgStringType::~ZYLMsgStringType() {
    ReleaseData();
}

void ZYLMsgStringType::SetData(const char* data, int size) {
    ZYL_ASSERT(size >= 0);
    ReleaseData();
    m_data = data;
    m_size = size;
}

const char* ZYLMsgStringType::Data() const {
    return m_data;
}

int ZYLMsgStringType::Size() const {
    return m_size;
}

int ZYLMsgStringType::RequiredBufferSize() const {
    return m_size;
}

void ZYLMsgStringType::Stream(void* buffer, int size) const {
    ZYL_ASSERT(size >= RequiredBufferSize());
    mem_Copy(buffer, m_data, static_cast<std::size_t>(m_size));
}

void ZYLMsgStringType::Unstream(const void* buffer, int size) {
    const char* const bytes = ZYLMsgWireReader(buffer, size).ReadBytes(size, "m_data");
    char* const data = new (mem_BuiltInAlloc{}) char[static_cast<std::size_t>(size)];
    mem_Copy(data, bytes, static_cast<std::size_t>(size));
    SetData(data, size);
    m_ownsData = true;
}

ZYLMsgStringType* ZYLMsgStringType::Clone() const {
    return new ZYLMsgStringType;
}

void ZYLMsgStringType::Print(FILE* stream, const char* prefix) const {
    const ZYLString prefixText = ZYLString::BuildFromUTF8(prefix);
    ZYLMsgBBMessage::Print(stream, prefix);
    std::fprintf(stream, "%s   size: %d\n", prefixText.GetUTF8(), m_size);
    if (m_size > 0) {
        std::fprintf(stream, "%s   data[0]: %c\n", prefixText.GetUTF8(), m_data[0]);
        std::fprintf(stream, "%s   data[%d]: %c\n", prefixText.GetUTF8(), m_size - 1, m_data[m_size - 1]);
    }
    std::fflush(stream);
}

void ZYLMsgStringType::ReleaseData() {
    if (m_ownsData) {
        mem_deleteBuiltIn(const_cast<char*>(m_data));
        m_data = nullptr;
        m_ownsData = false;
    }
}

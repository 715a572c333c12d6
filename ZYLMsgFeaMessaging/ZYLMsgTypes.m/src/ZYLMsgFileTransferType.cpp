#include "ZYLMsgFileTransferType.h"

#include <climits>
#include <cstddef>
#include <cstdint>

#include "ZYLMsgAssert.h"
#include "ZYLMsgStreamUtils.h"
#include "ZYLMsgWireReader.h"
#include "ZYLSimRpm_Swapper.h"
#include "mem_Copy.h"

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgFileTransferType";

/// The bytes of a body without texts and chunk: the code, eight lengths, the chunk's number and size.
constexpr std::int64_t kFixedSize = 44;

struct StringField {
    ZYLString ZYLMsgFileTransferData::*value;
    const char* name;
};

/// The eight strings in the order of the wire.
constexpr StringField kStrings[] = {
    {&ZYLMsgFileTransferData::m_sourceApplication, "m_sourceApplication"},
    {&ZYLMsgFileTransferData::m_sourceBaseDir, "m_sourceBaseDir"},
    {&ZYLMsgFileTransferData::m_sourceJobDir, "m_sourceJobDir"},
    {&ZYLMsgFileTransferData::m_sourceFileName, "m_sourceFileName"},
    {&ZYLMsgFileTransferData::m_targetApplication, "m_targetApplication"},
    {&ZYLMsgFileTransferData::m_targetBaseDir, "m_targetBaseDir"},
    {&ZYLMsgFileTransferData::m_targetJobDir, "m_targetJobDir"},
    {&ZYLMsgFileTransferData::m_targetFileName, "m_targetFileName"},
};

void StreamInt(int value, char* buffer, int& offset) {
    offset += static_cast<int>(ZYLSimRpm_Swapper::ExternalizeScalar(buffer + offset, value));
}

}  // namespace

ZYLMsgFileTransferType::ZYLMsgFileTransferType()
    : ZYLMsgBBMessage(ZYLString::BuildFromUTF8("ZYLMsgFileTransferType")), m_ownsChunk(false) {}

ZYLMsgFileTransferType::~ZYLMsgFileTransferType() {
    ReleaseChunk();
}

ZYLMsgFileTransferData& ZYLMsgFileTransferType::Data() {
    return m_data;
}

const ZYLMsgFileTransferData& ZYLMsgFileTransferType::Data() const {
    return m_data;
}

int ZYLMsgFileTransferType::RequiredBufferSize() const {
    ZYL_ASSERT(m_data.m_chunkSize >= 0);
    std::int64_t total = kFixedSize + m_data.m_chunkSize;
    for (const StringField& field : kStrings) {
        total += (m_data.*field.value).GetLengthInByte();
    }
    ZYL_ASSERT(total <= INT_MAX);
    return static_cast<int>(total);
}

void ZYLMsgFileTransferType::Stream(void* buffer, int size) const {
    ZYL_ASSERT(size >= RequiredBufferSize());
    char* const out = static_cast<char*>(buffer);
    int offset = 0;
    StreamInt(m_data.m_dataType, out, offset);
    for (const StringField& field : kStrings) {
        ZYLMsgStreamUtils::StreamZYLString(m_data.*field.value, out, offset);
    }
    StreamInt(m_data.m_chunkId, out, offset);
    StreamInt(m_data.m_chunkSize, out, offset);
    mem_Copy(out + offset, m_data.m_chunk, static_cast<std::size_t>(m_data.m_chunkSize));
    offset += m_data.m_chunkSize;
    ZYL_ASSERT(offset == RequiredBufferSize());
}

void ZYLMsgFileTransferType::Unstream(const void* buffer, int size) {
    ZYLMsgWireReader body(buffer, size);
    m_data.m_dataType = body.ReadInt("m_dataType");
    for (const StringField& field : kStrings) {
        body.ReadString(m_data.*field.value, field.name);
    }
    m_data.m_chunkId = body.ReadInt("m_chunkId");
    const int chunkSize = body.ReadInt("m_chunkSize");
    const char* const chunk = body.ReadBytes(chunkSize, "m_chunk");
    if (chunkSize > 0) {
        char* const copy = new (mem_BuiltInAlloc{}) char[static_cast<std::size_t>(chunkSize)];
        mem_Copy(copy, chunk, static_cast<std::size_t>(chunkSize));
        ReleaseChunk();
        m_data.m_chunk = copy;
        m_ownsChunk = true;
    }
    m_data.m_chunkSize = chunkSize;
}

ZYLMsgFileTransferType* ZYLMsgFileTransferType::Clone() const {
    return new ZYLMsgFileTransferType;
}

void ZYLMsgFileTransferType::Print(FILE* stream, const char* prefix) const {
    const ZYLString prefixText = ZYLString::BuildFromUTF8(prefix);
    ZYLMsgBBMessage::Print(stream, prefix);
    std::fprintf(stream, "%s   DataType: %d\n", prefixText.GetUTF8(), m_data.m_dataType);
}

void ZYLMsgFileTransferType::ReleaseChunk() {
    if (m_ownsChunk) {
        mem_Free(const_cast<void*>(m_data.m_chunk));
        m_data.m_chunk = nullptr;
        m_ownsChunk = false;
    }
}

#include "ZYLMsgFileTransferData.h"

ZYLMsgFileTransferData::ZYLMsgFileTransferData()
    : m_dataType(0), m_chunkId(0), m_chunkSize(0), m_chunk(nullptr) {}

ZYLMsgFileTransferData::~ZYLMsgFileTransferData() {
    m_chunk = nullptr;
}

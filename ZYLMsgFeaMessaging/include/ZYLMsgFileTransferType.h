#ifndef ZYLMSGFILETRANSFERTYPE_H
#define ZYLMSGFILETRANSFERTYPE_H

#include "ZYLMsgBBMessage.h"
#include "ZYLMsgFileTransferData.h"
#include "ZYLMsgModulesExport.h"

/// The one message of the file-transfer protocol. Its body is the record field by field, integers and
/// strings in their wire forms:
///
///     m_dataType     4 bytes
///     eight strings  4 bytes and their text each
///     m_chunkId      4 bytes
///     m_chunkSize    4 bytes
///     m_chunk        m_chunkSize bytes
///
/// that is 44 bytes plus the bytes of the strings and the chunk.
class ZYLMSGMODULES_EXPORT ZYLMsgFileTransferType : public ZYLMsgBBMessage {
  public:
    ZYLMsgFileTransferType();
    ~ZYLMsgFileTransferType() override;

    /// The record, which the sender fills and the handler reads. The message never frees an m_chunk that
    /// the sender set. After Unstream, m_chunk is the message's own copy and must not be replaced.
    ZYLMsgFileTransferData& Data();
    const ZYLMsgFileTransferData& Data() const;

    /// A negative m_chunkSize is a fatal error ("m_data.m_chunkSize >= 0"), here and in Stream.
    int RequiredBufferSize() const override;
    void Stream(void* buffer, int size) const override;

    /// Fills the record from a body and ignores bytes after the chunk. The message copies the chunk into a
    /// block of exactly its size, which it owns; a body without chunk bytes leaves m_chunk unchanged.
    void Unstream(const void* buffer, int size) override;

    /// An empty message; the record is not copied.
    ZYLMsgFileTransferType* Clone() const override;

    /// Writes the type and the code; does not flush.
    void Print(FILE* stream, const char* prefix) const override;

  private:
    void ReleaseChunk();

    ZYLMsgFileTransferData m_data;
    bool m_ownsChunk;
};

#endif

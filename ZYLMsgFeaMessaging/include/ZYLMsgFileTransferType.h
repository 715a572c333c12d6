#ifndef ZYLMSGFILETRANSFERTYPE_H
#define ZYLMSGFILETRANSFERTYPE_H

#include "ZYLMsgBBMessage.h"
#include "ZYLMsgFileTransferData.h"
#include "ZYLMsgModulesExport.h"

/// The one message of the file-transfer protocol. Its body is the record field by field, integers and strings
/// in their wire forms:
///
///     m_dataType (4 bytes) | the eight strings (4 bytes and their text each) | m_chunkId (4) | m_chunkSize
///     (4) | chunk
///
/// that is 44 bytes, the strings' bytes and the chunk's.
class ZYLMSGMODULES_EXPORT ZYLMsgFileTransferType : public ZYLMsgBBMessage {
  public:
    ZYLMsgFileTransferType();
    ~ZYLMsgFileTransferType() override;

    /// The record, filled by the sender and read by the handler. A sender's m_chunk is borrowed, never freed;
    /// on a message that was unstreamed it is the message's own copy and must not be replaced.
    ZYLMsgFileTransferData& Data();
    const ZYLMsgFileTransferData& Data() const;

    /// A negative m_chunkSize has no body and is a fatal error ("m_data.m_chunkSize >= 0"), here and in
    /// Stream.
    int RequiredBufferSize() const override;
    void Stream(void* buffer, int size) const override;

    /// Fills the record from a body; bytes after the chunk are ignored. A chunk is copied into a block of
    /// exactly its size that the message owns; a body without chunk bytes leaves m_chunk as it was.
    void Unstream(const void* buffer, int size) override;

    /// A new message: nothing is carried over.
    ZYLMsgFileTransferType* Clone() const override;

    /// Writes the type and the code; does not flush.
    void Print(FILE* stream, const char* prefix) const override;

  private:
    void ReleaseChunk();

    ZYLMsgFileTransferData m_data;
    bool m_ownsChunk;
};

#endif

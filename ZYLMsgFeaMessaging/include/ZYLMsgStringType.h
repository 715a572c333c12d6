#ifndef ZYLMSGSTRINGTYPE_H
#define ZYLMSGSTRINGTYPE_H

#include "ZYLMsgBBMessage.h"
#include "ZYLMsgModulesExport.h"

/// A message whose body is a run of bytes that the sender supplies, NUL bytes included. There is no length
/// prefix and no terminator: the body's length is the length of the string. An outgoing message borrows its
/// bytes, an incoming one owns the copy it made.
class ZYLMSGMODULES_EXPORT ZYLMsgStringType : public ZYLMsgBBMessage {
  public:
    /// An empty message.
    ZYLMsgStringType();
    ~ZYLMsgStringType() override;

    /// Makes the `size` bytes at `data` the content. They are borrowed: the caller keeps them alive and
    /// unchanged until the message is streamed or destroyed. A copy that the message owned from an earlier
    /// Unstream is freed. A negative `size` is a fatal error ("size >= 0").
    void SetData(const char* data, int size);

    /// The content: Size() bytes, not NUL-terminated. They are the sender's own after SetData and the
    /// message's after Unstream, and stay valid until either is called again or the message is gone. Null in
    /// a new message.
    const char* Data() const;
    /// The number of bytes of the content.
    int Size() const;

    int RequiredBufferSize() const override;
    void Stream(void* buffer, int size) const override;

    /// Copies the `size` bytes of `buffer`; a copy owned before is freed. A negative `size` is a fatal error.
    void Unstream(const void* buffer, int size) override;

    /// An empty message: the content is not carried over.
    ZYLMsgStringType* Clone() const override;

    /// Writes the type, the size, and the first and the last byte, and flushes. A message without bytes
    /// writes the first two lines only.
    void Print(FILE* stream, const char* prefix) const override;

  private:
    void ReleaseData();

    const char* m_data;
    int m_size;
    bool m_ownsData;
};

#endif

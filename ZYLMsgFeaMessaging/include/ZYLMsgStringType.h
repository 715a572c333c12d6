#ifndef ZYLMSGSTRINGTYPE_H
#define ZYLMSGSTRINGTYPE_H

#include "ZYLMsgBBMessage.h"
#include "ZYLMsgModulesExport.h"

/// A message whose body is a run of bytes, NUL bytes included. There is no length prefix and no
/// terminator: the length of the body is the length of the string. An outgoing message borrows its bytes;
/// an incoming one owns its copy.
class ZYLMSGMODULES_EXPORT ZYLMsgStringType : public ZYLMsgBBMessage {
  public:
    /// An empty message.
    ZYLMsgStringType();
    ~ZYLMsgStringType() override;

    /// Makes the `size` bytes at `data` the content, without copying them: the caller keeps them alive and
    /// unchanged until the message is streamed or destroyed. Frees the copy of an earlier Unstream. A
    /// negative `size` is a fatal error ("size >= 0").
    void SetData(const char* data, int size);

    /// The content: Size() bytes, not NUL-terminated; null in a new message. Valid until SetData or
    /// Unstream is called again or the message is destroyed.
    const char* Data() const;
    /// The number of bytes of the content.
    int Size() const;

    int RequiredBufferSize() const override;
    void Stream(void* buffer, int size) const override;

    /// Copies the `size` bytes of `buffer` and frees an earlier copy. A negative `size` is a fatal error.
    void Unstream(const void* buffer, int size) override;

    /// An empty message; the content is not copied.
    ZYLMsgStringType* Clone() const override;

    /// Writes the type, the size, and the first and the last byte if there are any, and flushes.
    void Print(FILE* stream, const char* prefix) const override;

  private:
    void ReleaseData();

    const char* m_data;
    int m_size;
    bool m_ownsData;
};

#endif

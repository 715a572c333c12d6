#ifndef ZYL_TESTS_MESSAGEBYTES_H
#define ZYL_TESTS_MESSAGEBYTES_H

#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "ZYLMsgBBMessage.h"

/// A heap block of exactly these bytes at an odd address, so that AddressSanitizer sees a read past their end
/// and UndefinedBehaviorSanitizer an aligned access.
class HeapBytes {
  public:
    explicit HeapBytes(const std::string& bytes)
        : m_size(static_cast<int>(bytes.size())), m_block(new char[bytes.size() + 1]) {
        bytes.copy(Get(), bytes.size());
    }
    char* Get() const { return m_block.get() + 1; }
    int Size() const { return m_size; }
    std::string Text() const { return {Get(), static_cast<std::size_t>(m_size)}; }

  private:
    int m_size;
    std::unique_ptr<char[]> m_block;
};

/// What Stream writes into a block of exactly the size the message asks for.
inline std::string BodyOf(const ZYLMsgBBMessage& message) {
    const HeapBytes buffer(std::string(static_cast<std::size_t>(message.RequiredBufferSize()), '?'));
    message.Stream(buffer.Get(), buffer.Size());
    return buffer.Text();
}

inline void UnstreamFrom(const std::string& body, ZYLMsgBBMessage& message) {
    const HeapBytes buffer(body);
    message.Unstream(buffer.Get(), buffer.Size());
}

#endif

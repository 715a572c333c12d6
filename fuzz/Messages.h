#ifndef ZYL_FUZZ_MESSAGES_H
#define ZYL_FUZZ_MESSAGES_H

#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "Fuzz.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgStringType.h"

/// The concrete messages, one of which the first byte of an input selects.

template <class T>
std::unique_ptr<ZYLMsgBBMessage> MakeMessage() {
    return std::make_unique<T>();
}

inline std::unique_ptr<ZYLMsgBBMessage> NewMessage(char selector) {
    using Maker = std::unique_ptr<ZYLMsgBBMessage> (*)();
    static constexpr std::array<Maker, 4> kMakers = {
        MakeMessage<ZYLMsgStringType>, MakeMessage<ZYLMsgFileTransferType>,
        MakeMessage<ZYLMsgAnalysisMessageType>, MakeMessage<ZYLMsgProcessControlType>};
    return kMakers.at(static_cast<unsigned char>(selector) % kMakers.size())();
}

/// What Stream writes, into a block of exactly its size.
inline std::string BodyOf(const ZYLMsgBBMessage& message) {
    const int size = message.RequiredBufferSize();
    Require(size >= 0, "a body's size is not negative");
    const auto block = std::make_unique<char[]>(static_cast<std::size_t>(size));
    message.Stream(block.get(), size);
    return {block.get(), static_cast<std::size_t>(size)};
}

/// Looks at everything in a message that was accepted from `size` bytes, and sends it on.
inline void Use(const ZYLMsgBBMessage& message, std::size_t size) {
    static FILE* const nowhere = std::fopen("/dev/null", "w");
    message.Print(nowhere, "prefix ");
    const std::string body = BodyOf(message);
    Require(body.size() <= size, "a message is not longer than the bytes it came from");
    const std::unique_ptr<ZYLMsgBBMessage> again(message.Clone());
    again->Unstream(body.data(), static_cast<int>(body.size()));
    Require(BodyOf(*again) == body, "a body that was read and written again stays as it is");
}

#endif

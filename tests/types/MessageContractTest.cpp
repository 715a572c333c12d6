#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>

#include "ExpectFatal.h"
#include "MessageBytes.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgProcessControlTypeFactory.h"
#include "ZYLMsgStringType.h"

namespace {

using Owner = std::unique_ptr<ZYLMsgBBMessage>;

Owner MakeString() {
    auto message = std::make_unique<ZYLMsgStringType>();
    message->SetData("hello", 5);
    return message;
}

Owner MakeFileTransfer() {
    auto message = std::make_unique<ZYLMsgFileTransferType>();
    message->Data().m_sourceFileName = ZYLString::BuildFromUTF8("r\xc3\xa9sultat");
    message->Data().m_chunk = "xyz";
    message->Data().m_chunkSize = 3;
    return message;
}

Owner MakeAnalysis() {
    return std::make_unique<ZYLMsgAnalysisMessageType>(ZYLString::BuildFromUTF8("<r/>"));
}

Owner MakeKill() {
    return Owner(ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg()->Clone());
}

struct MessageClass {
    const char* name;
    Owner (*make)();
    Owner (*makePrototype)();
};

template <class T>
Owner New() {
    return std::make_unique<T>();
}

class MessageContract : public testing::TestWithParam<MessageClass> {};

TEST_P(MessageContract, StreamWritesExactlyTheMeasuredBytes) {
    const Owner message = GetParam().make();
    const int size = message->RequiredBufferSize();
    EXPECT_FATAL(message->Stream(nullptr, size - 1), "size >= RequiredBufferSize()",
                 "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/" + std::string(GetParam().name));
    const std::string body = BodyOf(*message);
    const HeapBytes larger(std::string(static_cast<std::size_t>(size) + 3, '?'));
    message->Stream(larger.Get(), larger.Size());
    EXPECT_EQ(larger.Text(), body + "???");
}

TEST_P(MessageContract, BodyPassesThroughACloneOfThePrototype) {
    const Owner sent = GetParam().make();
    const Owner prototype = GetParam().makePrototype();
    const Owner received(prototype->Clone());
    EXPECT_STREQ(received->Type(), GetParam().name);
    EXPECT_NE(static_cast<const void*>(received->Type()), prototype->Type()) << "objects share nothing";
    EXPECT_TRUE(received->SameType(*sent));
    const std::string body = BodyOf(*sent);
    UnstreamFrom(body, *received);
    EXPECT_EQ(BodyOf(*received), body);
    UnstreamFrom(body, *received);
    EXPECT_EQ(BodyOf(*received), body);
}

INSTANTIATE_TEST_SUITE_P(
    EveryType, MessageContract,
    testing::Values(MessageClass{"ZYLMsgStringType", MakeString, New<ZYLMsgStringType>},
                    MessageClass{"ZYLMsgFileTransferType", MakeFileTransfer, New<ZYLMsgFileTransferType>},
                    MessageClass{"ZYLMsgAnalysisMessageType", MakeAnalysis, New<ZYLMsgAnalysisMessageType>},
                    MessageClass{"ZYLMsgProcessControlType", MakeKill, New<ZYLMsgProcessControlType>}),
    [](const auto& param) { return std::string(param.param.name); });

}  // namespace

#include "ZYLMsgStringType.h"

#include <gmock/gmock.h>

#include <memory>

#include "ExpectFatal.h"
#include "MemoryStream.h"
#include "MessageBytes.h"

using namespace std::string_literals;

namespace {

std::string Printed(const ZYLMsgStringType& message, const char* prefix) {
    MemoryStream out;
    message.Print(out.Get(), prefix);
    return out.Flushed();
}

TEST(StringType, BorrowsTheSendersBytes) {
    std::string bytes = "hello";
    ZYLMsgStringType message;
    EXPECT_EQ(BodyOf(message), "");
    message.SetData(bytes.data(), 5);
    bytes[0] = 'j';
    EXPECT_EQ(BodyOf(message), "jello");
    const std::unique_ptr<ZYLMsgStringType> clone(message.Clone());
    EXPECT_EQ(clone->RequiredBufferSize(), 0);
    EXPECT_FATAL(message.SetData(bytes.data(), -1), "size >= 0",
                 "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgStringType");
}

TEST(StringType, OwnsWhatItReceivesUntilNewDataIsSet) {
    ZYLMsgStringType message;
    UnstreamFrom("a\0b"s, message);
    EXPECT_EQ(BodyOf(message), "a\0b"s);
    EXPECT_EQ(std::string(message.Data(), static_cast<std::size_t>(message.Size())), "a\0b"s);
    UnstreamFrom("", message);
    EXPECT_EQ(message.Size(), 0);
    EXPECT_TRUE(message.m_ownsData);
    message.SetData("xy", 2);
    EXPECT_FALSE(message.m_ownsData);
    EXPECT_EQ(BodyOf(message), "xy");
    EXPECT_FATAL(message.Unstream("", -2), "m_data: -2 bytes needed, -2 bytes left",
                 "ZYLMsgFeaMessaging/ZYLMsgBackbone.m/src/ZYLMsgWireReader");
}

TEST(StringType, PrintsSizeAndOuterBytesWhereThereAreAny) {
    ZYLMsgStringType message;
    EXPECT_EQ(Printed(message, "> "), "> Message Type: ZYLMsgStringType\n>    size: 0\n");
    message.SetData("hello", 5);
    EXPECT_EQ(Printed(message, nullptr),
              "Message Type: ZYLMsgStringType\n   size: 5\n   data[0]: h\n   data[4]: o\n");
    message.SetData("x", 1);
    EXPECT_EQ(Printed(message, ""),
              "Message Type: ZYLMsgStringType\n   size: 1\n   data[0]: x\n   data[0]: x\n");
}

}  // namespace

#include <gmock/gmock.h>

#include <string>

#include "ExpectFatal.h"
#include "ZYLMsgStreamUtils.h"
#include "ZYLSimRpm_Swapper.h"

using namespace std::string_literals;

namespace {

TEST(StreamUtils, WritesAndReadsStringsAtTheRunningOffset) {
    char buffer[32] = "?";
    int written = 1;
    for (const char* text : {"", "abc", "\xc3\xa9"}) {
        ZYLMsgStreamUtils::StreamZYLString(ZYLString::BuildFromUTF8(text), buffer, written);
    }
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(written)),
              "?\0\0\0\0\3\0\0\0abc\2\0\0\0\xc3\xa9"s);
    buffer[10] = '\0';  // a NUL ends a received text but not the item
    int read = 1;
    for (const char* expected : {"", "a", "\xc3\xa9"}) {
        ZYLString text = ZYLString::BuildFromUTF8("old");
        const ZYLString copy = text;
        ZYLMsgStreamUtils::UnstreamZYLString(text, buffer, read);
        EXPECT_EQ(text, expected);
        EXPECT_EQ(copy, "old");
    }
    EXPECT_EQ(read, written);
}

TEST(StreamUtils, RefusesLengthsThatCannotBe) {
    const std::string source = "ZYLMsgFeaMessaging/ZYLMsgBackbone.m/src/ZYLMsgWireReader";
    ZYLString text;
    int offset = 2;
    EXPECT_FATAL(ZYLMsgStreamUtils::UnstreamZYLString(text, "??\xff\xff\xff\xff", offset),
                 "string: -1 bytes needed, 2147483641 bytes left", source);
    EXPECT_FATAL(ZYLMsgStreamUtils::UnstreamZYLString(text, "??\xff\xff\xff\x7f", offset),
                 "string: 2147483647 bytes needed, 2147483641 bytes left", source);
}

template <class T>
void ExpectMoved(T value, const std::string& bytes) {
    std::string out(sizeof value + 2, '?');
    EXPECT_EQ(ZYLSimRpm_Swapper::ExternalizeScalar(&out[1], value), sizeof value);
    EXPECT_EQ(out, "?" + bytes + "?");
    T read{};
    EXPECT_EQ(ZYLSimRpm_Swapper::InternalizeScalar(&out[1], read), sizeof value);
    EXPECT_EQ(read, value);
}

TEST(Swapper, CopiesFourAndEightBytesLeastSignificantFirst) {
    ExpectMoved(1, "\1\0\0\0"s);
    ExpectMoved(-1, "\xff\xff\xff\xff");
    ExpectMoved(0x12345678, "\x78\x56\x34\x12");
    ExpectMoved(-2.5, "\0\0\0\0\0\0\4\xc0"s);
    ExpectMoved(0x0102030405060708LL, "\x8\7\6\5\4\3\2\1");
}

}  // namespace

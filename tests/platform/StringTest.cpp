#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "ZYLString.h"

namespace {

ZYLString Text(const char* text) {
    return ZYLString::BuildFromUTF8(text);
}

TEST(ZYLStringTest, LengthsCountBytesAndCharactersAlsoOfMalformedText) {
    struct Case {
        const char* text;
        int characters;
    };
    for (const Case& c : {Case{"", 0}, Case{"abc", 3}, Case{"\xC3\xA4z", 2}, Case{"\xE2\x82\xAC", 1},
                          Case{"\xF0\x9F\x98\x80", 1}, Case{"\xE2\x82", 2}, Case{"\xE2\x82z", 3},
                          Case{"\x80\x80", 2}, Case{"\xFF\xC3\xA4", 2}, Case{"\xF8\x80\x80\x80\x80", 5}}) {
        const ZYLString string = Text(c.text);
        EXPECT_EQ(string.GetLengthInByte(), static_cast<int>(std::strlen(c.text)));
        EXPECT_EQ(string.GetLengthInChar(), c.characters) << testing::PrintToString(std::string(c.text));
    }
}

TEST(ZYLStringTest, CopySharesTheTextUntilOneIsChanged) {
    ZYLString empty = Text(nullptr);
    EXPECT_EQ(empty, Text(""));
    EXPECT_STREQ(empty.GetUTF8(), "");
    ZYLString original = Text("job\xC3\xA4");
    ZYLString copy = original;
    EXPECT_EQ(copy.GetUTF8(), original.GetUTF8());

    copy.ASCIIToUpper();
    original.Append(original);
    EXPECT_STREQ(copy.GetUTF8(), "JOB\xC3\xA4");
    EXPECT_STREQ(original.GetUTF8(), "job\xC3\xA4job\xC3\xA4");
    EXPECT_EQ(original.GetLengthInByte(), 10);
    std::array<char, 12> buffer;
    buffer.fill('?');
    std::size_t length = 0;
    original.ConvertToUTF8(buffer.data(), &length);
    EXPECT_EQ(std::string(buffer.data(), buffer.size()), std::string("job\xC3\xA4job\xC3\xA4\0?", 12));
    EXPECT_EQ(length, 10U);
}

TEST(ZYLStringTest, AssignedBytesEndBeforeTheFirstNulAndMayBeTheStringsOwn) {
    ZYLString string = Text("old");
    const ZYLString copy = string;
    string.AssignUTF8("ab\0cd", 5);
    EXPECT_EQ(string, "ab");
    EXPECT_EQ(string.GetLengthInByte(), 2);
    EXPECT_EQ(copy, "old");
    string.AssignUTF8(string.GetUTF8() + 1, 1);
    EXPECT_EQ(string, "b");
    string.AssignUTF8("\0x", 2);
    EXPECT_TRUE(string.IsEmpty());
    string.AssignUTF8(nullptr, 0);
    EXPECT_EQ(string, Text(""));
}

TEST(ZYLStringTest, ComparisonsGoByUnsignedBytesOnEitherSide) {
    const ZYLString ab = Text("ab");
    EXPECT_TRUE(ab == "ab" && "ab" == ab && ab != "aB" && "abc" != ab && ab != Text("abc"));
    EXPECT_TRUE(ab < "abc" && "B" < ab && ab < Text("\xC3\xA4") && ZYLString() < ab);
    EXPECT_FALSE(ab < "ab" || "ab" < ab || ab < ZYLString());
}

}  // namespace

#include "cow_String.h"

#include <gtest/gtest.h>

namespace {

TEST(CowStringTest, AssignmentSharesAndSurvivesItself) {
    cow_String a("first");
    cow_String b("second");
    const cow_String& self = a;
    a = self;
    EXPECT_STREQ(a.CStr(), "first");
    a = b;
    EXPECT_EQ(a.CStr(), b.CStr());
    b = cow_String();
    EXPECT_STREQ(a.CStr(), "second");
    EXPECT_STREQ(b.CStr(), "");
}

TEST(CowStringTest, ComparesUnsignedBytesAndNoTextEqualsTheEmptyText) {
    const cow_String noText, a("a"), high("\xC3\xA4");
    EXPECT_TRUE(noText == "" && a != "A" && a == cow_String("a") && a < high && !(high < a));
    EXPECT_EQ(a.Compare("abcdef"), -1);
    EXPECT_EQ(high.Compare(a), 1);
}

}  // namespace

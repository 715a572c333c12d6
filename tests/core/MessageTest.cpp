#include <gmock/gmock.h>

#include "MemoryStream.h"
#include "ZYLMsgBBMessage.h"

namespace {

class Named : public ZYLMsgBBMessage {
  public:
    explicit Named(const char* type) : ZYLMsgBBMessage(ZYLString::BuildFromUTF8(type)) {}
    int RequiredBufferSize() const override { return 0; }
    void Stream(void*, int) const override {}
    void Unstream(const void*, int) override {}
    Named* Clone() const override { return new Named(Type()); }
};

TEST(Message, TypesAreTheSameWhenTheirBytesAre) {
    struct {
        const char *a, *b;
        bool same;
    } const cases[] = {{"", "", true}, {"Abc", "Abc", true}, {"Abc", "abc", false}, {"Abc", "Ab", false}};
    for (const auto& c : cases) {
        EXPECT_EQ(Named(c.a).SameType(Named(c.b)), c.same) << c.a << " and " << c.b;
    }
    EXPECT_STREQ(Named("").Type(), "");
}

TEST(Message, PrintsItsTypeBehindThePrefix) {
    MemoryStream out;
    Named("T").Print(out.Get(), nullptr);
    EXPECT_EQ(out.Flushed(), "");
    Named("").Print(out.Get(), ">> ");
    EXPECT_EQ(out.Text(), "Message Type: T\n>> Message Type: \n");
}

}  // namespace

#include <gmock/gmock.h>

#include <memory>

#include "ExpectFatal.h"
#include "MemoryStream.h"
#include "MessageBytes.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgAnalysisState.h"

using namespace std::string_literals;
using Message = ZYLMsgAnalysisMessageType;

namespace {

const std::string kSource = "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgAnalysisMessageType";

ZYLString Text(const char* text) {
    return ZYLString::BuildFromUTF8(text);
}

std::string Printed(const Message& message, const char* prefix) {
    MemoryStream out;
    message.Print(out.Get(), prefix);
    return out.Flushed();
}

TEST(AnalysisMessage, BodyIsTheDocumentBehindItsLengthInBytes) {
    EXPECT_EQ(BodyOf(Message(Text("<r/>"))), "\4\0\0\0<r/>"s);
    EXPECT_EQ(BodyOf(Message(Text("<\xc3\xa9/>"))), "\5\0\0\0<\xc3\xa9/>"s);
}

TEST(AnalysisMessage, PrintsTheDocumentBehindThePrefix) {
    const Message message(Text("<r>%s</r>"));
    EXPECT_EQ(Printed(message, nullptr), "Analysis Message PrefixDefaultPfix\n<r>%s</r>\n");
    EXPECT_EQ(Printed(message, ""), "Analysis Message Prefix\n<r>%s</r>\n");
    EXPECT_EQ(Printed(Message(), "p "), "Analysis Message Prefixp \n\n");
}

TEST(AnalysisMessage, CloneCarriesADocumentOfItsOwn) {
    auto message = std::make_unique<Message>(Text("<r/>"));
    const std::unique_ptr<Message> clone(message->Clone());
    UnstreamFrom("\4\0\0\0<s/>"s, *message);
    EXPECT_STREQ(message->Document().GetUTF8(), "<s/>");
    message.reset();
    EXPECT_EQ(BodyOf(*clone), "\4\0\0\0<r/>"s);
}

TEST(AnalysisMessage, RefusesToSendWithoutADocument) {
    EXPECT_FATAL(Message(Text("")), "xmlBuffer.GetLengthInByte() > 0", kSource);
    Message message(Text("<r/>"));
    UnstreamFrom("\0\0\0\0"s, message);
    EXPECT_EQ(Printed(message, ""), "Analysis Message Prefix\n\n");
    EXPECT_FATAL(message.RequiredBufferSize(), "m_msgBuffer.GetLengthInByte() > 0", kSource);
    EXPECT_FATAL(message.Stream(nullptr, 0), "m_msgBuffer.GetLengthInByte() > 0", kSource);
}

TEST(AnalysisMessage, NamesTheRootElement) {
    struct {
        const char *xml, *name;
    } const cases[] = {{"<Job/>", "Job"},
                       {"<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Job a='1'><Step/></Job>\n", "Job"},
                       {"<\xc3\xa9tude/>", "\xc3\xa9tude"}};
    for (const auto& c : cases) {
        EXPECT_STREQ(Message::GetRootElemNameFromXml(Text(c.xml)).GetUTF8(), c.name);
        EXPECT_STREQ(Message().GetTypeFromXmlBuffer(Text(c.xml)).GetUTF8(), c.name);
    }
    for (const char* text : {"", "Job", "<Job>", "<a/><b/>"}) {
        EXPECT_FATAL(Message::GetRootElemNameFromXml(Text(text)), "hr == S_OK", kSource);
        EXPECT_FATAL(Message().GetTypeFromXmlBuffer(Text(text)), "hr == S_OK", kSource);
    }
}

TEST(AnalysisState, KeepsOneValueOfAnyRange) {
    EXPECT_EQ(ZYLMsgAnalysisState::GetPercentage(), 0.0);
    for (const double percentage : {42.5, -1.0, 1e9, 0.0}) {
        ZYLMsgAnalysisState::SetPercentage(percentage);
        EXPECT_EQ(ZYLMsgAnalysisState::GetPercentage(), percentage);
    }
}

}  // namespace

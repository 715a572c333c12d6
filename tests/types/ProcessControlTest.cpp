#include <gmock/gmock.h>

#include <memory>

#include "ExpectFatal.h"
#include "MessageBytes.h"
#include "ZYLMsgProcessControlEncoder.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgProcessControlTypeFactory.h"

using namespace std::string_literals;
using Message = ZYLMsgProcessControlType;

namespace {

const std::string kSources = "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/";
const std::string kEncoder = kSources + "ZYLMsgProcessControlEncoder";
const std::string kHard = "<Kill type=\"symconst\">HARD_KILL</Kill>";

ZYLString Text(const char* text) {
    return ZYLString::BuildFromUTF8(text);
}

/// A body that carries `document`, which is shorter than 256 bytes.
std::string Body(const std::string& document) {
    return std::string(1, static_cast<char>(document.size())) + "\0\0\0"s + document;
}

TEST(ProcessControl, KillsArriveAsTheyWereSent) {
    const std::pair<ZYLBasSharedPtr<ZYLMsgBBMessage>, const char*> kills[] = {
        {ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg(), "SOFT_KILL"},
        {ZYLMsgProcessControlTypeFactory::CreateHardKillMsg(), "HARD_KILL"}};
    for (const auto& [sent, value] : kills) {
        Message received;
        EXPECT_TRUE(received.GetVal(Text("Kill")).IsEmpty() && !received.isPresent(Text("Kill")));
        EXPECT_EQ(received.ControlType(), Message::PROCESS_CONTROL_NONE);
        UnstreamFrom(BodyOf(*sent), received);
        const std::unique_ptr<Message> clone(received.Clone());
        const auto* const original = dynamic_cast<const Message*>(sent.get());
        for (const Message* message :
             {original, static_cast<const Message*>(&received), static_cast<const Message*>(clone.get())}) {
            EXPECT_EQ(message->ControlType(), Message::PROCESS_CONTROL_KILL);
            EXPECT_TRUE(message->isPresent(Text("Kill")));
            EXPECT_STREQ(message->GetVal(Text("Kill")).GetUTF8(), value);
        }
    }
}

TEST(ProcessControl, DecodesWhatDiffersInSyntaxOnlyAndKeepsAnEarlierAttribute) {
    Message message;
    UnstreamFrom(Body("<Kill type='symconst'>SOFT_KILL</Kill>"), message);
    EXPECT_STREQ(message.GetVal(Text("Kill")).GetUTF8(), "SOFT_KILL");
    UnstreamFrom(Body(kHard) + "trailing", message);
    EXPECT_STREQ(message.GetVal(Text("Kill")).GetUTF8(), "SOFT_KILL");
    EXPECT_EQ(BodyOf(message), Body(kHard));
}

TEST(ProcessControl, RefusesDocumentsThatAreNoKill) {
    const std::string wrongText = "killVal == \"SOFT_KILL\" || killVal == \"HARD_KILL\"";
    struct {
        std::string document, message;
    } const cases[] = {
        {"SOFT_KILL", "hr == S_OK"},
        {"<kill type=\"symconst\">SOFT_KILL</kill>", "rootTagName == \"Kill\""},
        {"<Kill>SOFT_KILL</Kill>", "atts.size() == 1"},
        {"<Kill type=\"symconst\" a=\"b\">SOFT_KILL</Kill>", "atts.size() == 1"},
        {"<Kill Type=\"symconst\">SOFT_KILL</Kill>", "itr != atts.end()"},
        {"<Kill type=\"SymConst\">SOFT_KILL</Kill>", "killType == \"symconst\""},
        {"<Kill type=\"symconst\"> SOFT_KILL</Kill>", wrongText},
        {"<Kill type=\"symconst\"/>", wrongText},
        {"<Kill type=\"symconst\">SOFT_KILL<a/></Kill>", wrongText},
        {"<!DOCTYPE Kill [<!ATTLIST Kill type CDATA 'symconst'>]><Kill>SOFT_KILL</Kill>", "atts.size() == 1"},
    };
    for (const auto& c : cases) {
        Message message;
        EXPECT_FATAL(UnstreamFrom(Body(c.document), message), c.message, kEncoder) << c.document;
    }
}

TEST(ProcessControl, RefusesLengthsBelowOne) {
    for (const std::string& body : {"\0\0\0\0x"s, "\xff\xff\xff\xffx"s}) {
        Message message;
        EXPECT_FATAL(UnstreamFrom(body, message), "len > 0", kSources + "ZYLMsgProcessControlType");
    }
}

TEST(ProcessControl, RefusesToEncodeWhatIsNoKill) {
    Message message;
    EXPECT_FATAL(ZYLMsgProcessControlEncoder::ExternalizeProcessControlMsg(message),
                 "pcType.m_processControlType == ZYLMsgProcessControlType::PROCESS_CONTROL_KILL", kEncoder);
    EXPECT_FATAL(message.RequiredBufferSize(), "m_xmlMessage.GetLengthInChar() > 0",
                 kSources + "ZYLMsgProcessControlType");
    message.m_processControlType = Message::PROCESS_CONTROL_KILL;
    const std::string unknown = "\"Unknown Kill Type in ZYLMsgProcessControlType\" == 0";
    EXPECT_FATAL(ZYLMsgProcessControlEncoder::ExternalizeProcessControlMsg(message), unknown, kEncoder);
    message.m_attributes[Text("Kill")] = Text("Soft_Kill");
    EXPECT_FATAL(ZYLMsgProcessControlEncoder::ExternalizeProcessControlMsg(message), unknown, kEncoder);
}

}  // namespace

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "FatalErrors.h"
#include "MemoryStream.h"
#include "MessageBytes.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgProcessControlTypeFactory.h"
#include "ZYLMsgStreamUtils.h"
#include "ZYLMsgStringType.h"
#include "ZYLSimRpm_Swapper.h"

using namespace std::string_literals;

namespace {

using Analysis = ZYLMsgAnalysisMessageType;
using Control = ZYLMsgProcessControlType;
using Owner = std::unique_ptr<ZYLMsgBBMessage>;

std::string Zeros(std::size_t count) {
    return std::string(count, '\0');
}

ZYLString Text(const std::string& text) {
    return ZYLString::BuildFromUTF8(text.c_str());
}

/// A body that carries `document`, which is shorter than 256 bytes.
std::string Body(const std::string& document) {
    return std::string(1, static_cast<char>(document.size())) + "\0\0\0"s + document;
}

Owner String(const char* data, int size) {
    auto message = std::make_unique<ZYLMsgStringType>();
    message->SetData(data, size);
    return message;
}

Owner FileChunk() {
    auto message = std::make_unique<ZYLMsgFileTransferType>();
    ZYLMsgFileTransferData& data = message->Data();
    data.m_dataType = FILE_TRANSFER_CHUNK;
    int number = 0;
    for (ZYLString* text :
         {&data.m_sourceApplication, &data.m_sourceBaseDir, &data.m_sourceJobDir, &data.m_sourceFileName,
          &data.m_targetApplication, &data.m_targetBaseDir, &data.m_targetJobDir}) {
        *text = Text(std::to_string(++number));
    }
    data.m_targetFileName = Text("\xc3\xa9");
    data.m_chunkId = -2;
    data.m_chunkSize = 3;
    data.m_chunk = "ABC";
    return message;
}

TEST(Messages, KeepTheContractOfEveryClass) {
    const std::string soft =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><Kill type=\"symconst\">SOFT_KILL</Kill>";
    const struct {
        const char* type;
        Owner message;
        std::string body, printed, cloned;
    } rows[] = {
        {"ZYLMsgStringType", String("a\0b", 3), "a\0b"s, "#    size: 3\n#    data[0]: a\n#    data[2]: b\n",
         ""},
        {"ZYLMsgFileTransferType", FileChunk(),
         "\3\0\0\0\1\0\0\0001\1\0\0\0002\1\0\0\0003\1\0\0\0004\1\0\0\0005\1\0\0\0006\1\0\0\0007"
         "\2\0\0\0\xc3\xa9\xfe\xff\xff\xff\3\0\0\0ABC"s,
         "#    DataType: 3\n", Zeros(44)},
        {"ZYLMsgAnalysisMessageType", std::make_unique<Analysis>(Text("<\xc3\xa9>%s</\xc3\xa9>")),
         "\13\0\0\0<\xc3\xa9>%s</\xc3\xa9>"s, "Analysis Message Prefix# \n<\xc3\xa9>%s</\xc3\xa9>\n",
         Body("<\xc3\xa9>%s</\xc3\xa9>")},
        {"ZYLMsgProcessControlType", Owner(ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg()->Clone()),
         "\x4c\0\0\0"s + soft, "#    Content: " + soft + "\n", Body(soft)},
    };
    for (const auto& [type, message, body, printed, cloned] : rows) {
        SCOPED_TRACE(type);
        EXPECT_EQ(BodyOf(*message), body);
        EXPECT_EQ(FatalErrorOf([&, &it = *message] { it.Stream(nullptr, it.RequiredBufferSize() - 1); }),
                  Failed("size >= RequiredBufferSize()", "Types.m/src/"s + type));
        MemoryStream out;
        message->Print(out.Get(), "# ");
        const std::string head = printed.front() == '#' ? "# Message Type: "s + type + "\n" : "";
        EXPECT_EQ(out.Text(), head + printed);
        const Owner clone(message->Clone());
        EXPECT_STREQ(clone->Type(), type);
        EXPECT_EQ(BodyOf(*clone), cloned);
        for (int time = 0; time < 2; ++time) {
            UnstreamFrom(body, *clone);
            EXPECT_EQ(BodyOf(*clone), body);
        }
    }
}

TEST(Messages, BorrowTheSendersBytesAndOwnTheReceived) {
    std::string bytes = "hello";
    ZYLMsgStringType text;
    text.SetData(bytes.data(), 5);
    bytes[0] = 'j';
    EXPECT_EQ(BodyOf(text), "jello");
    UnstreamFrom("abc", text);
    EXPECT_EQ(std::string(text.Data(), 3), "abc");

    ZYLMsgFileTransferType transfer;
    transfer.Data().m_chunk = "sent";
    UnstreamFrom(Zeros(40) + "\3\0\0\0xyz"s, transfer);
    UnstreamFrom(Zeros(44), transfer);
    EXPECT_EQ(std::string(static_cast<const char*>(transfer.Data().m_chunk), 3), "xyz")
        << "a chunk stays until the next";
}

TEST(Messages, NameTheRootOfADocumentAndTheKillInIt) {
    const ZYLString document = Text("<?xml version='1.0'?>\n<\xc3\xa9tude a='1'><Step/></\xc3\xa9tude>\n");
    EXPECT_EQ(Analysis().GetTypeFromXmlBuffer(document), "\xc3\xa9tude");
    Control received;
    EXPECT_FALSE(received.isPresent(Text("Kill")) || received.ControlType() != Control::PROCESS_CONTROL_NONE);
    UnstreamFrom(BodyOf(*ZYLMsgProcessControlTypeFactory::CreateHardKillMsg()), received);
    const std::unique_ptr<Control> clone(received.Clone());
    EXPECT_TRUE(clone->isPresent(Text("Kill")) && clone->ControlType() == Control::PROCESS_CONTROL_KILL);
    EXPECT_EQ(clone->GetVal(Text("Kill")), "HARD_KILL");
    Control other;
    const std::string apostrophes = Body("<Kill type='symconst'>SOFT_KILL</Kill>");
    UnstreamFrom(apostrophes + "trailing", other);
    EXPECT_EQ(other.GetVal(Text("Kill")), "SOFT_KILL");
    EXPECT_EQ(BodyOf(other), apostrophes);
}

TEST(Messages, RefuseWhatCannotBeSentOrRead) {
    ZYLMsgFileTransferType negative, tooLarge;
    negative.Data().m_chunkSize = -1;
    tooLarge.Data().m_chunkSize = INT_MAX - 44;
    EXPECT_EQ(tooLarge.RequiredBufferSize(), INT_MAX);
    tooLarge.Data().m_targetJobDir = Text("j");
    Control control;
    const auto kill = [&](const std::string& document) {
        return [&control, document] { UnstreamFrom(Body(document), control); };
    };
    const std::string wrongText = "killVal == \"SOFT_KILL\" || killVal == \"HARD_KILL\"";
    const char* const encoder = "Types.m/src/ZYLMsgProcessControlEncoder";
    const struct {
        std::function<void()> action;
        const char* source;
        std::string check;
    } cases[] = {
        {[] { String("", -1); }, "Types.m/src/ZYLMsgStringType", "size >= 0"},
        {[] { ZYLMsgStringType().Unstream("", -2); }, "Backbone.m/src/ZYLMsgWireReader",
         "m_data: -2 bytes needed, -2 bytes left"},
        {[&] { negative.Stream(nullptr, 100); }, "Types.m/src/ZYLMsgFileTransferType",
         "m_data.m_chunkSize >= 0"},
        {[&] { tooLarge.RequiredBufferSize(); }, "Types.m/src/ZYLMsgFileTransferType", "total <= INT_MAX"},
        {[] { Analysis::GetRootElemNameFromXml(Text("Job")); }, "Types.m/src/ZYLMsgAnalysisMessageType",
         "hr == S_OK"},
        {[&] { control.RequiredBufferSize(); }, "Types.m/src/ZYLMsgProcessControlType",
         "m_xmlMessage.GetLengthInChar() > 0"},
        {kill(""), "Types.m/src/ZYLMsgProcessControlType", "len > 0"},
        {kill("SOFT_KILL"), encoder, "hr == S_OK"},
        {kill("<kill type=\"symconst\">SOFT_KILL</kill>"), encoder, "rootTagName == \"Kill\""},
        {kill("<Kill type=\"symconst\" a=\"b\">SOFT_KILL</Kill>"), encoder, "atts.size() == 1"},
        {kill("<Kill Type=\"symconst\">SOFT_KILL</Kill>"), encoder, "itr != atts.end()"},
        {kill("<Kill type=\"SymConst\">SOFT_KILL</Kill>"), encoder, "killType == \"symconst\""},
        {kill("<Kill type=\"symconst\"> SOFT_KILL</Kill>"), encoder, wrongText},
        {kill("<Kill type=\"symconst\">SOFT_KILL<a/></Kill>"), encoder, wrongText},
    };
    for (const auto& [action, source, check] : cases) {
        EXPECT_EQ(FatalErrorOf(action), Failed(check, source));
    }
}

TEST(StreamUtils, WritesAndReadsStringsAndNumbersAtTheRunningOffset) {
    char buffer[32] = "?";
    int written = 1;
    for (const char* text : {"", "abc", "\xc3\xa9"}) {
        ZYLMsgStreamUtils::StreamZYLString(Text(text), buffer, written);
    }
    EXPECT_EQ(ZYLSimRpm_Swapper::ExternalizeScalar(buffer + written, -2.5), 8U);
    EXPECT_EQ(std::string(buffer, 27), "?\0\0\0\0\3\0\0\0abc\2\0\0\0\xc3\xa9\0\0\0\0\0\0\4\xc0\0"s);
    int read = 1;
    ZYLString text;
    for (const char* expected : {"", "abc", "\xc3\xa9"}) {
        ZYLMsgStreamUtils::UnstreamZYLString(text, buffer, read);
        EXPECT_EQ(text, expected);
    }
}

struct Envelope {
    const char* type;
    std::string bytes;                                         ///< sound ones
    std::vector<std::pair<std::size_t, std::string>> lengths;  ///< places and names of the length words in it
    std::size_t mayEndAt;  ///< from this size on a cut-off one is sound too
};

std::vector<Envelope> SoundEnvelopes() {
    const std::string head = "\2\0\0\0me"s;
    const std::string kill = head + Body("<Kill type=\"symconst\">SOFT_KILL</Kill>");
    Envelope transfer{"ZYLMsgFileTransferType", head + "\3\0\0\0"s, {}, 0};
    for (const char* name :
         {"m_sourceApplication", "m_sourceBaseDir", "m_sourceJobDir", "m_sourceFileName",
          "m_targetApplication", "m_targetBaseDir", "m_targetJobDir", "m_targetFileName"}) {
        transfer.lengths.emplace_back(transfer.bytes.size(), name);
        transfer.bytes += Body("xy");
    }
    transfer.lengths.emplace_back(transfer.bytes.size() + 4, "m_chunk");
    transfer.bytes += "\1\0\0\0"s + Body("abc");
    transfer.mayEndAt = transfer.bytes.size();
    return {
        {"ZYLMsgStringType", head + "text", {}, head.size()},
        {"ZYLMsgAnalysisMessageType", head + Body("<r/>"), {{6, "m_msgBuffer"}}, 14},
        {"ZYLMsgProcessControlType", kill, {{6, "m_xmlMessage"}}, kill.size()},
        transfer,
    };
}

struct Counter : ZYLMsgBBMessageHandler {
    void HandleMessage(const ZYLMsgBBMessage&, const char*) override { ++s_handled; }
    static inline int s_handled = 0;
};

/// The fatal error with which the buffer was refused, "" if it reached its handler.
std::string Refusal(const char* type, const std::string& bytes) {
    Counter::s_handled = 0;
    const HeapBytes buffer(bytes);
    std::string error =
        FatalErrorOf([&] { ZYLMsgBBCallbackManager::HandleMessage(type, buffer.Get(), buffer.Size()); });
    EXPECT_EQ(Counter::s_handled, error.empty() ? 1 : 0);
    return error;
}

TEST(HostileBody, BuffersAreRefusedWhenCutOffOrOfFalseLengthAndAcceptedWhenLonger) {
    const ZYLMsgBBCallbackManager emptiesTheRegistriesAtItsEnd;
    for (ZYLMsgBBMessage* const proto :
         std::initializer_list<ZYLMsgBBMessage*>{new ZYLMsgStringType, new ZYLMsgAnalysisMessageType,
                                                 new ZYLMsgProcessControlType, new ZYLMsgFileTransferType}) {
        ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(proto, new Counter);
    }
    for (auto& [type, bytes, lengths, mayEndAt] : SoundEnvelopes()) {
        SCOPED_TRACE(type);
        EXPECT_EQ(Refusal(type, bytes + "\xff\xff\xff\xff"), "");
        for (std::size_t size = 0; size <= bytes.size(); ++size) {
            const auto error = testing::ContainsRegex(
                "^AssertionFailed:[A-Za-z_ ]+: [0-9]+ bytes needed, [0-9]+ bytes left ");
            EXPECT_EQ(testing::Value(Refusal(type, bytes.substr(0, size)), error), size < mayEndAt) << size;
        }
        lengths.emplace_back(0, "identifier");
        for (const auto& [offset, name] : lengths) {
            const auto left = static_cast<int>(bytes.size() - offset - 4);
            for (const int length : {-1, INT_MIN, INT_MAX, INT_MAX - 3, left + 1}) {
                std::string damaged = bytes;
                std::memcpy(&damaged[offset], &length, 4);
                const std::string error =
                    fmt::format("{}: {} bytes needed, {} bytes left", name, length, left);
                EXPECT_EQ(Refusal(type, damaged),
                          length < 0 && name == "m_xmlMessage"
                              ? Failed("len > 0", "Types.m/src/ZYLMsgProcessControlType")
                              : Failed(error, "Backbone.m/src/ZYLMsgWireReader"));
            }
        }
    }
}

}  // namespace

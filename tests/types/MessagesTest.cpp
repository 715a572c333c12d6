// What all message classes have in common, one row each: bytes, printed text, copies, refusals.
#include <gmock/gmock.h>

#include <climits>
#include <functional>
#include <memory>

#include "ExpectFatal.h"
#include "MemoryStream.h"
#include "MessageBytes.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgAnalysisState.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgProcessControlTypeFactory.h"
#include "ZYLMsgStringType.h"

using namespace std::string_literals;

namespace {

using Owner = std::unique_ptr<ZYLMsgBBMessage>;

std::string Zeros(std::size_t count) {
    return std::string(count, '\0');
}

ZYLString Text(const char* text) {
    return ZYLString::BuildFromUTF8(text);
}

Owner String(const char* data, int size) {
    auto message = std::make_unique<ZYLMsgStringType>();
    message->SetData(data, size);
    return message;
}

Owner FileTransfer(const std::function<void(ZYLMsgFileTransferData&)>& fill) {
    auto message = std::make_unique<ZYLMsgFileTransferType>();
    fill(message->Data());
    return message;
}

Owner FileRequest() {
    return FileTransfer([](ZYLMsgFileTransferData& data) {
        data.m_dataType = FILE_TRANSFER_SEND_REQUEST;
        data.m_chunkId = -1;
        int number = 1;
        for (ZYLString* text :
             {&data.m_sourceApplication, &data.m_sourceBaseDir, &data.m_sourceJobDir, &data.m_sourceFileName,
              &data.m_targetApplication, &data.m_targetBaseDir, &data.m_targetJobDir}) {
            *text = Text(std::to_string(number++).c_str());
        }
        data.m_targetFileName = Text("\xc3\xa9");
    });
}

struct Row {
    const char* type;
    Owner message;
    std::string body, printed;
    bool isCloneEmpty;
};

std::vector<Row> Rows() {
    const std::string soft =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><Kill type=\"symconst\">SOFT_KILL</Kill>";
    const std::string string = "ZYLMsgStringType\n#    size: ",
                      transfer = "ZYLMsgFileTransferType\n#    DataType: ";
    std::vector<Row> rows;
    rows.push_back({"ZYLMsgStringType", String("", 0), "", "# Message Type: " + string + "0\n", true});
    rows.push_back({"ZYLMsgStringType", String("a\0b", 3), "a\0b"s,
                    "# Message Type: " + string + "3\n#    data[0]: a\n#    data[2]: b\n", true});
    rows.push_back({"ZYLMsgFileTransferType", std::make_unique<ZYLMsgFileTransferType>(), Zeros(44),
                    "# Message Type: " + transfer + "0\n", true});
    rows.push_back({"ZYLMsgFileTransferType", FileTransfer([](ZYLMsgFileTransferData& data) {
                        data.m_dataType = FILE_TRANSFER_CHUNK;
                        data.m_chunkId = 1;
                        data.m_chunkSize = 3;
                        data.m_chunk = "ABC";
                    }),
                    "\3\0\0\0"s + Zeros(32) + "\1\0\0\0\3\0\0\0ABC"s, "# Message Type: " + transfer + "3\n",
                    true});
    rows.push_back({"ZYLMsgFileTransferType", FileRequest(),
                    "\1\0\0\0\1\0\0\0001\1\0\0\0002\1\0\0\0003\1\0\0\0004\1\0\0\0005\1\0\0\0006\1\0\0\0007\2"
                    "\0\0\0\xc3\xa9"
                    "\xff\xff\xff\xff\0\0\0\0"s,
                    "# Message Type: " + transfer + "1\n", true});
    rows.push_back({"ZYLMsgAnalysisMessageType",
                    std::make_unique<ZYLMsgAnalysisMessageType>(Text("<\xc3\xa9>%s</\xc3\xa9>")),
                    "\13\0\0\0<\xc3\xa9>%s</\xc3\xa9>"s,
                    "Analysis Message Prefix# \n<\xc3\xa9>%s</\xc3\xa9>\n", false});
    rows.push_back({"ZYLMsgProcessControlType",
                    Owner(ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg()->Clone()),
                    "\x4c\0\0\0"s + soft,
                    "# Message Type: ZYLMsgProcessControlType\n#    Content: " + soft + "\n", false});
    return rows;
}

TEST(Messages, KeepTheContractOfEveryClass) {
    for (const auto& [type, message, body, printed, isCloneEmpty] : Rows()) {
        SCOPED_TRACE(type + " of "s + std::to_string(body.size()));
        EXPECT_EQ(BodyOf(*message), body);
        const int size = message->RequiredBufferSize();
        EXPECT_FATAL(message->Stream(nullptr, size - 1), "size >= RequiredBufferSize()",
                     "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/"s + type);
        const HeapBytes larger(std::string(body.size() + 3, '?'));
        message->Stream(larger.Get(), larger.Size());
        EXPECT_EQ(larger.Text(), body + "???");
        MemoryStream out;
        message->Print(out.Get(), "# ");
        EXPECT_EQ(out.Text(), printed);
        const Owner clone(message->Clone());
        EXPECT_STREQ(clone->Type(), type);
        if (!isCloneEmpty) {
            EXPECT_EQ(BodyOf(*clone), body);
        } else {
            EXPECT_EQ(BodyOf(*clone), type == "ZYLMsgStringType"s ? "" : Zeros(44));
        }
        for (int time = 0; time < 2; ++time) {
            UnstreamFrom(body, *clone);
            EXPECT_EQ(BodyOf(*clone), body);
        }
    }
}

TEST(Messages, PrintWithoutAPrefix) {
    MemoryStream out;
    String("x", 1)->Print(out.Get(), nullptr);
    EXPECT_EQ(out.Flushed(), "Message Type: ZYLMsgStringType\n   size: 1\n   data[0]: x\n   data[0]: x\n");
    ZYLMsgAnalysisMessageType().Print(out.Get(), nullptr);
    EXPECT_THAT(out.Flushed(), testing::EndsWith("Analysis Message PrefixDefaultPfix\n\n"));
}

TEST(StringType, BorrowsTheSendersBytesAndOwnsTheReceived) {
    std::string bytes = "hello";
    ZYLMsgStringType message;
    message.SetData(bytes.data(), 5);
    bytes[0] = 'j';
    EXPECT_EQ(BodyOf(message), "jello");
    UnstreamFrom("abc", message);
    EXPECT_EQ(std::string(message.Data(), static_cast<std::size_t>(message.Size())), "abc");
    UnstreamFrom("", message);
    EXPECT_TRUE(message.m_ownsData);
    message.SetData("xy", 2);
    EXPECT_FALSE(message.m_ownsData);
    EXPECT_FATAL(message.SetData("", -1), "size >= 0",
                 "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgStringType");
    EXPECT_FATAL(message.Unstream("", -2), "m_data: -2 bytes needed, -2 bytes left",
                 "ZYLMsgFeaMessaging/ZYLMsgBackbone.m/src/ZYLMsgWireReader");
}

TEST(FileTransferType, OwnsReceivedChunksOnlyAndKeepsThemUntilTheNext) {
    const std::string chunk = Zeros(40) + "\3\0\0\0xyz"s;
    ZYLMsgFileTransferType message;
    message.Data().m_chunk = "sent";
    UnstreamFrom(Zeros(44), message);
    EXPECT_FALSE(message.m_ownsChunk);
    UnstreamFrom(chunk, message);
    EXPECT_TRUE(message.m_ownsChunk);
    const void* const copy = message.Data().m_chunk;
    UnstreamFrom(Zeros(44), message);
    EXPECT_EQ(message.Data().m_chunk, copy);
    EXPECT_EQ(std::string(static_cast<const char*>(copy), 3), "xyz");
}

TEST(FileTransferType, RefusesRecordsWithoutABody) {
    const std::string source = "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgFileTransferType";
    ZYLMsgFileTransferType message;
    message.Data().m_chunkSize = -1;
    EXPECT_FATAL(message.Stream(nullptr, 100), "m_data.m_chunkSize >= 0", source);
    message.Data().m_chunkSize = INT_MAX - 44;
    EXPECT_EQ(message.RequiredBufferSize(), INT_MAX);
    message.Data().m_targetJobDir = Text("j");
    EXPECT_FATAL(message.RequiredBufferSize(), "total <= INT_MAX", source);
}

TEST(AnalysisMessage, NeedsADocumentToSendAndNamesItsRoot) {
    using Message = ZYLMsgAnalysisMessageType;
    const std::string source = "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgAnalysisMessageType";
    EXPECT_FATAL(Message(Text("")), "xmlBuffer.GetLengthInByte() > 0", source);
    Message message(Text("<r/>"));
    UnstreamFrom("\0\0\0\0"s, message);
    EXPECT_TRUE(message.Document().IsEmpty());
    EXPECT_FATAL(message.RequiredBufferSize(), "m_msgBuffer.GetLengthInByte() > 0", source);
    const ZYLString document = Text("<?xml version='1.0'?>\n<\xc3\xa9tude a='1'><Step/></\xc3\xa9tude>\n");
    EXPECT_EQ(Message::GetRootElemNameFromXml(document), "\xc3\xa9tude");
    EXPECT_EQ(message.GetTypeFromXmlBuffer(document), "\xc3\xa9tude");
    for (const char* text : {"", "Job"}) {
        EXPECT_FATAL(Message::GetRootElemNameFromXml(Text(text)), "hr == S_OK", source);
        EXPECT_FATAL(message.GetTypeFromXmlBuffer(Text(text)), "hr == S_OK", source);
    }
}

TEST(AnalysisState, KeepsOneValueOfAnyRange) {
    EXPECT_EQ(ZYLMsgAnalysisState::GetPercentage(), 0.0);
    ZYLMsgAnalysisState::SetPercentage(-1e9);
    EXPECT_EQ(ZYLMsgAnalysisState::GetPercentage(), -1e9);
}

}  // namespace

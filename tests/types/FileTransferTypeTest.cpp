#include "ZYLMsgFileTransferType.h"

#include <gmock/gmock.h>

#include <climits>
#include <memory>

#include "ExpectFatal.h"
#include "MemoryStream.h"
#include "MessageBytes.h"

using namespace std::string_literals;
using Data = ZYLMsgFileTransferData;

namespace {

const std::string kSource = "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgFileTransferType";

std::string Zeros(std::size_t count) {
    return std::string(count, '\0');
}

TEST(FileTransferType, BodyIsTheRecordFieldByField) {
    struct {
        void (*fill)(Data&);
        std::string bytes;
    } const cases[] = {
        {[](Data&) {}, Zeros(44)},
        {[](Data& data) {
             data.m_dataType = FILE_TRANSFER_ISEND_COMPLETION;
             data.m_chunkId = -1;
         },
         "\5\0\0\0"s + Zeros(32) + "\xff\xff\xff\xff" + Zeros(4)},
        {[](Data& data) {
             data.m_dataType = FILE_TRANSFER_CHUNK;
             data.m_chunkId = 1;
             data.m_chunkSize = 3;
             data.m_chunk = "ABC";
         },
         "\3\0\0\0"s + Zeros(32) + "\1\0\0\0\3\0\0\0ABC"s},
        {[](Data& data) {
             data.m_dataType = FILE_TRANSFER_SEND_REQUEST;
             int number = 1;
             for (ZYLString* text : {&data.m_sourceApplication, &data.m_sourceBaseDir, &data.m_sourceJobDir,
                                     &data.m_sourceFileName, &data.m_targetApplication, &data.m_targetBaseDir,
                                     &data.m_targetJobDir}) {
                 *text = ZYLString::BuildFromUTF8(std::to_string(number++).c_str());
             }
             data.m_targetFileName = ZYLString::BuildFromUTF8("\xc3\xa9");
         },
         "\1\0\0\0\1\0\0\0001\1\0\0\0002\1\0\0\0003\1\0\0\0004\1\0\0\0005\1\0\0\0006\1\0\0\0007\2\0\0\0\xc3\xa9"s +
             Zeros(8)},
    };
    for (const auto& c : cases) {
        ZYLMsgFileTransferType message;
        c.fill(message.Data());
        EXPECT_EQ(BodyOf(message), c.bytes);
        const std::unique_ptr<ZYLMsgFileTransferType> clone(message.Clone());
        EXPECT_EQ(BodyOf(*clone), Zeros(44));
        UnstreamFrom(c.bytes, *clone);
        EXPECT_EQ(BodyOf(*clone), c.bytes);
    }
}

TEST(FileTransferType, OwnsReceivedChunksOnly) {
    const std::string noChunk = Zeros(44), chunk = Zeros(40) + "\3\0\0\0xyz"s;
    ZYLMsgFileTransferType message;
    UnstreamFrom(noChunk, message);
    EXPECT_EQ(message.Data().m_chunk, nullptr);
    EXPECT_FALSE(message.m_ownsChunk);
    const char sent[] = "sent";
    message.Data().m_chunk = sent;
    UnstreamFrom(chunk, message);
    EXPECT_TRUE(message.m_ownsChunk);
    EXPECT_STREQ(sent, "sent");
    const void* const copy = message.Data().m_chunk;
    EXPECT_EQ(std::string(static_cast<const char*>(copy), 3), "xyz");
    UnstreamFrom(noChunk, message);
    EXPECT_EQ(message.Data().m_chunk, copy);
    EXPECT_TRUE(message.m_ownsChunk);
    EXPECT_EQ(BodyOf(message), noChunk);
}

TEST(FileTransferType, RefusesRecordsWithoutABody) {
    ZYLMsgFileTransferType message;
    message.Data().m_chunkSize = -1;
    EXPECT_FATAL(message.RequiredBufferSize(), "m_data.m_chunkSize >= 0", kSource);
    EXPECT_FATAL(message.Stream(nullptr, 100), "m_data.m_chunkSize >= 0", kSource);
    message.Data().m_chunkSize = INT_MAX - 44;
    EXPECT_EQ(message.RequiredBufferSize(), INT_MAX);
    message.Data().m_targetJobDir = ZYLString::BuildFromUTF8("j");
    EXPECT_FATAL(message.RequiredBufferSize(), "total <= INT_MAX", kSource);
}

TEST(FileTransferType, PrintsTypeAndCode) {
    MemoryStream out;
    ZYLMsgFileTransferType message;
    message.Data().m_dataType = -7;
    message.Print(out.Get(), nullptr);
    message.Print(out.Get(), "# ");
    EXPECT_EQ(out.Text(),
              "Message Type: ZYLMsgFileTransferType\n   DataType: -7\n"
              "# Message Type: ZYLMsgFileTransferType\n#    DataType: -7\n");
}

}  // namespace

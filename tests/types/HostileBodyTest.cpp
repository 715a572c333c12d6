// Every reader of foreign bytes, fed with damaged ones.
#include <gmock/gmock.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "FatalErrors.h"
#include "MessageBytes.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgStringType.h"

using namespace std::string_literals;

namespace {

struct Field {
    std::size_t offset;
    std::string name;
};

struct Envelope {
    const char* type;
    std::string bytes;           ///< a sound one
    std::vector<Field> lengths;  ///< the length words in it, beside that of the identifier
    std::size_t mayEndAt;        ///< from this size on a cut-off one is sound too
};

std::vector<Envelope> SoundEnvelopes() {
    const std::string head = "\2\0\0\0me"s;
    const std::string kill = head + "\x26\0\0\0<Kill type=\"symconst\">SOFT_KILL</Kill>"s;
    std::string transfer = head + "\3\0\0\0"s;
    std::vector<Field> lengths;
    for (const char* name :
         {"m_sourceApplication", "m_sourceBaseDir", "m_sourceJobDir", "m_sourceFileName",
          "m_targetApplication", "m_targetBaseDir", "m_targetJobDir", "m_targetFileName"}) {
        lengths.push_back({transfer.size(), name});
        transfer += "\2\0\0\0xy"s;
    }
    lengths.push_back({transfer.size() + 4, "m_chunk"});
    transfer += "\1\0\0\0\3\0\0\0abc"s;
    return {
        {"ZYLMsgStringType", head + "text", {}, head.size()},
        {"ZYLMsgAnalysisMessageType", head + "\4\0\0\0<r/>"s, {{6, "m_msgBuffer"}}, 14},
        {"ZYLMsgProcessControlType", kill, {{6, "m_xmlMessage"}}, kill.size()},
        {"ZYLMsgFileTransferType", transfer, lengths, transfer.size()},
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
    const ZYLMsgBBCallbackManager emptiesTheRegistries;
    for (ZYLMsgBBMessage* const proto :
         std::initializer_list<ZYLMsgBBMessage*>{new ZYLMsgStringType, new ZYLMsgAnalysisMessageType,
                                                 new ZYLMsgProcessControlType, new ZYLMsgFileTransferType}) {
        ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(proto, new Counter);
    }
    for (auto& [type, bytes, lengths, mayEndAt] : SoundEnvelopes()) {
        SCOPED_TRACE(type);
        EXPECT_EQ(Refusal(type, bytes), "");
        EXPECT_EQ(Refusal(type, bytes + "\xff\xff\xff\xff"), "");
        for (std::size_t size = 0; size < mayEndAt; ++size) {
            EXPECT_THAT(Refusal(type, bytes.substr(0, size)),
                        testing::ContainsRegex(
                            "^AssertionFailed:[A-Za-z_ ]+: [0-9]+ bytes needed, [0-9]+ bytes left "))
                << size;
        }
        EXPECT_EQ(Refusal(type, bytes.substr(0, mayEndAt)), "");
        lengths.push_back({0, "identifier"});
        for (const auto& [offset, name] : lengths) {
            const auto left = static_cast<int>(bytes.size() - offset - 4);
            for (const int length : {-1, INT_MIN, INT_MAX, INT_MAX - 3, left + 1}) {
                std::string damaged = bytes;
                std::memcpy(&damaged[offset], &length, 4);
                EXPECT_EQ(Refusal(type, damaged),
                          length < 0 && name == "m_xmlMessage"
                              ? Failed("len > 0", "Types.m/src/ZYLMsgProcessControlType")
                              : Failed(name + ": " + std::to_string(length) + " bytes needed, " +
                                           std::to_string(left) + " bytes left",
                                       "Backbone.m/src/ZYLMsgWireReader"));
            }
        }
    }
}

}  // namespace

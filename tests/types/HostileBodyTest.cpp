// Every reader of foreign bytes, fed with damaged ones. Here a fatal error is an exception, so that one
// process can go through thousands of cases: this program's QORFatalError takes the place of the library's.
#include <gmock/gmock.h>

#include <climits>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "MessageBytes.h"
#include "QORFatalError.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgStringType.h"

using namespace std::string_literals;

namespace {

struct FatalError {
    std::string message;
};

}  // namespace

void QORFatalError(const char* message, const char*, const char*, const char*, const char*, int) {
    throw FatalError{message};
}

namespace {

struct Field {
    std::size_t offset;
    const char* name;
};

struct Envelope {
    const char* type;
    std::string bytes;           ///< a sound one
    std::vector<Field> lengths;  ///< the length words in it
    std::size_t mayEndAt;        ///< from this size on a cut-off one is sound too
};

std::vector<Envelope> SoundEnvelopes() {
    const std::string head = "\2\0\0\0me"s;
    const std::string kill = "\x26\0\0\0<Kill type=\"symconst\">SOFT_KILL</Kill>"s;
    std::string transfer = head + "\3\0\0\0"s;
    std::vector<Field> lengths = {{0, "identifier"}};
    for (const char* name :
         {"m_sourceApplication", "m_sourceBaseDir", "m_sourceJobDir", "m_sourceFileName",
          "m_targetApplication", "m_targetBaseDir", "m_targetJobDir", "m_targetFileName"}) {
        lengths.push_back({transfer.size(), name});
        transfer += "\2\0\0\0xy"s;
    }
    lengths.push_back({transfer.size() + 4, "m_chunk"});
    transfer += "\1\0\0\0\3\0\0\0abc"s;
    return {
        {"ZYLMsgStringType", head + "text", {{0, "identifier"}}, head.size()},
        {"ZYLMsgAnalysisMessageType", head + "\4\0\0\0<r/>"s, {{0, "identifier"}, {6, "m_msgBuffer"}}, 14},
        {"ZYLMsgProcessControlType",
         head + kill,
         {{0, "identifier"}, {6, "m_xmlMessage"}},
         head.size() + kill.size()},
        {"ZYLMsgFileTransferType", transfer, lengths, transfer.size()},
    };
}

class HostileBody : public testing::Test {
  protected:
    HostileBody() {
        Adopt<ZYLMsgStringType>();
        Adopt<ZYLMsgAnalysisMessageType>();
        Adopt<ZYLMsgProcessControlType>();
        Adopt<ZYLMsgFileTransferType>();
    }
    ~HostileBody() override { const ZYLMsgBBCallbackManager emptiesTheRegistries; }

    /// The message of the fatal error with which the buffer was refused.
    std::optional<std::string> Refusal(const char* type, const std::string& bytes) {
        m_handled = 0;
        const HeapBytes buffer(bytes);
        try {
            ZYLMsgBBCallbackManager::HandleMessage(type, buffer.Get(), buffer.Size());
        } catch (const FatalError& error) {
            EXPECT_EQ(m_handled, 0);
            return error.message;
        }
        EXPECT_EQ(m_handled, 1);
        return std::nullopt;
    }

  private:
    struct Counter : ZYLMsgBBMessageHandler {
        explicit Counter(int& handled) : m_handled(handled) {}
        void HandleMessage(const ZYLMsgBBMessage&, const char*) override { ++m_handled; }
        int& m_handled;
    };

    template <class T>
    void Adopt() {
        ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new T, new Counter(m_handled));
    }

    int m_handled = 0;
};

TEST_F(HostileBody, BuffersAreRefusedWhenCutOffAndAcceptedWhenLonger) {
    for (const Envelope& sound : SoundEnvelopes()) {
        EXPECT_EQ(Refusal(sound.type, sound.bytes), std::nullopt) << sound.type;
        EXPECT_EQ(Refusal(sound.type, sound.bytes + "\xff\xff\xff\xff"), std::nullopt) << sound.type;
        for (std::size_t size = 0; size < sound.bytes.size(); ++size) {
            const auto refusal = Refusal(sound.type, sound.bytes.substr(0, size));
            ASSERT_EQ(refusal.has_value(), size < sound.mayEndAt) << sound.type << " cut to " << size;
            if (refusal) {
                EXPECT_THAT(*refusal,
                            testing::ContainsRegex(
                                "^AssertionFailed:[A-Za-z_ ]+: [0-9]+ bytes needed, [0-9]+ bytes left$"));
            }
        }
    }
}

TEST_F(HostileBody, FalseLengthsAreRefusedByNameWithBothNumbers) {
    for (const Envelope& sound : SoundEnvelopes()) {
        for (const Field& field : sound.lengths) {
            const auto left = static_cast<int>(sound.bytes.size() - field.offset - 4);
            for (const int length :
                 {-1, INT_MIN, INT_MAX, INT_MAX - 3, left + 1, static_cast<int>(sound.bytes.size()) + 1}) {
                std::string bytes = sound.bytes;
                std::memcpy(&bytes[field.offset], &length, 4);
                const bool isKillLength = length < 0 && field.name == "m_xmlMessage"s;
                EXPECT_EQ(Refusal(sound.type, bytes),
                          "AssertionFailed:" +
                              (isKillLength ? "len > 0"s
                                            : field.name + ": "s + std::to_string(length) +
                                                  " bytes needed, " + std::to_string(left) + " bytes left"));
            }
        }
    }
}

}  // namespace

// Somebody of the same user who has found a domain, and follows no rules: as who opens links to others, and
// as who listens under a name.

#include <gmock/gmock.h>

#include <algorithm>

#include "Peer.h"
#include "local/Frame.h"
#include "system/MakeSystem.h"

namespace {

using namespace std::string_literals;
using namespace zyl::backbone::local;
using namespace zyl::backbone::system;

/// A frame's header with any values in its fields.
std::string Header(int kind, int typeSize, std::uint32_t bodySize) {
    std::string header(kFrameHeaderSize, '\0');
    WriteFrameHeader(header.data(),
                     {static_cast<FrameKind>(kind), static_cast<std::uint16_t>(typeSize), bodySize});
    return header;
}

std::string GreetingTo(const std::string& application, std::uint64_t identity = 1) {
    return GreetingFrame({kProtocolVersion, {identity, 2}, 4711, "host", "user", application});
}

class Stranger : public OnLane {
  protected:
    std::unique_ptr<Names> Join() { return m_system->Join(m_directory / "backbone", "job"); }
    /// A link to whom holds `name`, over which these bytes were sent, as far as the other side took them.
    std::unique_ptr<Channel> Send(const std::string& name, const std::string& bytes) {
        std::unique_ptr<Channel> link = m_names->Connect(m_names->Find(name).value()).channel;
        for (std::string_view rest = bytes; !rest.empty();) {
            const Moved moved = link->Send(rest);
            rest.remove_prefix(moved.progress == Progress::kEnded ? rest.size() : moved.bytes);
        }
        return link;
    }
    /// Waits for the end that the other side makes of the link.
    static void AwaitEnd(Channel& link) {
        std::string bytes(4096, '\0');
        while (link.Receive(bytes).progress != Progress::kEnded) {
        }
    }

    std::map<std::string, Peer> m_peers;
    std::unique_ptr<System> m_system = MakeSystem();
    std::unique_ptr<Names> m_names = Join();
};

INSTANTIATE_TEST_SUITE_P(Local, Stranger, ::testing::Values("memory", "socket"), LaneName);

TEST_P(Stranger, WhoSendsGarbageHasItsLinkClosedWithOneLineAndHarmsNothingElse) {
    const std::string greeting = GreetingTo("target");
    const std::string body = greeting.substr(kFrameHeaderSize + 1);
    const auto greetingOf = [](const std::string& bytes) {
        return Header(1, 1, static_cast<std::uint32_t>(bytes.size())) + '\0' + bytes;
    };
    std::string announcements;
    for (int count = 0; count <= 4096; ++count) {
        announcements += AnnounceFrame({1, "n"});
    }
    const struct {
        std::string bytes;
        const char* complaint;   ///< null: it ends as if it were killed, which is not worth a line
        std::size_t memory = 0;  ///< of so many bytes, with the last frame
        std::string lastFrame{};
    } kGarbages[] = {
        {"GET / HTTP/1.1\r\n\r\n", "the frame's magic number is 542393671"},
        {Header(99, 1, 0), "the frame's kind is 99"},
        {Header(3, 0, 0), "the frame's type has no terminator"},
        {greeting + Header(3, 3, 0) + "a\0\0"s, "the frame's type of 3 bytes does not end at its terminator"},
        {Header(3, 1, 0x80000000), "the frame's body has 2147483648 bytes of at most 2147483647"},
        {Header(1, 1, 16385), "the frame's body has 16385 bytes of at most 16384"},
        {greetingOf("\377\0\0\0"s), "the peer speaks version 255, this process version "},
        {greetingOf(body.substr(0, 24) + "\xff\xff\xff\xff"), "the field host needs 4294967295 bytes of 0"},
        {greetingOf(body.substr(0, body.size() - 1)), "the field application needs 6 bytes of 5"},
        {GreetingTo("nobody"), "it is for application 'nobody', which is not here"},
        {Header(3, 2, 0) + "t\0"s, "the first frame is no greeting"},
        {greeting + greeting, "a second greeting"},
        {greeting + AnnounceFrame({1, std::string(4097, 'n')}), "an application with a name of 4097 bytes"},
        {GreetingTo("target", 2) + announcements, "an application with a name of 1 bytes after 4096 others"},
        {greeting + LaneFrame(4096), "a lane with a ring of 4096 bytes"},
        {greeting + LaneFrame(2 << 20), "a lane for its messages cannot be opened: no memory came with it"},
        {greeting, "a lane has 8192 bytes instead of 2101248", 8192, LaneFrame(2 << 20)},
        {greeting, "a block has 8192 bytes instead of 100", 8192, BlockFrame({1, 100})},
        {greeting + Header(3, 6, 0) + "empty\0"s + std::string(100'000, 'x'), "the frame's magic number is "},
        {greeting + Header(3, 2, 7) + "t\0cut"s, nullptr},
    };
    Play(m_peers, {{"target", "watch target"},
                   {"target", "receive target"},
                   {"honest", "send target 1 8"},
                   {"target", "await 3 0 &"}});
    for (const auto& [bytes, complaint, memory, lastFrame] : kGarbages) {
        const std::unique_ptr<Channel> link = Send("target", bytes);
        if (memory > 0) {
            link->SendWithMemory(lastFrame, *m_system->MakeMemory(memory));
        }
        if (complaint != nullptr) {
            m_peers["target"].AwaitLine(complaint);
            AwaitEnd(*link);
        }
    }
    Play(m_peers, {{"honest", "send target 1 8"}, {"target", "", "3 messages, n lost after 1"}});
    const auto isLine = [](const auto& one) { return one.complaint != nullptr; };
    const std::string& lines = m_peers["target"].Output();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'),
              std::count_if(std::begin(kGarbages), std::end(kGarbages), isLine) + 3)
        << lines;
}

TEST_P(Stranger, WhoGreetsAsAnotherProcessHidesItsEndFromNobody) {
    Play(m_peers, {{"watcher", "receive watcher"}, {"alive", "receive alive"}});
    const auto greetAs = [&](const std::string& name) {
        const Identity identity = m_names->Find(name).value().identity;
        return Send("watcher", GreetingFrame({kProtocolVersion, identity, 1, "host", "user", "watcher"}));
    };
    const auto link = greetAs("alive");
    const auto refused = greetAs("watcher");
    Play(m_peers, {{"watcher", "watch watcher"},
                   {"alive", "crash"},
                   {"watcher", "await 0 1", "0 messages, alive lost after 0"}});
    EXPECT_THAT(m_peers["watcher"].Output(),
                ::testing::HasSubstr("it greets as the process that it has connected to"));
}

TEST_P(Stranger, WhoListensUnderANameAndAnswersGarbageHarmsNoSender) {
    ASSERT_TRUE(m_names->Claim("fake", true).taken);
    Play(m_peers, {{"sender", "receive sender"}, {"sender", "send fake 1 8"}});
    const std::unique_ptr<Channel> link = m_names->Accept().channel;
    ASSERT_NE(link, nullptr);
    link->Send(std::string(100'000, 'x'));
    Play(m_peers,
         {{"sender", "send fake 1 8"}, {"sender", "send sender 1 8"}, {"sender", "await 1 0", "1 messages"}});
}

}  // namespace

// Somebody who has found the domain's directory and sends what he likes, or listens under a name.

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <iterator>

#include "ForeignPeer.h"
#include "Frames.h"
#include "LocalTransport.h"

namespace {

using std::chrono::milliseconds;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using zyl::backbone::local::AnnounceFrame;
using zyl::backbone::local::FrameKind;
using zyl::backbone::local::Greeting;
using zyl::backbone::local::GreetingFrame;
using zyl::backbone::local::kProtocolVersion;
using zyl::backbone::local::LaneFrame;

int OpenDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<int>(std::distance(begin(all), end(all)));
}

using Stranger = LocalTransport;
using StrangerOnALink = LocalLink;

INSTANTIATE_TEST_SUITE_P(Lanes, StrangerOnALink, AllLanes(), LaneName);

struct Garbage {
    std::string bytes;
    const char* complaint;
};

std::string WrongVersion() {
    Greeting greeting;
    greeting.version = kProtocolVersion + 1;
    return GreetingFrame(greeting);
}

TEST_F(Stranger, GarbageFromAStrangerClosesItsLinkWithOneLineAndHarmsNothingElse) {
    const std::string greeting = GreetingFrame({});
    const std::string endless = Header(static_cast<int>(FrameKind::kMessage), 1, 0x80000000U);
    const Garbage kGarbage[] = {
        {"GET / HTTP/1.1\r\n\r\n", "the frame's magic number is 542393671"},
        {Header(99, 1, 0), "the frame's kind is 99"},
        {greeting + Header(3, 0, 0), "the frame's type has no terminator"},
        {greeting + endless, "the frame's body has 2147483648 bytes of at most 2147483647"},
        {Header(1, 1, 16385), "the frame's body has 16385 bytes of at most 16384"},
        {WrongVersion(), "the peer speaks version "},
        {Header(1, 1, 4) + std::string(5, '\0'), "the peer speaks version 0, this process version "},
        {MessageFrame("t", "rude"), "the first frame is no greeting"},
        {greeting + greeting, "a second greeting"},
        {greeting + LaneFrame(4096), "a lane with a ring of 4096 bytes and 0 descriptors cannot be opened"},
        {greeting + MessageFrame("t", "") + std::string(1'000'000, 'x'), "the frame's magic number is "},
        // Cut off in the middle: nobody can tell it from a sender that was killed, which is not worth a line.
        {greeting.substr(0, 5), nullptr},
        {greeting.substr(0, greeting.size() - 1), nullptr},
        {greeting + MessageFrame("t", "cut off").substr(0, 20), nullptr},
        {"", nullptr},
    };
    Signal ready;
    Signal linked;
    Signal done;
    Shared intruder;
    m_world->Play({[&](Participant& me) {
                       me.Watch("target");
                       me.Receive("target");
                       ::testing::internal::CaptureStderr();
                       ready.Give();
                       me.WaitUntil([&] { return me.received.size() == 3; });
                       std::string lines = ::testing::internal::GetCapturedStderr();
                       const std::string start = "ZYLFeaBackbone: the link from process " +
                                                 std::to_string(intruder.Get()) +
                                                 " to application 'target' is closed: ";
                       for (const Garbage& garbage : kGarbage) {
                           if (garbage.complaint != nullptr) {
                               EXPECT_THAT(lines, StartsWith(start + garbage.complaint));
                               lines.erase(0, lines.find('\n') + 1);
                           }
                       }
                       EXPECT_EQ(lines, "");
                       EXPECT_EQ(me.received[2].body, "after it");
                       EXPECT_THAT(me.lost, IsEmpty());
                   },
                   [&](Participant& me) {
                       ready.Await();
                       me.Send("target", "t", "before the garbage");
                       linked.Give();
                       done.Await();
                       me.Send("target", "t", "after it");
                   },
                   [&](Participant& /*me*/) {
                       linked.Await();
                       intruder.Set(getpid());
                       for (const Garbage& garbage : kGarbage) {
                           const ForeignPeer stranger;
                           EXPECT_EQ(stranger.Connect(m_settings.directory + "/d.job/a.target"), 0);
                           stranger.Send(garbage.bytes);
                           if (garbage.complaint == nullptr) {
                               stranger.EndSending();
                           }
                           EXPECT_TRUE(stranger.AwaitEnd()) << garbage.bytes.substr(0, 40);
                       }
                       done.Give();
                   }});
}

TEST_P(StrangerOnALink, GarbageFromWhoeverListensUnderANameHarmsNoSender) {
    m_settings.connectTimeout = milliseconds(50);
    Signal listening;
    Signal received;
    Signal done;
    m_world->Play({[&](Participant& /*me*/) {
                       const ForeignPeer listener;
                       ASSERT_TRUE(listener.Listen(m_settings.directory + "/d.job/a.fake"));
                       listening.Give();
                       const ForeignPeer link = listener.Accept();
                       link.Send(std::string(100000, 'x'));
                       received.Give();
                       done.Await();
                   },
                   [&](Participant& me) {
                       me.Receive("sender");
                       listening.Await();
                       me.Send("fake", "t", "one");
                       received.Await();
                       me.Send("fake", "t", "two");
                       const auto before = ProcessorTime();
                       int never = 1;
                       me.board.WaitingLoop(me.domain, 300, &never);
                       EXPECT_LT(ProcessorTime() - before, kHardlyAny);
                       me.Send("sender", "t", "to itself");
                       me.Look();
                       EXPECT_THAT(me.received, SizeIs(1));
                       done.Give();
                   }});
}

/// Sends bytes with `each` descriptors in each of `headers` control messages.
void SendManyDescriptors(int socket, std::string bytes, std::size_t headers, std::size_t each) {
    const std::size_t space = CMSG_SPACE(each * sizeof(int));
    std::vector<char> control(headers * space, '\0');
    for (std::size_t index = 0; index < headers; ++index) {
        const cmsghdr header{CMSG_LEN(each * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        std::memcpy(control.data() + index * space, &header, sizeof header);  // standard input is number 0
    }
    iovec part{bytes.data(), bytes.size()};
    const msghdr message{nullptr, 0, &part, 1, control.data(), control.size(), 0};
    sendmsg(socket, &message, MSG_NOSIGNAL);
}

TEST_F(Stranger, StrangerCannotFillAProcessWithDescriptors) {
    const struct {
        int messages;
        std::size_t headers;
        std::size_t each;
        const char* complaint;
    } kCases[] = {
        {50, 1, 3, "6"}, {1, 1, 4, "4"}, {1, 1, 253, "4"}, {1, 4, 1, "4"}, {1, 2, 100, "4"},
    };
    Signal there;
    Signal sent;
    m_world->Play({[&](Participant& me) {
                       me.Receive("target");
                       for (const auto& one : kCases) {
                           const int before = OpenDescriptors();
                           there.Give();
                           sent.Await();
                           ::testing::internal::CaptureStderr();
                           me.Look();
                           EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                                       EndsWith("is closed: " + std::string(one.complaint) +
                                                " descriptors come, which belong to no lane\n"));
                           EXPECT_EQ(OpenDescriptors(), before);
                       }
                   },
                   [&](Participant& /*me*/) {
                       for (const auto& one : kCases) {
                           there.Await();
                           const ForeignPeer stranger;
                           EXPECT_EQ(stranger.Connect(m_settings.directory + "/d.job/a.target"), 0);
                           stranger.Send(GreetingFrame({}));
                           for (int number = 0; number < one.messages; ++number) {
                               SendManyDescriptors(stranger.Socket(), AnnounceFrame("x"), one.headers,
                                                   one.each);
                           }
                           sent.Give();
                           EXPECT_TRUE(stranger.AwaitEnd());
                       }
                   }});
}

}  // namespace

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

using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
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
    /// Of control messages, and of descriptors in each of them; with some the bytes are sent twice.
    std::size_t headers = 0;
    std::size_t each = 0;
};

void Send(const ForeignPeer& stranger, const Garbage& garbage) {
    const std::size_t space = CMSG_SPACE(garbage.each * sizeof(int));
    std::vector<char> control(garbage.headers * space, '\0');
    for (std::size_t index = 0; index < garbage.headers; ++index) {
        const cmsghdr header{CMSG_LEN(garbage.each * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        std::memcpy(control.data() + index * space, &header, sizeof header);  // standard input is number 0
    }
    std::string bytes = garbage.bytes;
    iovec part{bytes.data(), bytes.size()};
    const msghdr message{nullptr, 0, &part, 1, control.data(), control.size(), 0};
    for (int times = garbage.headers == 0 ? 1 : 2; times > 0; --times) {
        EXPECT_EQ(sendmsg(stranger.Socket(), &message, MSG_NOSIGNAL), std::ssize(bytes));
    }
    if (garbage.complaint == nullptr) {
        stranger.EndSending();
    }
}

std::string WrongVersion() {
    Greeting greeting;
    greeting.version = kProtocolVersion + 1;
    return GreetingFrame(greeting);
}

TEST_F(Stranger, GarbageFromAStrangerClosesItsLinkWithOneLineAndHarmsNothingElse) {
    const std::string greeting = GreetingFrame({});
    const Garbage kGarbage[] = {
        {"GET / HTTP/1.1\r\n\r\n", "the frame's magic number is 542393671"},
        {WrongVersion(), "the peer speaks version "},
        {Header(1, 1, 4) + std::string(5, '\0'), "the peer speaks version 0, this process version "},
        {MessageFrame("t", "rude"), "the first frame is no greeting"},
        {greeting + greeting, "a second greeting"},
        {greeting + LaneFrame(4096), "a lane with a ring of 4096 bytes and 0 descriptors cannot be opened"},
        {greeting + MessageFrame("t", "") + std::string(100'000, 'x'), "the frame's magic number is "},
        {greeting, "6 descriptors come, which belong to no lane", 1, 3},
        {greeting, "4 descriptors come, which belong to no lane", 1, 4},
        {greeting, "4 descriptors come, which belong to no lane", 1, 253},
        {greeting, "4 descriptors come, which belong to no lane", 4, 1},
        {greeting, "4 descriptors come, which belong to no lane", 2, 100},
        // Cut off in the middle: nobody can tell it from a sender that was killed, which is not worth a line.
        {greeting.substr(0, 5), nullptr},
        {greeting.substr(0, greeting.size() - 1), nullptr},
        {greeting + MessageFrame("t", "cut off").substr(0, 20), nullptr},
        {"", nullptr},
    };
    Signal ready;
    Signal done;
    m_world->Play({[&](Participant& me) {
                       me.Watch("target");
                       me.Receive("target");
                       ready.Give();
                       me.WaitUntil([&] { return me.received.size() == 1; });
                       const int descriptors = OpenDescriptors();
                       for (const Garbage& garbage : kGarbage) {
                           SCOPED_TRACE(garbage.bytes.substr(0, 40));
                           const ForeignPeer stranger;
                           EXPECT_EQ(stranger.Connect(m_settings.directory + "/d.job/a.target"), 0);
                           Send(stranger, garbage);
                           ::testing::internal::CaptureStderr();
                           me.Look();
                           me.Look();  // the end may follow the bytes
                           const std::string lines = ::testing::internal::GetCapturedStderr();
                           ASSERT_TRUE(stranger.AwaitEnd());
                           EXPECT_EQ(OpenDescriptors(), descriptors + 1) << "the stranger's";
                           EXPECT_EQ(Lines(lines), garbage.complaint != nullptr ? 1 : 0) << lines;
                           if (garbage.complaint != nullptr) {
                               EXPECT_THAT(lines, StartsWith("ZYLFeaBackbone: the link from process " +
                                                             std::to_string(getpid()) +
                                                             " to application 'target' is closed: " +
                                                             garbage.complaint));
                           }
                       }
                       done.Give();
                       me.WaitUntil([&] { return me.received.size() == 3; });
                       EXPECT_EQ(me.received[2].body, "after it");
                       EXPECT_THAT(me.lost, IsEmpty());
                   },
                   [&](Participant& me) {
                       ready.Await();
                       me.Send("target", "t", "before the garbage");
                       done.Await();
                       me.Send("target", "t", "after it");
                   }});
}

TEST_P(StrangerOnALink, GarbageFromWhoeverListensUnderANameHarmsNoSender) {
    m_world->Play({[&](Participant& me) {
        me.Receive("sender");
        const ForeignPeer listener;
        ASSERT_TRUE(listener.Listen(m_settings.directory + "/d.job/a.fake"));
        me.Send("fake", "t", "one");
        const ForeignPeer link = listener.Accept();
        link.Send(std::string(100000, 'x'));
        me.Send("fake", "t", "two");
        const auto before = ProcessorTime();
        int never = 1;
        me.board.WaitingLoop(me.domain, 300, &never);
        EXPECT_LT(ProcessorTime() - before, kHardlyAny);
        me.Send("sender", "t", "to itself");
        me.Look();
        EXPECT_THAT(me.received, SizeIs(1));
    }});
}

}  // namespace

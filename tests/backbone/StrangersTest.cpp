// Somebody of the same user who has found a domain, and follows no rules: as who opens links to others, and
// as who listens under a name.

#include <gmock/gmock.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Frames.h"
#include "World.h"
#include "system/MakeSystem.h"

namespace {

using namespace zyl::backbone::local;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using zyl::backbone::system::Channel;
using zyl::backbone::system::Entry;
using zyl::backbone::system::MakeSystem;
using zyl::backbone::system::Names;
using zyl::backbone::system::Progress;
using zyl::backbone::system::System;

std::string GreetingTo(const std::string& application, std::uint32_t version = kProtocolVersion) {
    return GreetingFrame({version, {1, 2}, 4711, "host", "user", application});
}

/// Waits for the end that the other side makes of the channel.
bool IsEnded(System& system, Channel& channel) {
    struct Nothing final : zyl::backbone::system::Watcher {
        void Ready(const zyl::backbone::system::Readiness& /*readiness*/) override {}
    };
    static Nothing s_nothing;
    channel.Watch(s_nothing);
    char byte = 0;
    for (int looks = 0; looks < 10'000; ++looks) {
        if (channel.Receive({&byte, 1}).progress == Progress::kEnded) {
            return true;
        }
        system.Wait(system.Now() + std::chrono::milliseconds(1));
    }
    return false;
}

struct Garbage {
    std::string bytes;
    /// Nothing: the stranger ends, and nobody can tell it from a sender that was killed, which is not worth a
    /// line.
    const char* complaint;
    std::size_t memory = 0;  ///< of so many bytes, with the last frame
};

class Stranger : public ::testing::TestWithParam<bool> {
  protected:
    World m_world{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Local, Stranger, ::testing::Bool(),
                         [](const auto& lanes) { return lanes.param ? "memory" : "socket"; });

TEST_P(Stranger, WhoSendsGarbageHasItsLinkClosedWithOneLineAndHarmsNothingElse) {
    const std::string greeting = GreetingTo("target");
    const std::vector<Garbage> garbages = {
        {"GET / HTTP/1.1\r\n\r\n", "the frame's magic number is 542393671"},
        {GreetingTo("target", kProtocolVersion + 1), "the peer speaks version "},
        {GreetingTo("nobody"), "it is for application 'nobody', which is not here"},
        {MessageFrame("t", "rude"), "the first frame is no greeting"},
        {greeting + greeting, "a second greeting"},
        {greeting + AnnounceFrame({1, std::string(4097, 'n')}),
         "it announces an application with a name of 4097 bytes"},
        {greeting + LaneFrame(4096), "a lane with a ring of 4096 bytes"},
        {greeting + LaneFrame(2 << 20), "a lane for its messages cannot be opened: no memory came with it"},
        {greeting + LaneFrame(2 << 20), "a lane has 8192 bytes instead of 2101248", 8192},
        {greeting + BlockFrame({1, 100}), "a block has 8192 bytes instead of 100", 8192},
        {greeting + MessageFrame("t", "") + std::string(100'000, 'x'), "the frame's magic number is "},
        {greeting.substr(0, 5), nullptr},
        {greeting.substr(0, greeting.size() - 1), nullptr},
        {greeting + MessageFrame("t", "cut off").substr(0, 20), nullptr},
    };
    Signal ready;
    Signal done;
    m_world.Play(
        {[&](Participant& me) {
             me.Watch("target");
             me.Receive("target");
             ready.Give();
             me.WaitUntil([&] { return me.received.size() == 1; });
             for (const Garbage& garbage : garbages) {
                 SCOPED_TRACE(garbage.bytes.substr(0, 40));
                 const std::unique_ptr<System> system = MakeSystem();
                 const std::unique_ptr<Names> names = system->Join(m_world.local.directory, "job");
                 Names::Connection link = names->Connect(names->Find("target").value());
                 ASSERT_NE(link.channel, nullptr);
                 if (garbage.memory > 0) {
                     link.channel->Send(greeting);
                     link.channel->SendWithMemory(std::string_view(garbage.bytes).substr(greeting.size()),
                                                  *system->MakeMemory(garbage.memory));
                 } else {
                     link.channel->Send(garbage.bytes);
                 }
                 if (garbage.complaint == nullptr) {
                     link.channel.reset();
                 }
                 ::testing::internal::CaptureStderr();
                 me.Look();
                 me.Look();  // the end may follow the bytes
                 const std::string lines = ::testing::internal::GetCapturedStderr();
                 if (garbage.complaint == nullptr) {
                     EXPECT_EQ(lines, "");
                     continue;
                 }
                 EXPECT_THAT(lines, AllOf(StartsWith("ZYLFeaBackbone: the link from process "),
                                          HasSubstr(garbage.complaint)));
                 EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1) << lines;
                 EXPECT_TRUE(IsEnded(*system, *link.channel));
             }
             done.Give();
             me.WaitUntil([&] { return me.received.size() >= 2 && me.received.back().body == "after it"; });
             EXPECT_THAT(me.lost, IsEmpty());
         },
         [&](Participant& me) {
             ready.Await();
             me.Send("target", "t", "before the garbage");
             done.Await();
             me.Send("target", "t", "after it");
         }});
}

/// The announcement of a name that a living application holds, with an order before and behind its own.
TEST_P(Stranger, WhoClaimsALivingApplicationsNameEndsOnlyItself) {
    Signal watching;
    Signal declared;
    Signal over;
    m_world.Play({[&](Participant& me) {
                      me.Receive("watcher");
                      me.Watch("watcher");
                      watching.Give();
                      declared.Await();
                      const std::unique_ptr<System> system = MakeSystem();
                      const std::unique_ptr<Names> names = system->Join(m_world.local.directory, "job");
                      std::vector<std::unique_ptr<Channel>> links;
                      me.Send("alive", "t", "before");
                      for (const std::uint64_t order : {std::uint64_t{1}, ~std::uint64_t{0}}) {
                          Names::Connection link = names->Connect(names->Find("watcher").value());
                          link.channel->Send(GreetingTo("watcher") + AnnounceFrame({order, "alive"}));
                          links.push_back(std::move(link.channel));
                          me.Look();
                          me.Send("alive", "t", "still there");
                      }
                      over.Give();
                      me.WaitUntil([&] { return me.received.size() == 2; });
                      EXPECT_THAT(me.lost, Not(Contains("alive")));
                  },
                  [&](Participant& me) {
                      watching.Await();
                      me.Receive("alive");
                      declared.Give();
                      me.WaitUntil([&] { return me.received.size() == 3; });
                      over.Await();
                      me.Send("watcher", "t", "1");
                      me.Send("watcher", "t", "2");
                  }});
}

TEST_P(Stranger, WhoListensUnderANameAndAnswersGarbageHarmsNoSender) {
    m_world.Play({[&](Participant& me) {
        me.Receive("sender");
        const std::unique_ptr<System> system = MakeSystem();
        const std::unique_ptr<Names> names = system->Join(m_world.local.directory, "job");
        ASSERT_TRUE(names->Claim("fake", true).taken);
        me.Send("fake", "t", "one");
        Names::Acceptance link = names->Accept();
        ASSERT_NE(link.channel, nullptr);
        link.channel->Send(std::string(100'000, 'x'));
        me.Send("fake", "t", "two");
        me.Look();
        me.Send("sender", "t", "to itself");
        me.Look();
        EXPECT_THAT(me.received, SizeIs(1));
    }});
}

}  // namespace

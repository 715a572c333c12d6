// A process that can open no further descriptors.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include "LocalTransport.h"
#include "ObservedTransport.h"

namespace {

using ::testing::EndsWith;
using ::testing::StartsWith;
using zyl::backbone::MakeLocalTransport;

/// While the object lives, this process can open `spare` further descriptors only.
class DescriptorShortage {
  public:
    explicit DescriptorShortage(int spare) {
        getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit limit = m_before;
        limit.rlim_cur = 0;
        while (fcntl(static_cast<int>(limit.rlim_cur), F_GETFD) >= 0 || spare-- > 0) {
            ++limit.rlim_cur;
        }
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorShortage() { End(); }
    void End() { setrlimit(RLIMIT_NOFILE, &m_before); }

  private:
    rlimit m_before{};
};

using ShortOfDescriptors = LocalLink;

INSTANTIATE_TEST_SUITE_P(Lanes, ShortOfDescriptors, AllLanes(), LaneName);

TEST_P(ShortOfDescriptors, ReceiverOutOfDescriptorsSaysSoOnceAndLosesNothing) {
    for (int spare = 0; spare <= 3; ++spare) {
        Signal there;
        Signal scarce;
        Signal sent;
        Signal done;
        m_world->Play(
            {[&](Participant& me) {
                 me.Receive("target");
                 me.Receive("one for whom nobody waits");
                 there.Give();
                 me.WaitUntil([&] { return me.received.size() == 1; });
                 ::testing::internal::CaptureStderr();
                 {
                     const DescriptorShortage shortage(spare);
                     scarce.Give();
                     scarce.Give();
                     sent.Await();
                     sent.Await();
                     const auto before = ProcessorTime();
                     int never = 1;
                     me.board.WaitingLoop(me.domain, 300, &never);
                     EXPECT_LT(ProcessorTime() - before, kHardlyAny);
                 }
                 ASSERT_GE(me.received.size(), 2U) << "a link that is open already goes on";
                 EXPECT_EQ(me.received[1].body, "early again");
                 me.WaitUntil([&] { return me.received.size() == 3; });
                 EXPECT_EQ(me.received[2].body, "late");
                 const std::string lines = ::testing::internal::GetCapturedStderr();
                 EXPECT_LE(Lines(lines), 1) << lines;
                 if (spare == 0) {
                     EXPECT_EQ(lines,
                               "ZYLFeaBackbone: cannot accept a link to application 'target': Too many open "
                               "files; will try again\n");
                 }
                 done.Give();
             },
             [&](Participant& me) {
                 there.Await();
                 me.Send("target", "t", "early");
                 scarce.Await();
                 me.Send("target", "t", "early again");
                 sent.Give();
                 done.Await();
             },
             [&](Participant& me) {
                 scarce.Await();
                 me.Send("target", "t", "late");
                 sent.Give();
             }});
    }
}

TEST_P(ShortOfDescriptors, ReceiverShortOfDescriptorsHearsAllThatSentAndEnded) {
    constexpr std::size_t kSenders = 12;
    Signal there;
    Signal sent;
    std::vector<Role> roles = {[&](Participant& me) {
        me.Receive("target");
        const DescriptorShortage shortage(8);
        for (std::size_t sender = 0; sender < kSenders; ++sender) {
            there.Give();
        }
        for (std::size_t sender = 0; sender < kSenders; ++sender) {
            sent.Await();
        }
        me.WaitUntil([&] { return me.received.size() == kSenders; });
    }};
    for (std::size_t sender = 0; sender < kSenders; ++sender) {
        roles.push_back([&](Participant& me) {
            there.Await();
            me.Send("target", "t", "a word");
            sent.Give();
        });
    }
    m_world->Play(roles);
}

TEST_P(ShortOfDescriptors, SenderOutOfDescriptorsSaysSoOnceAndSendsWhenItHasSome) {
    Signal there;
    m_world->Play({[&](Participant& me) {
                       me.Receive("target");
                       there.Give();
                       me.WaitUntil([&] { return me.received.size() == 1; });
                   },
                   [&](Participant& /*me*/) {
                       there.Await();
                       DescriptorShortage* shortage = nullptr;
                       Participant sender(std::make_unique<ObservedTransport>(m_settings,
                                                                              [&](int nth) {
                                                                                  if (nth == 20) {
                                                                                      shortage->End();
                                                                                  }
                                                                              }),
                                          m_settings);
                       ::testing::internal::CaptureStderr();
                       DescriptorShortage limited(0);
                       shortage = &limited;
                       const auto before = ProcessorTime();
                       sender.Send("target", "t", "");
                       EXPECT_LT(ProcessorTime() - before, kHardlyAny);
                       const std::string lines = ::testing::internal::GetCapturedStderr();
                       const std::string line = "cannot open a socket: Too many open files; will try again\n";
                       EXPECT_THAT(lines, StartsWith("ZYLFeaBackbone: " + line));
                       EXPECT_EQ(lines.find(line), lines.rfind(line)) << lines;
                   }});
}

using WithoutDescriptorsDeathTest = LocalTransport;

TEST_F(WithoutDescriptorsDeathTest, FailureIsReportedWithItsOwnReason) {
    EXPECT_DEATH(
        {
            const DescriptorShortage shortage(1);
            MakeLocalTransport(m_settings);
        },
        "cannot make a doorbell: Too many open files");
    m_world->Play({[&](Participant& me) {
        ::testing::internal::CaptureStderr();
        {
            const DescriptorShortage shortage(2);  // a lock and a socket, but no list of those who watch
            me.Declare("newcomer");
        }
        EXPECT_THAT(::testing::internal::GetCapturedStderr(), EndsWith("/d.job': Too many open files\n"));
    }});
}

}  // namespace

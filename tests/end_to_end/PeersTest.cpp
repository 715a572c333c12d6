// What processes learn of each other: forwarded messages, and the end of a peer.

#include <gmock/gmock.h>
#include <signal.h>

#include <cstdlib>

#include "Application.h"
#include "Process.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgFwdHandler.h"
#include "ZYLMsgSimpleDisconnectHandler.h"

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

TEST_F(EndToEnd, AForwardedMessageCarriesTheForwardersIdentifier) {
    Process end([] {
        Application("end").ListenUntilDone();
        return 0;
    });
    Process relay([] {
        const Application me("relay", nullptr,
                             new ZYLMsgFwdHandler(ZYLString::BuildFromUTF8("end"), Domain()));
        int never = -1;
        ZYLMsgBBAPI::WaitingLoop(Domain(), -1, never);
        return 0;
    });
    Process origin([] {
        const Application me("origin");
        Application::Say("relay", "");
        Application::Say("relay", "as it was \xC3\xA9");
        Application::Say("relay", "done");
        return 0;
    });
    EXPECT_EQ(origin.Wait(), "status 0") << origin.Output();
    EXPECT_EQ(end.Wait(), "status 0");
    EXPECT_EQ(end.Output(), "relay: \nrelay: as it was \xC3\xA9\nrelay: done\n");
}

struct Ending {
    const char* name;
    void (*end)();
    const char* seen;
};

void PrintTo(const Ending& ending, std::ostream* out) {
    *out << ending.name;
}

const Ending kEndings[] = {
    {"Exits", [] { std::exit(3); }, "status 3"},
    {"IsKilled", [] { raise(SIGKILL); }, "signal 9"},
    {"Crashes", [] { std::abort(); }, "signal 6"},
};

class WatchedPeer : public EndToEnd, public ::testing::WithParamInterface<Ending> {
  protected:
    /// Lets a watched peer send and end; checks how the watcher ends and that it has heard everything before.
    void Play(ZYLMsgSimpleDisconnectHandler::e_behavior behavior, const std::string& watcherEnds) {
        constexpr int kMessages = 200;
        Process watcher([&] {
            ZYLMsgSimpleDisconnectHandler watch;
            watch.SetWatchApplication("peer", -1, nullptr);
            watch.SetDisconnectBehavior(behavior);
            const Application me("watcher", &watch);
            ZYLMsgBBAPI::WaitingLoop(Domain(), -1, watch.EndingCondition());
            return 7;
        });
        Process peer([&] {
            const Application me("peer");
            for (int i = 1; i <= kMessages; ++i) {
                Application::Say("watcher", std::to_string(i));
            }
            GetParam().end();
            return 0;
        });
        EXPECT_EQ(peer.Wait(), GetParam().seen) << peer.Output();
        EXPECT_EQ(watcher.Wait(), watcherEnds);
        std::string heard;
        for (int i = 1; i <= kMessages; ++i) {
            heard += "peer: " + std::to_string(i) + "\n";
        }
        const std::string& output = watcher.Output();
        const std::size_t report = output.find("in disconnection handler, process ");
        EXPECT_EQ(output.substr(0, report), heard);
        EXPECT_THAT(output, HasSubstr(" -- app -- peer -- host "));
        EXPECT_TRUE(output.ends_with("\nExit Handler -- confirm exit\n")) << output;
        EXPECT_THAT(BackboneFiles(), Each(Not(HasSubstr("watcher"))));
    }
};

TEST_P(WatchedPeer, EndsTheWatcherWithStatus0) {
    Play(ZYLMsgSimpleDisconnectHandler::e_exit, "status 0");
}

TEST_P(WatchedPeer, EndsTheWatchersLoop) {
    Play(ZYLMsgSimpleDisconnectHandler::e_endLoop, "status 7");
}

INSTANTIATE_TEST_SUITE_P(That, WatchedPeer, ::testing::ValuesIn(kEndings),
                         [](const auto& ending) { return ending.param.name; });

TEST_F(EndToEnd, ProcessesThatEndInGoodOrderLeaveNothingBehind) {
    Process listener([] {
        ZYLMsgSimpleDisconnectHandler watch;
        watch.SetWatchApplication("speaker", -1, nullptr);
        const Application me("listener", &watch);
        ZYLMsgBBAPI::WaitingLoop(Domain(), -1, watch.EndingCondition());
        return 1;  // not reached: the handler ends the process
    });
    Process speaker([] {
        const Application me("speaker");
        Application::Say("listener", "a word");
        return 0;
    });
    EXPECT_EQ(speaker.Wait(), "status 0") << speaker.Output();
    EXPECT_EQ(listener.Wait(), "status 0") << listener.Output();
    EXPECT_THAT(BackboneFiles(), IsEmpty());
}

}  // namespace

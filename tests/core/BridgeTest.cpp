#include <gmock/gmock.h>

#include "FakeBackbone.h"
#include "FatalErrors.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgStringType.h"

using testing::ElementsAre;

namespace {

struct Receiver : ZYLMsgBBMessageHandler {
    void HandleMessage(const ZYLMsgBBMessage&, const char* id) override { s_id = id; }
    static inline std::string s_id;
};

struct Watcher : ZYLMsgBBDisconnectHandler {
    void DetectDisconnection(int pid, const char* app, const char* host, const char* user) const override {
        s_lost = std::to_string(pid) + app + host + user;
    }
    static inline std::string s_lost;
};

TEST(Bridge, ForwardsItsArgumentsUnchanged) {
    FakeBackbone& backbone = FakeBackbone::Get();
    backbone.nextCommunicator = 7;
    int communicator = 0;
    ZYLMsgBBAPI::RegisterCommunicator("job", communicator);
    EXPECT_EQ(communicator, 7);
    ZYLMsgBBAPI::DeclareApplicationId(7, "solver", true);
    ZYLMsgBBAPI::DeclareApplicationId(8, nullptr, false);
    const ZYLMsgBBCallbackManager emptiesTheRegistries;
    ZYLMsgBBAPI::AssociateHandler(&emptiesTheRegistries);
    int condition = 0;
    ZYLMsgBBAPI::WaitingLoop(3, -1, condition);
    ZYLMsgBBAPI::BBSysLoopWait(condition, 250);
    ZYLMsgBBCallbackManager::SetMessageID("p\xc3\xa9");
    ZYLMsgBBAPI::SendRequest(2, nullptr, ZYLMsgStringType());
    EXPECT_THAT(backbone.sent,
                ElementsAre(FakeBackbone::Message{2, "", "ZYLMsgStringType", {"\3\0\0\0p\xc3\xa9", 7}}));

    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType, new Receiver);
    ZYLMsgBBAPI::EnableReceiveHandling(7, nullptr);
    backbone.receive("ZYLMsgStringType", "\3\0\0\0jobx", 8);
    EXPECT_EQ(Receiver::s_id, "job");

    const std::string remedy =
        "call ZYLMsgBBCallbackManager::AssociateDisconnectHandler before "
        "ZYLMsgBBAPI::EnableDisconnectHandling\n";
    EXPECT_EQ(
        FatalErrorOf([] { ZYLMsgBBAPI::EnableDisconnectHandling(7, "monitor"); }),
        "ZYLMsgModules: application 'monitor' enables disconnect handling without a disconnect handler, so "
        "the first lost peer ends this process: " +
            remedy);
    EXPECT_EQ(FatalErrorOf([&] { backbone.disconnect(1, "a", "h", "u"); }),
              "ZYLMsgModules: nobody handles the loss of application 'a': " + remedy +
                  Failed("m_disconnectHandler != 0", "Backbone.m/src/ZYLMsgBBCallbackManager"));
    const Watcher watcher;
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&watcher);
    EXPECT_EQ(FatalErrorOf([] { ZYLMsgBBAPI::EnableDisconnectHandling(7, nullptr); }), "");
    backbone.disconnect(-12, "-a", nullptr, "-u");
    EXPECT_EQ(Watcher::s_lost, "-12-a-u");
    EXPECT_THAT(backbone.calls,
                ElementsAre("RegisterCommunicator(job)", "DeclareApplicationId(7, solver, true)",
                            "DeclareApplicationId(8, , false)", "WaitingLoop(3, -1)", "BBSysLoopWait(250)",
                            "AssociateHandler(7, )", "AssociateDisconnectHandler(7, monitor)",
                            "AssociateDisconnectHandler(7, )"));
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(nullptr);
    ZYLMsgBBCallbackManager::SetMessageID("");
}

}  // namespace

#include <gmock/gmock.h>

#include "FakeBackbone.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgStringType.h"

using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

class Bridge : public testing::Test {
  public:
    Bridge() { FakeBackbone::Get() = {}; }
    ~Bridge() override {
        ZYLMsgBBCallbackManager emptiesTheRegistries;
        ZYLMsgBBCallbackManager::SetMessageID("");
    }

  protected:
    FakeBackbone& m_backbone = FakeBackbone::Get();
};

TEST_F(Bridge, ForwardsItsArgumentsUnchanged) {
    m_backbone.nextCommunicator = 7;
    int communicator = 0;
    ZYLMsgBBAPI::RegisterCommunicator("job", communicator);
    EXPECT_EQ(communicator, 7);
    ZYLMsgBBAPI::DeclareApplicationId(7, "solver", true);
    ZYLMsgBBAPI::DeclareApplicationId(8, nullptr, false);
    ZYLMsgBBAPI::EnableReceiveHandling(7, "solver");
    ZYLMsgBBAPI::EnableReceiveHandling(7, nullptr);
    testing::internal::CaptureStderr();
    ZYLMsgBBAPI::EnableDisconnectHandling(7, "monitor");
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        MatchesRegex("ZYLMsgModules: application 'monitor' .*AssociateDisconnectHandler before .*\n"));
    const ZYLMsgBBCallbackManager manager;
    ZYLMsgBBAPI::AssociateHandler(&manager);
    ZYLMsgBBAPI::AssociateHandler(nullptr);
    int condition = 0;
    ZYLMsgBBAPI::WaitingLoop(3, -1, condition);
    ZYLMsgBBAPI::BBSysLoopWait(condition, 250);
    ZYLMsgBBCallbackManager::SetMessageID("p\xc3\xa9");
    ZYLMsgBBAPI::SendRequest(2, nullptr, ZYLMsgStringType());
    EXPECT_THAT(m_backbone.sent,
                ElementsAre(FakeBackbone::Message{2, "", "ZYLMsgStringType", {"\3\0\0\0p\xc3\xa9", 7}}));
    EXPECT_THAT(m_backbone.calls,
                ElementsAre("RegisterCommunicator(job)", "DeclareApplicationId(7, solver, true)",
                            "DeclareApplicationId(8, , false)", "AssociateHandler(7, solver)",
                            "AssociateHandler(7, )", "AssociateDisconnectHandler(7, monitor)",
                            "WaitingLoop(3, -1)", "BBSysLoopWait(250)"));
}

TEST_F(Bridge, HandsMessagesAndLossesToTheHandlers) {
    struct Receiver : ZYLMsgBBMessageHandler {
        explicit Receiver(std::string& id) : m_id(id) {}
        void HandleMessage(const ZYLMsgBBMessage&, const char* id) override { m_id = id; }
        std::string& m_id;
    };
    struct Watcher : ZYLMsgBBDisconnectHandler {
        void DetectDisconnection(int pid, const char* app, const char* host,
                                 const char* user) const override {
            m_lost = std::to_string(pid) + app + host + user;
        }
        mutable std::string m_lost;
    };
    std::string id;
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType, new Receiver(id));
    Watcher watcher;
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&watcher);
    ZYLMsgBBAPI::EnableReceiveHandling(1, "solver");
    testing::internal::CaptureStderr();
    ZYLMsgBBAPI::EnableDisconnectHandling(1, "solver");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    m_backbone.receive("ZYLMsgStringType", "\3\0\0\0jobx", 8);
    m_backbone.disconnect(12, "-a", "-h", "-u");
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(nullptr);
    EXPECT_EQ(id, "job");
    EXPECT_EQ(watcher.m_lost, "12-a-h-u");
}

}  // namespace

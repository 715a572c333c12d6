#include "Application.h"

#include <fmt/format.h>

#include <string_view>

#include "Process.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgStringType.h"

namespace {

int Domain() {
    int communicator = 0;
    ZYLMsgBBAPI::RegisterCommunicator("job", communicator);
    return communicator;
}

struct TextHandler : ZYLMsgBBMessageHandler {
    explicit TextHandler(Application& owner) : m_owner(owner) {}
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        const auto& text = static_cast<const ZYLMsgStringType&>(message);
        const std::string_view said(text.Data(), static_cast<std::size_t>(text.Size()));
        Tell(fmt::format("{}: {}", id, said));
        if (said == "done") {
            m_owner.End();
        }
    }
    Application& m_owner;
};

struct Watch : ZYLMsgBBDisconnectHandler {
    explicit Watch(ZYLMsgFileTransfer& files) : m_files(files) {}
    void DetectDisconnection(int /*pid*/, const char* app, const char* /*host*/,
                             const char* /*user*/) const override {
        m_files.ApplicationLost(app);
    }
    ZYLMsgFileTransfer& m_files;
};

}  // namespace

Application::Application(const std::string& name, int verbosity)
    : files(Domain(), nullptr, verbosity), m_watch(std::make_unique<Watch>(files)) {
    static const ZYLMsgBBCallbackManager manager;  // deletes what it adopts when the process ends
    ZYLMsgBBAPI::DeclareApplicationId(Domain(), name.c_str(), true);
    ZYLMsgBBCallbackManager::SetMessageID(name.c_str());
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType, new TextHandler(*this));
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(&files));
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(m_watch.get());
    ZYLMsgBBAPI::EnableReceiveHandling(Domain(), name.c_str());
    ZYLMsgBBAPI::EnableDisconnectHandling(Domain(), name.c_str());
}

void Application::Listen() {
    m_endingCondition = -1;
    ZYLMsgBBAPI::WaitingLoop(Domain(), -1, m_endingCondition);
}

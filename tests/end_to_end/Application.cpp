#include "Application.h"

#include <fmt/format.h>

#include <utility>

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
    explicit TextHandler(Application::OnText onText) : m_onText(std::move(onText)) {}
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        const auto& text = static_cast<const ZYLMsgStringType&>(message);
        m_onText(id, {text.Data(), static_cast<std::size_t>(text.Size())});
    }
    Application::OnText m_onText;
};

struct Watch : ZYLMsgBBDisconnectHandler {
    Watch(ZYLMsgFileTransfer& files, Application::OnLoss onLoss)
        : m_files(files), m_onLoss(std::move(onLoss)) {}
    void DetectDisconnection(int pid, const char* app, const char* /*host*/,
                             const char* /*user*/) const override {
        m_files.ApplicationLost(app);
        if (m_onLoss) {
            m_onLoss(pid, app);
        }
    }
    ZYLMsgFileTransfer& m_files;
    Application::OnLoss m_onLoss;
};

}  // namespace

Application::Application(const std::string& name, OnText onText, OnLoss onLoss, int verbosity)
    : files(Domain(), nullptr, verbosity), m_watch(std::make_unique<Watch>(files, std::move(onLoss))) {
    static const ZYLMsgBBCallbackManager manager;  // deletes what it adopts when the process ends
    if (!onText) {
        onText = [this](const std::string& sender, const std::string& text) {
            Tell(fmt::format("{}: {}", sender, text));
            if (text == "done") {
                End();
            }
        };
    }
    ZYLMsgBBAPI::DeclareApplicationId(Domain(), name.c_str(), true);
    ZYLMsgBBCallbackManager::SetMessageID(name.c_str());
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType,
                                                      new TextHandler(std::move(onText)));
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(&files));
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(m_watch.get());
    ZYLMsgBBAPI::EnableReceiveHandling(Domain(), name.c_str());
    ZYLMsgBBAPI::EnableDisconnectHandling(Domain(), name.c_str());
}

void Application::Say(const std::string& target, const std::string& text) {
    ZYLMsgStringType message;
    message.SetData(text.data(), static_cast<int>(text.size()));
    ZYLMsgBBAPI::SendRequest(Domain(), target.c_str(), message);
}

void Application::Listen() {
    m_endingCondition = m_hasEnded ? 0 : -1;
    ZYLMsgBBAPI::WaitingLoop(Domain(), -1, m_endingCondition);
    m_hasEnded = false;
}

void Application::End() {
    m_hasEnded = true;
    m_endingCondition = 0;
}

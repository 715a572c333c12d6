#include "Application.h"

#include <cstdio>

#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgStringType.h"

void Tell(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

int Domain() {
    int communicator = 0;
    ZYLMsgBBAPI::RegisterCommunicator("job", communicator);
    return communicator;
}

class Application::TextHandler : public ZYLMsgBBMessageHandler {
  public:
    explicit TextHandler(Application& application) : m_application(application) {}

    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        std::string text(static_cast<std::size_t>(message.RequiredBufferSize()), '\0');
        message.Stream(text.data(), message.RequiredBufferSize());
        Tell(std::string(id) + ": " + text);
        if (text == "done" && ++m_application.m_done == m_application.m_doneAwaited) {
            m_application.endingCondition = 0;
        }
    }

  private:
    Application& m_application;
};

Application::Application(const std::string& name, const ZYLMsgBBDisconnectHandler* watch,
                         ZYLMsgBBMessageHandler* texts, int verbosity)
    : files(Domain(), nullptr, verbosity) {
    static const ZYLMsgBBCallbackManager manager;  // deletes what it adopts when the process ends
    ZYLMsgBBAPI::DeclareApplicationId(Domain(), name.c_str(), true);
    ZYLMsgBBCallbackManager::SetMessageID(name.c_str());
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType,
                                                      texts != nullptr ? texts : new TextHandler(*this));
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(&files));
    ZYLMsgBBAPI::EnableReceiveHandling(Domain(), name.c_str());
    if (watch != nullptr) {
        ZYLMsgBBCallbackManager::AssociateDisconnectHandler(watch);
        ZYLMsgBBAPI::EnableDisconnectHandling(Domain(), name.c_str());
    }
}

void Application::Say(const std::string& target, const std::string& text) {
    ZYLMsgStringType message;
    message.SetData(text.data(), static_cast<int>(text.size()));
    ZYLMsgBBAPI::SendRequest(Domain(), target.c_str(), message);
}

void Application::ListenUntilDone(int times) {
    m_doneAwaited = times;
    endingCondition = m_done >= times ? 0 : -1;
    ZYLMsgBBAPI::WaitingLoop(Domain(), -1, endingCondition);
}

// A part of an application that comes and goes: the program load_loop loads it, and with it the library.

#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgModules.h"
#include "ZYLMsgStringType.h"

namespace {

int handled = 0;

class Handler : public ZYLMsgBBMessageHandler {
  public:
    void HandleMessage(const ZYLMsgBBMessage& message, const char* /*id*/) override {
        handled += message.RequiredBufferSize();
    }
};

}  // namespace

/// Sends a string message through the manager to itself. Gives the size that the handler saw, which is 1.
extern "C" __attribute__((visibility("default"))) int UseLibrary() {
    ZYLMsgModules_initializeC();
    {
        ZYLMsgBBCallbackManager manager;
        ZYLMsgBBCallbackManager::SetMessageID("load loop");
        ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType, new Handler);
        ZYLMsgStringType message;
        message.SetData("x", 1);
        ZYLMsgBBCallbackManager::AppendMessageToSend(&message);
        char buffer[64];
        const int size = ZYLMsgBBCallbackManager::RequiredBufferSizeOfPendingMessage();
        ZYLMsgBBCallbackManager::StreamPendingMessage(buffer, size);
        ZYLMsgBBCallbackManager::HandleMessage(message.Type(), buffer, size);
    }
    ZYLMsgModules_finalizeC();
    return handled;
}

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

/// Dispatches a string message. Gives the size that the handler saw, which is 1.
extern "C" __attribute__((visibility("default"))) int UseLibrary() {
    ZYLMsgModules_initializeC();
    {
        const ZYLMsgBBCallbackManager emptiesTheRegistries;
        ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType, new Handler);
        ZYLMsgBBCallbackManager::HandleMessage("ZYLMsgStringType", "\2\0\0\0mex", 7);
    }
    ZYLMsgModules_finalizeC();
    return handled;
}

#include "ZYLFeaBackbone.h"

#include <memory>

#include "Diagnostics.h"
#include "Process.h"
#include "Settings.h"
#include "Switchboard.h"
#include "local/LocalTransport.h"

namespace zyl::backbone {

namespace {

constexpr const char* kSourceFile = "platform/backbone/ZYLFeaBackbone";

/// The switchboard of this process. It goes with the library, at unload or at the end of the process; ended
/// from inside one of its own callbacks it only leaves its domains, for the callback's frames are still on
/// the stack.
class ProcessSwitchboard {
  public:
    ~ProcessSwitchboard() {
        if (m_switchboard != nullptr && m_switchboard->Dispatching()) {
            m_switchboard.release()->Leave();  // NOLINT(bugprone-unused-return-value)
        }
    }

    Switchboard& Get() {
        if (m_forked) {
            Fatal(
                "this process was forked from one that uses the backbone and cannot use it itself; "
                "execute a program first",
                kSourceFile, __LINE__);
        }
        if (m_switchboard == nullptr) {
            const Settings settings = Settings::FromEnvironment();
            m_switchboard = std::make_unique<Switchboard>(MakeLocalTransport(settings), settings);
            OnForkInChild([] { s_instance.Forked(); });
        }
        return *m_switchboard;
    }

    static ProcessSwitchboard s_instance;

  private:
    void Forked() {
        if (m_switchboard != nullptr && !m_forked) {
            m_forked = true;
            m_switchboard->Abandon();
        }
    }

    std::unique_ptr<Switchboard> m_switchboard;
    bool m_forked = false;
};

ProcessSwitchboard ProcessSwitchboard::s_instance;

Switchboard& Instance() {
    return ProcessSwitchboard::s_instance.Get();
}

/// Names come as NUL-terminated text; no text is the empty name.
const char* Name(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

}  // namespace zyl::backbone

using zyl::backbone::Instance;
using zyl::backbone::Name;

void RegisterCommunicator(const char* name, int* communicator) {
    *communicator = Instance().RegisterCommunicator(Name(name));
}

void DeclareApplicationId(int communicator, const char* applicationId, bool announce) {
    Instance().DeclareApplicationId(communicator, Name(applicationId), announce);
}

void AssociateHandler(int communicator, const char* application, ZYLFeaBackbone_ReceiveCallback callback) {
    Instance().AssociateHandler(communicator, Name(application), callback);
}

void AssociateDisconnectHandler(int communicator, const char* application,
                                ZYLFeaBackbone_DisconnectCallback callback) {
    Instance().AssociateDisconnectHandler(communicator, Name(application), callback);
}

void SendRequest(int communicator, const char* target, ZYLFeaBackbone_StreamCallback stream,
                 ZYLFeaBackbone_SizeCallback size, ZYLFeaBackbone_TypeCallback type) {
    Instance().SendRequest(communicator, Name(target), stream, size, type);
}

void WaitingLoop(int communicator, int limit, int* endingCondition) {
    Instance().WaitingLoop(communicator, limit, endingCondition);
}

void BBSysLoopWait(int* endingCondition, int limit) {
    Instance().WaitingLoop(endingCondition, limit);
}

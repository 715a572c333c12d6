#include "ZYLFeaBackbone.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "Diagnostics.h"
#include "Process.h"
#include "Settings.h"
#include "Switchboard.h"
#include "local/LocalTransport.h"

namespace zyl::backbone {

namespace {

constexpr const char* kSourceFile = "platform/backbone/ZYLFeaBackbone";

/// One of the plain functions, from its call to its return. A thread that calls one while another thread is
/// inside ends the process with a line that says so, before it can spoil anything. Calls within callbacks are
/// the same thread's.
class Call {
  public:
    explicit Call(const char* function);
    ~Call() {
        if (m_outermost) {
            s_inside.store({}, std::memory_order_release);
        }
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    Switchboard* operator->() const;

    static bool AnotherThreadIsInside() {
        const std::thread::id inside = s_inside.load(std::memory_order_relaxed);
        return inside != std::thread::id() && inside != std::this_thread::get_id();
    }

  private:
    static std::atomic<std::thread::id> s_inside;
    bool m_outermost;
};

std::atomic<std::thread::id> Call::s_inside;

/// The switchboard of this process. It goes with the library, at unload or at the end of the process; ended
/// from inside one of its own callbacks it only leaves its domains, for the callback's frames are still on
/// the stack.
class ProcessSwitchboard {
  public:
    ~ProcessSwitchboard() {
        if (Call::AnotherThreadIsInside()) {
            m_switchboard.release();  // NOLINT(bugprone-unused-return-value): that thread still uses it
        } else if (m_switchboard != nullptr && m_switchboard->Dispatching()) {
            m_switchboard.release()->Leave();  // NOLINT(bugprone-unused-return-value)
        }
    }

    Switchboard& Get() {
        if (m_switchboard == nullptr) {
            const Settings settings = Settings::FromEnvironment();
            m_switchboard = std::make_unique<Switchboard>(MakeLocalTransport(settings), settings);
            OnForkInChild([] { s_instance.Forked(); });
        }
        return *m_switchboard;
    }

    bool IsForked() const { return m_forked; }

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

Call::Call(const char* function) {
    if (ProcessSwitchboard::s_instance.IsForked()) {
        Fatal(
            "this process was forked from one that uses the backbone and cannot use it itself; "
            "execute a program first",
            kSourceFile, __LINE__);
    }
    std::thread::id inside;
    m_outermost = s_inside.compare_exchange_strong(inside, std::this_thread::get_id(),
                                                   std::memory_order_acquire, std::memory_order_relaxed);
    if (!m_outermost && inside != std::this_thread::get_id()) {
        Fatal(std::string(function) +
                  " was called while another thread is inside the backbone, in a call or a callback; "
                  "use it on one thread at a time",
              kSourceFile, __LINE__);
    }
}

Switchboard* Call::operator->() const {
    return &ProcessSwitchboard::s_instance.Get();
}

/// Names come as NUL-terminated text; no text is the empty name.
const char* Name(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

}  // namespace zyl::backbone

using zyl::backbone::Call;
using zyl::backbone::Name;

void RegisterCommunicator(const char* name, int* communicator) {
    *communicator = Call("RegisterCommunicator")->RegisterCommunicator(Name(name));
}

void DeclareApplicationId(int communicator, const char* applicationId, bool announce) {
    Call("DeclareApplicationId")->DeclareApplicationId(communicator, Name(applicationId), announce);
}

void AssociateHandler(int communicator, const char* application, ZYLFeaBackbone_ReceiveCallback callback) {
    Call("AssociateHandler")->AssociateHandler(communicator, Name(application), callback);
}

void AssociateDisconnectHandler(int communicator, const char* application,
                                ZYLFeaBackbone_DisconnectCallback callback) {
    Call("AssociateDisconnectHandler")->AssociateDisconnectHandler(communicator, Name(application), callback);
}

void SendRequest(int communicator, const char* target, ZYLFeaBackbone_StreamCallback stream,
                 ZYLFeaBackbone_SizeCallback size, ZYLFeaBackbone_TypeCallback type) {
    Call("SendRequest")->SendRequest(communicator, Name(target), stream, size, type);
}

void WaitingLoop(int communicator, int limit, int* endingCondition) {
    Call("WaitingLoop")->WaitingLoop(communicator, limit, endingCondition);
}

void BBSysLoopWait(int* endingCondition, int limit) {
    Call("BBSysLoopWait")->WaitingLoop(endingCondition, limit);
}

#include "ZYLFeaBackbone.h"

#include <fmt/format.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>

#include "Diagnostics.h"
#include "QORText.h"
#include "switchboard/Switchboard.h"
#include "system/MakeSystem.h"
#include "transport/Transports.h"

namespace zyl::backbone {

namespace {

constexpr const char* kSourceFile = "backbone/ZYLFeaBackbone";

/// The switchboard of this process, and the system below it. In the child of a fork they belong to the
/// parent, and stay as they are.
system::System* s_system = nullptr;
Switchboard* s_switchboard = nullptr;

/// The thread that is in a plain function, or in a callback of one.
std::atomic<std::thread::id> s_inside;

/// It goes with the library, at unload or at the end of the process. Ended from inside one of its own
/// callbacks it only leaves its domains, for the callback's frames are still on the stack; and while another
/// thread is inside it stays as it is.
struct AtEnd {
    ~AtEnd() {
        if (s_switchboard == nullptr || s_switchboard->Abandoned()) {
            return;
        }
        const std::thread::id inside = s_inside;
        if (inside != std::thread::id() && inside != std::this_thread::get_id()) {
            return;
        }
        if (s_switchboard->Dispatching()) {
            s_switchboard->Leave();
        } else {
            delete std::exchange(s_switchboard, nullptr);
            delete std::exchange(s_system, nullptr);
        }
    }
};

const AtEnd s_atEnd;

void Forked() {
    if (s_switchboard != nullptr && !s_switchboard->Abandoned()) {
        s_switchboard->Abandon();
        system::LeaveToParent();
    }
}

/// One of the plain functions, from its call to its return. A thread that calls one while another thread is
/// inside ends the process with a line that says so, before it can spoil anything. Calls within callbacks are
/// the same thread's.
class Call {
  public:
    explicit Call(const char* function) {
        if (s_switchboard != nullptr) {
            s_switchboard->CheckOwner();
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
    ~Call() {
        if (m_outermost) {
            s_inside.store({}, std::memory_order_release);
        }
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    Switchboard* operator->() const {
        if (s_switchboard == nullptr) {
            const Settings settings = Settings::FromEnvironment();
            s_system = system::MakeSystem().release();
            s_switchboard = new Switchboard(MakeTransport(*s_system), settings);
            system::OnForkInChild(Forked);
        }
        return s_switchboard;
    }

  private:
    bool m_outermost;
};

/// The argument, which is not null.
template <class Pointer>
Pointer Given(Pointer argument, const char* function, const char* what) {
    if (argument == nullptr) {
        Fatal(fmt::format("{} was called without {}", function, what), kSourceFile, __LINE__);
    }
    return argument;
}

}  // namespace

}  // namespace zyl::backbone

using zyl::backbone::Call;
using zyl::backbone::Given;

void RegisterCommunicator(const char* name, int* communicator) {
    const Call call("RegisterCommunicator");
    *Given(communicator, "RegisterCommunicator", "a place for the communicator") =
        call->RegisterCommunicator(QORText::OrEmpty(name));
}

void DeclareApplicationId(int communicator, const char* applicationId, bool announce) {
    Call("DeclareApplicationId")
        ->DeclareApplicationId(communicator, QORText::OrEmpty(applicationId), announce);
}

void AssociateHandler(int communicator, const char* application, ZYLFeaBackbone_ReceiveCallback callback) {
    Call("AssociateHandler")
        ->AssociateHandler(communicator, QORText::OrEmpty(application),
                           Given(callback, "AssociateHandler", "a callback"));
}

void AssociateDisconnectHandler(int communicator, const char* application,
                                ZYLFeaBackbone_DisconnectCallback callback) {
    Call("AssociateDisconnectHandler")
        ->AssociateDisconnectHandler(communicator, QORText::OrEmpty(application),
                                     Given(callback, "AssociateDisconnectHandler", "a callback"));
}

void SendRequest(int communicator, const char* target, ZYLFeaBackbone_StreamCallback stream,
                 ZYLFeaBackbone_SizeCallback size, ZYLFeaBackbone_TypeCallback type) {
    Call("SendRequest")
        ->SendRequest(
            communicator, QORText::OrEmpty(target), Given(stream, "SendRequest", "a stream callback"),
            Given(size, "SendRequest", "a size callback"), Given(type, "SendRequest", "a type callback"));
}

void WaitingLoop(int communicator, int limit, int* endingCondition) {
    Call("WaitingLoop")
        ->WaitingLoop(communicator, limit, Given(endingCondition, "WaitingLoop", "an ending condition"));
}

void BBSysLoopWait(int* endingCondition, int limit) {
    Call("BBSysLoopWait")->WaitingLoop(Given(endingCondition, "BBSysLoopWait", "an ending condition"), limit);
}

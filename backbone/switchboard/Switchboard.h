#ifndef ZYL_BACKBONE_SWITCHBOARD_H
#define ZYL_BACKBONE_SWITCHBOARD_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ZYLFeaBackbone.h"
#include "switchboard/Restraint.h"
#include "switchboard/Settings.h"
#include "switchboard/Target.h"
#include "transport/Transport.h"

namespace zyl::backbone {

/// What the seven plain functions do, over any transport: communicators, the applications of this process,
/// what has arrived and waits, the loops, and the bookkeeping of losses. It knows no system call.
///
/// One object serves a process, on one thread. Callbacks run only inside the two waiting functions.
class Switchboard {
  public:
    Switchboard(std::unique_ptr<Transport> transport, const Settings& settings);
    ~Switchboard();
    Switchboard(const Switchboard&) = delete;
    Switchboard& operator=(const Switchboard&) = delete;

    int RegisterCommunicator(const std::string& name);
    void DeclareApplicationId(int communicator, const std::string& name, bool announce);
    void AssociateHandler(int communicator, const std::string& name, ZYLFeaBackbone_ReceiveCallback callback);
    void AssociateDisconnectHandler(int communicator, const std::string& name,
                                    ZYLFeaBackbone_DisconnectCallback callback);
    void SendRequest(int communicator, std::string_view target, ZYLFeaBackbone_StreamCallback stream,
                     ZYLFeaBackbone_SizeCallback size, ZYLFeaBackbone_TypeCallback type);
    void WaitingLoop(int communicator, int limit, const int* condition);
    void WaitingLoop(const int* condition, int limit);

    /// Whether a callback of this object is running.
    bool Dispatching() const { return m_depth > 0; }

    /// Leaves every domain; nothing may be called afterwards. What a running callback looks at stays where it
    /// is.
    void Leave();

    /// In the child of a fork: what this object holds belongs to the parent. A callback in which the child
    /// was forked must not return here; nothing may be called afterwards, and this object is not destroyed.
    void Abandon() { m_abandoned = true; }
    bool Abandoned() const { return m_abandoned; }
    /// A fatal error when it is abandoned.
    void CheckOwner() const;

  private:
    struct Application;
    struct Membership;
    struct Request;

    Membership& MembershipOf(int communicator, const char* function);
    Application& Declared(Membership& member, const std::string& name, bool announce);
    void SendToSelf(Membership& member, const Application& application, const Request& request);
    void SendToPeer(Membership& member, Target& target, const Request& request);
    Link* LinkTo(Membership& member, Target& target, const Request& request);
    void AwaitTarget(Membership& member, Target& target, const Request& request);
    void Open(Membership& member, Target& target) const;
    bool Transfer(const Target& target, const Request& request);
    void Drop(Membership& member, Target& target, const Request& request, const char* reason);
    void WaitTakingIn(Deadline deadline, Restraint& restraint);
    std::size_t TakenIn() const;
    void Loop(std::span<Membership* const> members, std::span<Domain* const> domains, int limit,
              const int* condition);
    bool DispatchOne(Membership& member);
    void Dispatch(Membership& member, const Event& event);
    static void TellOfLoss(Membership& member);

    std::unique_ptr<Transport> m_transport;
    Settings m_settings;
    /// By communicator, which counts from 1; and the same as what a wait over all of them is given.
    std::vector<std::unique_ptr<Membership>> m_memberships;
    std::vector<Membership*> m_all;
    std::vector<Domain*> m_domains;
    int m_depth = 0;
    /// Stream callbacks that are running; none of them may send.
    int m_writing = 0;
    /// What has been taken in by sends that wait may cost so much memory before they hold back.
    std::size_t m_allowance;
    /// See Restraint.
    std::uint64_t m_seenToken = 0;
    bool m_abandoned = false;
};

}  // namespace zyl::backbone

#endif

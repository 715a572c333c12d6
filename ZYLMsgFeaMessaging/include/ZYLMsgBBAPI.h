#ifndef ZYLMSGBBAPI_H
#define ZYLMSGBBAPI_H

#include "ZYLMsgModulesExport.h"

class ZYLMsgBBCallbackManager;
class ZYLMsgBBMessage;

/// The library's interface to the backbone. Each function calls the backbone's function of the same
/// purpose and passes the callback manager's functions as callbacks; ZYLFeaBackbone.h describes what the
/// backbone does.
///
/// The class has no state and reports no errors of its own. A null name counts as the empty name. Call all
/// functions on one thread, on which the callbacks run too. Sends must not overlap, because a process has
/// one pending message.
///
/// Order of use:
///
/// 1. RegisterCommunicator and DeclareApplicationId
/// 2. prototypes, handlers and the identifier into ZYLMsgBBCallbackManager
/// 3. EnableReceiveHandling
/// 4. a disconnect handler into ZYLMsgBBCallbackManager, then EnableDisconnectHandling
/// 5. SendRequest and WaitingLoop, repeatedly
class ZYLMSGMODULES_EXPORT ZYLMsgBBAPI {
  public:
    /// Joins the domain `name` and stores its number, which every other call takes, in `communicator`.
    static void RegisterCommunicator(const char* name, int& communicator);

    /// Makes this process the application `applicationId`. With `announce` false, its leaving is not
    /// reported.
    static void DeclareApplicationId(int communicator, const char* applicationId, bool announce);

    /// Delivers every message for `application` to the callback manager. A message of an unregistered type
    /// is a fatal error, so register prototypes and handlers first.
    static void EnableReceiveHandling(int communicator, const char* application);

    /// Reports every lost peer to the callback manager, on behalf of `application`. A loss without an
    /// associated disconnect handler is a fatal error, so associate the handler first; if it is missing
    /// now, a line on standard error warns.
    static void EnableDisconnectHandling(int communicator, const char* application);

    /// Sends `message`, preceded by this process's identifier, to the application `target`. The message
    /// remains the caller's, who may change or destroy it after the call. Handlers may call this.
    static void SendRequest(int communicator, const char* target, const ZYLMsgBBMessage& message);

    /// Delivers messages and loss reports on this thread until a handler changes `endingCondition`. The
    /// caller sets it to -1 first, and the handlers of this library set it to 0; if it is 0 at the call,
    /// the call returns at once. `limit` is in milliseconds; a negative limit waits without bound.
    static void WaitingLoop(int communicator, int limit, int& endingCondition);

    /// WaitingLoop over all communicators of the process.
    static void BBSysLoopWait(int& endingCondition, int limit);

    /// Does nothing; the callback manager's functions are static.
    static void AssociateHandler(const ZYLMsgBBCallbackManager* manager);
};

#endif

#ifndef ZYLMSGBBAPI_H
#define ZYLMSGBBAPI_H

#include "ZYLMsgModulesExport.h"

class ZYLMsgBBCallbackManager;
class ZYLMsgBBMessage;

/// The library's only door to the backbone. Its functions forward to the backbone's functions of the same
/// purpose and hand it the callback manager's functions as callbacks; ZYLFeaBackbone.h says what the backbone
/// does with them.
///
/// It keeps no state and reports no error of its own. A null name is the empty name. Everything is called on
/// one thread, on which the callbacks run too; two sends never overlap, because a process has one pending
/// message.
///
/// Order of use: RegisterCommunicator; DeclareApplicationId; the prototypes, handlers and the identifier into
/// ZYLMsgBBCallbackManager; EnableReceiveHandling; with a disconnect handler associated,
/// EnableDisconnectHandling; then SendRequest and WaitingLoop as often as wanted.
class ZYLMSGMODULES_EXPORT ZYLMsgBBAPI {
  public:
    /// Joins the domain `name` and stores its number, which every other call takes, in `communicator`.
    static void RegisterCommunicator(const char* name, int& communicator);

    /// Makes this process the application `applicationId`. With `announce` false nobody is told when it
    /// leaves.
    static void DeclareApplicationId(int communicator, const char* applicationId, bool announce);

    /// Lets every message for `application` go to the callback manager. A message of a type that is not
    /// registered there is a fatal error, so prototypes and handlers come first.
    static void EnableReceiveHandling(int communicator, const char* application);

    /// Lets every report of a lost peer go to the callback manager, on behalf of `application`. A report
    /// without an associated disconnect handler is a fatal error, so the handler comes first; one that is
    /// missing here is said in a line on standard error.
    static void EnableDisconnectHandling(int communicator, const char* application);

    /// Sends `message`, with this process's identifier in front of it, to the application `target`. The
    /// message is not copied: it stays the sender's, and may be changed or destroyed as soon as the call
    /// returns. May be called from a handler.
    static void SendRequest(int communicator, const char* target, const ZYLMsgBBMessage& message);

    /// Delivers messages and reports on this thread until a handler changes `endingCondition`. The caller
    /// sets it to -1 first and the handlers of this library set it to 0; with 0 at the call it returns at
    /// once. `limit` is in milliseconds; a negative one waits without bound.
    static void WaitingLoop(int communicator, int limit, int& endingCondition);

    /// The same over all communicators of the process.
    static void BBSysLoopWait(int& endingCondition, int limit);

    /// Does nothing, whatever the argument: the callback manager's functions are static.
    static void AssociateHandler(const ZYLMsgBBCallbackManager* manager);
};

#endif

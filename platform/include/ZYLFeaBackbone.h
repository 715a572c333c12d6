#ifndef ZYLFEABACKBONE_H
#define ZYLFEABACKBONE_H

#include "ZYLFeaBackboneExport.h"

#ifndef __cplusplus
#include <stdbool.h>
#endif

/// The backbone: it moves opaque byte buffers, each with a type name beside it, between named
/// applications.
///
/// The functions return nothing. A mistake of the caller (an unknown communicator, a name that is taken, a
/// malformed setting) is a fatal error that names it. A failure outside the process (a target that never
/// appeared, a peer that died) is one line on standard error, and a loss report where those are enabled.
///
/// Threads: call these functions from one thread at a time; a call while another thread is inside is a
/// fatal error. Receive and disconnect callbacks run on the calling thread, only inside WaitingLoop and
/// BBSysLoopWait, one at a time. They may send, and may wait in a nested loop. The three callbacks of
/// SendRequest must not call any of these functions.
///
/// Exceptions: one that leaves a receive or disconnect callback leaves the waiting function as well. The message
/// counts as delivered; what is left, other applications that are still to hear of that loss among it, comes in
/// the next wait. One that leaves a callback of SendRequest leaves that, and nothing is sent.
///
/// Ownership: strings are copied; a buffer passed to a receive callback is valid during that call only.
///
/// Fork: the child of a fork is no longer part of the backbone. The parent continues undisturbed; in the
/// child every call of these functions is a fatal error until it executes another program.

#ifdef __cplusplus
extern "C" {
#endif

/// Receives one message: its type name, its bytes and their number. All pointers expire when it returns.
typedef void (*ZYLFeaBackbone_ReceiveCallback)(const char* type, const void* buffer, int size);
/// Reports a lost peer application: its process number, application name, host and user name. All pointers
/// expire when it returns.
typedef void (*ZYLFeaBackbone_DisconnectCallback)(int pid, const char* application, const char* host,
                                                  const char* user);
/// Writes the message that is being sent into `buffer`, which has room for `size` bytes.
typedef void (*ZYLFeaBackbone_StreamCallback)(void* buffer, int size);
/// Returns the number of bytes of the message that is being sent, 0 to 2^31 - 1.
typedef int (*ZYLFeaBackbone_SizeCallback)(void);
/// Returns the type name of the message that is being sent, at most 65534 bytes.
typedef const char* (*ZYLFeaBackbone_TypeCallback)(void);

/// Joins the domain `name` (0 to 4096 bytes, any characters) and stores its communicator in
/// `*communicator`: a small positive number, the same for the same name within a process.
ZYLFEABACKBONE_EXPORT void RegisterCommunicator(const char* name, int* communicator);

/// Makes this process the application `applicationId` (0 to 4096 bytes, any characters) of the domain. If
/// a live process already holds the name, that is a fatal error that names the holder's process number and
/// host. With `announce` false the application is a passing helper: others reach it as usual, but its
/// leaving is not reported. Declaring a name again in the same process has no effect.
ZYLFEABACKBONE_EXPORT void DeclareApplicationId(int communicator, const char* applicationId, bool announce);

/// Delivers every message for `application` to `callback` from now on, beginning with those that arrived
/// before this call. Declares the application (announced) if it was not declared. A later call replaces
/// the callback.
ZYLFEABACKBONE_EXPORT void AssociateHandler(int communicator, const char* application,
                                            ZYLFeaBackbone_ReceiveCallback callback);

/// Reports to `callback`, on behalf of `application`, every announced application of the domain that goes
/// away from now on: once for each of its lives, after its last message was delivered. Declares the
/// application (announced) if it was not declared. A later call replaces the callback.
ZYLFEABACKBONE_EXPORT void AssociateDisconnectHandler(int communicator, const char* application,
                                                      ZYLFeaBackbone_DisconnectCallback callback);

/// Sends one message to the application `target`. It calls `type`, then `size`, then `stream` with a
/// buffer of exactly that size. After it returns, the message reaches the target even if this process ends
/// at once.
///
/// The call waits for a target that has not appeared yet, up to ZYL_BACKBONE_CONNECT_TIMEOUT seconds, and
/// without bound for a target whose buffer is full. While it waits it accepts incoming messages, but runs
/// no receive or disconnect callback. A message that cannot be delivered is dropped with a line on
/// standard error that names target and type; where disconnection handling is enabled, the target is
/// reported as lost unless it was already. If the target is known to be gone before there is room for the
/// message, `stream` is not called.
ZYLFEABACKBONE_EXPORT void SendRequest(int communicator, const char* target,
                                       ZYLFeaBackbone_StreamCallback stream, ZYLFeaBackbone_SizeCallback size,
                                       ZYLFeaBackbone_TypeCallback type);

/// Delivers the messages and loss reports of the domain and waits for more, until `*endingCondition`
/// differs from its value at the call or `limit` milliseconds have passed (a negative limit waits without
/// bound). Returns at once if `*endingCondition` is 0 at the call.
ZYLFEABACKBONE_EXPORT void WaitingLoop(int communicator, int limit, int* endingCondition);

/// The same over all domains of this process.
ZYLFEABACKBONE_EXPORT void BBSysLoopWait(int* endingCondition, int limit);

#ifdef __cplusplus
}
#endif

#endif

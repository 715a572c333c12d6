#ifndef ZYLFEABACKBONE_H
#define ZYLFEABACKBONE_H

#include "ZYLFeaBackboneExport.h"

#ifndef __cplusplus
#include <stdbool.h>
#endif

/// The backbone: it moves opaque byte buffers, each with a type name beside it, between named applications.
///
/// The functions return nothing. What the caller did wrong (an unknown communicator, a name that is taken, a
/// malformed setting) is a fatal error that names it; what the outside world did (a target that never came, a
/// peer that died) is one line on standard error, and a loss report where those are enabled.
///
/// Threads: the functions are called on one thread at a time; a call while another thread is inside is a
/// fatal error. The callbacks run on the calling thread, inside WaitingLoop and BBSysLoopWait only, one at a
/// time. A receive or disconnect callback may send, and may wait (a nested loop); those of a send call
/// nothing here.
///
/// Ownership: strings are copied; a buffer given to a receive callback is valid during that call only.
///
/// A process that forks: the child has left the backbone. The parent goes on undisturbed, and any of these
/// calls in the child is a fatal error until it executes another program.

#ifdef __cplusplus
extern "C" {
#endif

/// Receives one message: its type name, its bytes and their number. Nothing may be kept.
typedef void (*ZYLFeaBackbone_ReceiveCallback)(const char* type, const void* buffer, int size);
/// Reports that a peer application has gone: its process number, application, host and user name. Nothing may
/// be kept.
typedef void (*ZYLFeaBackbone_DisconnectCallback)(int pid, const char* application, const char* host,
                                                  const char* user);
/// Writes the message that is being sent into `buffer`, which has room for `size` bytes.
typedef void (*ZYLFeaBackbone_StreamCallback)(void* buffer, int size);
/// Gives the number of bytes of the message that is being sent, 0 to 2^31 - 1.
typedef int (*ZYLFeaBackbone_SizeCallback)(void);
/// Gives the type name of the message that is being sent, at most 65534 bytes.
typedef const char* (*ZYLFeaBackbone_TypeCallback)(void);

/// Joins the domain `name` (0 to 4096 bytes, any characters) and stores its communicator in `*communicator`:
/// a small positive number, the same for the same name within a process.
ZYLFEABACKBONE_EXPORT void RegisterCommunicator(const char* name, int* communicator);

/// Makes this process the application `applicationId` (0 to 4096 bytes, any characters) of the domain. A name
/// that a live process holds already is a fatal error that names the holder's process number and host. With
/// `announce` false the application is a passing helper: others reach it as usual, but nobody is told when it
/// leaves. Declaring a name that this process holds already changes nothing.
ZYLFEABACKBONE_EXPORT void DeclareApplicationId(int communicator, const char* applicationId, bool announce);

/// From now on delivers every message that arrives for `application` to `callback`, those that came before
/// this call first. Declares the application (announced) if that was not done. A later call replaces the
/// callback.
ZYLFEABACKBONE_EXPORT void AssociateHandler(int communicator, const char* application,
                                            ZYLFeaBackbone_ReceiveCallback callback);

/// From now on reports to `callback`, on behalf of `application`, every announced application of the domain
/// that goes away: once for each of its lives, after its last message was delivered. Declares the application
/// (announced) if that was not done. A later call replaces the callback.
ZYLFEABACKBONE_EXPORT void AssociateDisconnectHandler(int communicator, const char* application,
                                                      ZYLFeaBackbone_DisconnectCallback callback);

/// Sends one message to the application `target`. All three callbacks are called before this returns: `type`,
/// `size`, then `stream` with a buffer of exactly that size. When it returns, the message is out of this
/// process's hands: it reaches the target even if this process ends at once.
///
/// A target that is not there yet is waited for, up to ZYL_BACKBONE_CONNECT_TIMEOUT seconds; a full target is
/// waited for without bound. While this waits it takes incoming messages in, but calls no other callback. A
/// message that cannot be delivered is dropped with a line on standard error that names target and type, and
/// the target is reported as lost where disconnection handling is enabled and that has not been done. Where
/// the target is known to be gone before there is room for the message, `stream` is not called.
ZYLFEABACKBONE_EXPORT void SendRequest(int communicator, const char* target,
                                       ZYLFeaBackbone_StreamCallback stream, ZYLFeaBackbone_SizeCallback size,
                                       ZYLFeaBackbone_TypeCallback type);

/// Delivers what has come for the domain and waits for more, until `*endingCondition` differs from its value
/// at the call or `limit` milliseconds have passed (a negative limit waits without bound). Returns at once
/// where
/// `*endingCondition` is 0 at the call.
ZYLFEABACKBONE_EXPORT void WaitingLoop(int communicator, int limit, int* endingCondition);

/// The same over all domains of this process.
ZYLFEABACKBONE_EXPORT void BBSysLoopWait(int* endingCondition, int limit);

#ifdef __cplusplus
}
#endif

#endif

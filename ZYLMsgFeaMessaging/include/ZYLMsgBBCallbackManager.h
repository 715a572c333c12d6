#ifndef ZYLMSGBBCALLBACKMANAGER_H
#define ZYLMSGBBCALLBACKMANAGER_H

#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"
#include "cow_BtreeInstantiations.h"

class ZYLMsgBBDisconnectHandler;
class ZYLMsgBBMessage;
class ZYLMsgBBMessageHandler;

/// The process-wide registry and dispatcher between typed messages and the buffers of the backbone. For each
/// type name that the process receives it holds one prototype and one handler; of the messages the process
/// sends it holds the one that is being sent. All of its state is static and unsynchronised: registration,
/// sending and the backbone's callbacks belong to one thread, and sends go strictly one at a time.
///
/// The message envelope, the layout of every buffer that is sent or received:
///
///     offset 0        4 bytes   L: length of the identifier, signed, least significant byte first
///     offset 4        L bytes   the sender's identifier, UTF-8, no terminator
///     offset 4 + L    N bytes   the body, as the message's Stream writes it
///
/// The type name travels beside the buffer. A null type or application name is the empty name. A broken
/// precondition is a fatal error; its text stands with the operation. Where the text cannot tell a user whom
/// it concerns (a message that nobody handles, a type adopted twice, a loss without a handler, a body size
/// that cannot be), one line on standard error before it names that and says what to do.
class ZYLMSGMODULES_EXPORT ZYLMsgBBCallbackManager {
  public:
    /// Deletes every registered prototype and then every handler, each in key order, and empties both
    /// registries. Any object of this class does so when it dies, a temporary too. The pending message, the
    /// identifier and the disconnect handler stay as they are. Unloading the library deletes no prototype and
    /// no handler.
    ~ZYLMsgBBCallbackManager();

    /// Registers `proto` and `handler` under `proto->Type()` and takes ownership of both. Fatal, with nothing
    /// changed: a null `proto` ("proto != NULL") and a type registered before ("!m_protos.IsMember(type)",
    /// "!m_handlers.IsMember(type)"). A null `handler` is let in; dispatching to it is fatal. When
    /// memory is exhausted it raises std::bad_alloc: nothing is registered then, and both objects are still
    /// the caller's. Neither object may be adopted a second time, under whatever type: it would be deleted
    /// twice, and this is not detected. The registries follow the process-wide natural-order switch, which
    /// must not change once a type is registered.
    static void AdoptPrototypeAndHandler(ZYLMsgBBMessage* proto, ZYLMsgBBMessageHandler* handler);

    static bool IsMessageTypeHandled(const char* type);

    /// The handler registered for `type`, which may be null. A type that is not registered is a fatal error
    /// ("m_protos.IsMember(type)", "m_handlers.IsMember(type)").
    ZYLMsgBBMessageHandler* GetHandler(const char* type);

    /// The receive callback: decodes one envelope of `size` bytes and calls the type's handler with a message
    /// of its own and the sender's identifier, both gone when this returns. The body is read in place, and a
    /// type that has come before is found in constant time. Fatal, in this order: a type that is not
    /// registered (as in GetHandler), a stored prototype that is null
    /// ("proto != NULL"), an envelope that is cut short or whose identifier length is negative or reaches
    /// past `size` (the ZYLMsgWireReader's text, naming the envelope's field), a null clone ("msg != NULL"),
    /// whatever the body's Unstream refuses, and a null handler ("handler != NULL").
    static void HandleMessage(const char* type, const void* buffer, int size);

    /// Makes `msg` the pending message in place of any earlier one; nothing is queued. It is not owned and is
    /// looked at only while a send is in progress; it stays set afterwards, when the callbacks below must not
    /// be called: it may be gone by then.
    static void AppendMessageToSend(const ZYLMsgBBMessage* msg);

    /// The backbone's three questions about the pending message; without one they are fatal
    /// ("m_messageToSend != 0").
    static const char* TypeOfPendingMessage();

    /// The envelope's whole size, 4 + L + N. Fatal: a body of less than 0 bytes ("bodySize >= 0") and an
    /// envelope of more than 2^31 - 1 ("total <= INT_MAX").
    static int RequiredBufferSizeOfPendingMessage();

    /// Writes the envelope into `buffer`, which has room for `size` bytes. Too little room for the envelope's
    /// head is a fatal error ("size >= head") with nothing written; too little for the body is the message's
    /// own.
    static void StreamPendingMessage(void* buffer, int size);

    /// Whether the backbone has had the pending message written since it was made that. After a send, false
    /// means that the backbone dropped it, as its target was not there.
    static bool IsPendingMessageStreamed();

    /// Sets the identifier that stands in front of every message this process sends: NUL-terminated UTF-8,
    /// null counting as "". It is empty at first.
    static void SetMessageID(const char* id);

    /// That identifier; the text is valid until the next SetMessageID.
    static const char* MessageID();

    /// Makes `handler` the receiver of disconnection reports in place of any earlier one. It is not owned.
    static void AssociateDisconnectHandler(const ZYLMsgBBDisconnectHandler* handler);

    /// The disconnection callback: hands its arguments to the disconnect handler; fatal without one
    /// ("m_disconnectHandler != 0").
    static void Disconnection(int pid, const char* app, const char* host, const char* user);

  private:
    friend class ZYLMsgBBAPI;

    /// Says so on standard error when there is no disconnect handler at the time that `application` enables
    /// disconnect handling. It may still come in time.
    static void ExpectDisconnectHandler(const char* application);

    static cow_Btree<cow_String, ZYLMsgBBMessage*> m_protos;           // owns them; none is null
    static cow_Btree<cow_String, ZYLMsgBBMessageHandler*> m_handlers;  // owns them; the keys of m_protos
    static const ZYLMsgBBMessage* m_messageToSend;
    static const ZYLMsgBBDisconnectHandler* m_disconnectHandler;
    static ZYLString m_messageID;
    static bool m_isStreamed;
};

#endif

#ifndef ZYLMSGBBCALLBACKMANAGER_H
#define ZYLMSGBBCALLBACKMANAGER_H

#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"
#include "cow_BtreeInstantiations.h"

class ZYLMsgBBDisconnectHandler;
class ZYLMsgBBMessage;
class ZYLMsgBBMessageHandler;

/// The process-wide registry and dispatcher between typed messages and the buffers of the backbone. It
/// holds one prototype and one handler for each message type that the process receives, and the one
/// message that the process is sending. All of its state is static and unsynchronised: registration,
/// sending and the backbone's callbacks belong to one thread, and sends never overlap.
///
/// The message envelope, the layout of every buffer that is sent or received:
///
///     offset 0        4 bytes   L: length of the identifier, signed, least significant byte first
///     offset 4        L bytes   the sender's identifier, UTF-8, no terminator
///     offset 4 + L    N bytes   the body, as the message's Stream writes it
///
/// The type name travels beside the buffer. A null type or application name counts as the empty name. A
/// broken precondition is a fatal error, whose text the operation quotes. Where that text cannot name the
/// culprit (an unhandled message, a type adopted twice, a loss without a handler, an impossible body
/// size), one line on standard error precedes it, which names the culprit and the remedy.
class ZYLMSGMODULES_EXPORT ZYLMsgBBCallbackManager {
  public:
    /// Deletes every registered prototype and then every handler, each in key order, and empties both
    /// registries. Every object of this class does so in its destructor, even a temporary. The pending
    /// message, the identifier and the disconnect handler are not touched. Unloading the library deletes
    /// no prototype and no handler.
    ~ZYLMsgBBCallbackManager();

    /// Registers `proto` and `handler` under `proto->Type()` and takes ownership of both. Fatal, with
    /// nothing changed: a null `proto` ("proto != NULL"), and a type that is already registered
    /// ("!m_protos.IsMember(type)", "!m_handlers.IsMember(type)"). A null `handler` is accepted, but
    /// dispatching to it is fatal. If memory is exhausted the call raises std::bad_alloc, registers
    /// nothing, and both objects remain the caller's. Adopting an object twice, under whatever types,
    /// would delete it twice, and is not detected. The registries are ordered by the process-wide
    /// natural-order switch, which must not change once a type is registered.
    static void AdoptPrototypeAndHandler(ZYLMsgBBMessage* proto, ZYLMsgBBMessageHandler* handler);

    static bool IsMessageTypeHandled(const char* type);

    /// The handler registered for `type`; null if a null handler was registered. An unregistered type is a
    /// fatal error ("m_protos.IsMember(type)", "m_handlers.IsMember(type)").
    ZYLMsgBBMessageHandler* GetHandler(const char* type);

    /// The receive callback: decodes one envelope of `size` bytes and calls the type's handler with a new
    /// message and the sender's identifier, both of which expire when this returns. The body is read in
    /// place. Repeated types are looked up in constant time. Fatal, in this order:
    ///
    /// - a type that is not registered, as in GetHandler
    /// - a stored prototype that is null: "proto != NULL"
    /// - an envelope that is cut short, or whose identifier length is negative or exceeds the envelope:
    ///   the text of ZYLMsgWireReader, which names the field
    /// - a null clone: "msg != NULL"
    /// - whatever the message's Unstream refuses
    /// - a null handler: "handler != NULL"
    static void HandleMessage(const char* type, const void* buffer, int size);

    /// Makes `msg` the pending message in place of any earlier one; nothing is queued. It is not owned,
    /// and is used only while a send is in progress. It stays set after the send, when the callbacks below
    /// must not be called, because the message may no longer exist.
    static void AppendMessageToSend(const ZYLMsgBBMessage* msg);

    /// The send callbacks of the backbone, all about the pending message. Without a pending message they
    /// are fatal ("m_messageToSend != 0").
    static const char* TypeOfPendingMessage();

    /// The size of the whole envelope, 4 + L + N. Fatal: a negative body size ("bodySize >= 0") and an
    /// envelope of more than 2^31 - 1 bytes ("total <= INT_MAX").
    static int RequiredBufferSizeOfPendingMessage();

    /// Writes the envelope into `buffer`, which has room for `size` bytes. If the head of the envelope
    /// does not fit, that is a fatal error ("size >= head") before anything is written; if the body does
    /// not fit, the message's Stream reports it.
    static void StreamPendingMessage(void* buffer, int size);

    /// Whether the backbone has called StreamPendingMessage for the pending message. After a send, false
    /// means that the backbone dropped the message because its target was not there.
    static bool IsPendingMessageStreamed();

    /// Sets the identifier that precedes every message this process sends: NUL-terminated UTF-8, null
    /// counting as "". Initially empty.
    static void SetMessageID(const char* id);

    /// That identifier; the text is valid until the next SetMessageID.
    static const char* MessageID();

    /// Makes `handler` the receiver of disconnection reports in place of any earlier one. It is not owned.
    static void AssociateDisconnectHandler(const ZYLMsgBBDisconnectHandler* handler);

    /// The disconnection callback: passes its arguments to the disconnect handler. Without a handler it is
    /// fatal ("m_disconnectHandler != 0").
    static void Disconnection(int pid, const char* app, const char* host, const char* user);

  private:
    friend class ZYLMsgBBAPI;

    /// Warns on standard error if `application` enables disconnect handling while no disconnect handler is
    /// associated. That is no error yet: the handler may still be associated before the first loss.
    static void ExpectDisconnectHandler(const char* application);

    static cow_Btree<cow_String, ZYLMsgBBMessage*> m_protos;           // owns them; none is null
    static cow_Btree<cow_String, ZYLMsgBBMessageHandler*> m_handlers;  // owns them; the keys of m_protos
    static const ZYLMsgBBMessage* m_messageToSend;
    static const ZYLMsgBBDisconnectHandler* m_disconnectHandler;
    static ZYLString m_messageID;
    static bool m_isStreamed;
};

#endif

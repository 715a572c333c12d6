#ifndef ZYLMSGBBMESSAGE_H
#define ZYLMSGBBMESSAGE_H

#include <cstdio>

#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"
#include "mem_AllocationOperators.h"

/// The abstract base of all messages between applications. A message has a type name, knows the size of
/// its body, writes and reads that body, makes another object of its class, and prints itself.
///
/// A message object is a prototype (owned by the callback manager), an incoming message (cloned from the
/// prototype, alive only during its handler's call) or an outgoing one (owned by the sender, alive at
/// least until the send returns). Create it with `new` or as a local object; only Clone copies it. One
/// thread at a time uses it. The text of the type name is shared with the constructor's argument by a
/// plain count, so the two belong to the same thread.
///
/// A concrete class has a constructor without arguments that passes its own class name as the type name,
/// and overrides the destructor, the four pure operations and Print; none overrides Type or SameType.
class ZYLMSGMODULES_EXPORT ZYLMsgBBMessage : public mem_AllocationOperators {
  public:
    /// `type` identifies the message class: it is the key of the prototype and handler, and the name that
    /// the backbone carries beside each body.
    ZYLMsgBBMessage(const ZYLString& type);
    ZYLMsgBBMessage(const ZYLMsgBBMessage&) = delete;
    ZYLMsgBBMessage& operator=(const ZYLMsgBBMessage&) = delete;
    virtual ~ZYLMsgBBMessage();

    /// The type name as UTF-8, never null; valid for the life of the message.
    virtual const char* Type() const;

    /// Whether both type names have the same bytes. Contents are not compared.
    virtual bool SameType(const ZYLMsgBBMessage& other) const;

    /// The number of bytes that Stream writes for the current content; never negative. A body of more than
    /// 2^31 - 1 bytes is a fatal error.
    virtual int RequiredBufferSize() const = 0;

    /// Writes the body: exactly RequiredBufferSize() bytes from the start of `buffer`, which has room for
    /// `size` bytes and no particular alignment. Too little room is the fatal error "AssertionFailed:size
    /// >= RequiredBufferSize()", raised before anything is written.
    virtual void Stream(void* buffer, int size) const = 0;

    /// Reads the content from the `size` bytes of a body, which are not trusted: an implementation never
    /// reads beyond them, and a length in them that is negative or reaches past the end is a fatal error
    /// (see ZYLMsgWireReader).
    virtual void Unstream(const void* buffer, int size) = 0;

    /// A new object of the same class, never null, which the caller deletes. Each class defines how much
    /// of the content it copies.
    virtual ZYLMsgBBMessage* Clone() const = 0;

    /// Writes a readable description to `stream`, each line beginning with `prefix` (null counts as "").
    /// The base class writes the line "<prefix>Message Type: <type>" and does not flush.
    virtual void Print(FILE* stream, const char* prefix) const;

  private:
    ZYLString m_type;
};

#endif

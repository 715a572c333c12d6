#ifndef ZYLMSGPROCESSCONTROLTYPE_H
#define ZYLMSGPROCESSCONTROLTYPE_H

#include "ZYLBasMap.h"
#include "ZYLMsgBBMessage.h"
#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// Carries a kill request, soft or hard, as a small XML document and, decoded, as attributes. The only
/// attribute in use is "Kill", with the value "SOFT_KILL" or "HARD_KILL". ZYLMsgProcessControlTypeFactory
/// makes a complete request. To make one by hand, set m_processControlType and the "Kill" attribute and
/// let ZYLMsgProcessControlEncoder::ExternalizeProcessControlMsg write the document.
///
/// Body: the document as a wire string (its length as a 4-byte integer, least significant byte first; then
/// its bytes).
///
/// A receiver must register an empty message as the prototype: a clone copies the prototype's attributes,
/// and decoding keeps a "Kill" attribute that is already there.
class ZYLMSGMODULES_EXPORT ZYLMsgProcessControlType : public ZYLMsgBBMessage {
  public:
    enum ProcessControlTypeEnm : int {
        PROCESS_CONTROL_NONE = 0,  ///< no request yet
        PROCESS_CONTROL_KILL = 1
    };

    /// A message without a request. It cannot be measured or streamed.
    ZYLMsgProcessControlType();
    ~ZYLMsgProcessControlType() override;

    ProcessControlTypeEnm ControlType() const;

    /// The value of the attribute `name`, empty if there is none. Never adds an attribute.
    ZYLString GetVal(const ZYLString& name) const;
    bool isPresent(const ZYLString& name) const;

    /// Fatal while the document is empty ("m_xmlMessage.GetLengthInChar() > 0").
    int RequiredBufferSize() const override;
    void Stream(void* buffer, int size) const override;

    /// Reads the document from a body, ignores bytes after it, and decodes it. A length that is not
    /// positive is a fatal error ("len > 0"), and so is a document that is no kill request (see
    /// ZYLMsgProcessControlEncoder).
    void Unstream(const void* buffer, int size) override;

    /// A message with the same document, attributes and kind of request.
    ZYLMsgProcessControlType* Clone() const override;

    /// Writes the type and the document, and flushes.
    void Print(FILE* stream, const char* prefix) const override;

    /// The decoded request: attribute values by name.
    ZYLBasMap<ZYLString, ZYLString> m_attributes;
    ProcessControlTypeEnm m_processControlType;
    /// The document, the only part that is sent.
    ZYLString m_xmlMessage;
};

#endif

#ifndef ZYLMSGPROCESSCONTROLTYPE_H
#define ZYLMSGPROCESSCONTROLTYPE_H

#include "ZYLBasMap.h"
#include "ZYLMsgBBMessage.h"
#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// Carries a kill request, soft or hard, as a small XML document, and beside it the request decoded into
/// attributes. The one attribute in use is "Kill", with the value "SOFT_KILL" or "HARD_KILL". A ready-made
/// request comes from ZYLMsgProcessControlTypeFactory; one made by hand sets m_processControlType and the
/// "Kill" attribute, and ZYLMsgProcessControlEncoder::ExternalizeProcessControlMsg then writes its document.
/// Body: the document as a wire string (its length in
/// bytes, 4 bytes, least significant first; then its bytes).
///
/// The prototype that a receiver registers must be an empty message: clones carry the prototype's attributes,
/// and decoding leaves a "Kill" attribute that is already there alone.
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

    /// The value of the attribute `name`, empty when there is none; never adds one.
    ZYLString GetVal(const ZYLString& name) const;
    bool isPresent(const ZYLString& name) const;

    /// Fatal while the document is empty ("m_xmlMessage.GetLengthInChar() > 0").
    int RequiredBufferSize() const override;
    void Stream(void* buffer, int size) const override;

    /// Takes over the document of a body and decodes it; bytes after it are ignored. A length that is not
    /// positive is a fatal error ("len > 0"), and so is a document that is no kill request (see
    /// ZYLMsgProcessControlEncoder).
    void Unstream(const void* buffer, int size) override;

    /// A message with the same document, attributes and kind of request.
    ZYLMsgProcessControlType* Clone() const override;

    /// Writes the type and the document, and flushes.
    void Print(FILE* stream, const char* prefix) const override;

    /// The decoded request: what each attribute says, by its name.
    ZYLBasMap<ZYLString, ZYLString> m_attributes;
    ProcessControlTypeEnm m_processControlType;
    /// The document, which alone travels.
    ZYLString m_xmlMessage;
};

#endif

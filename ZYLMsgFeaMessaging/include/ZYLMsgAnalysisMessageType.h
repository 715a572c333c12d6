#ifndef ZYLMSGANALYSISMESSAGETYPE_H
#define ZYLMSGANALYSISMESSAGETYPE_H

#include "ZYLMsgBBMessage.h"
#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// Carries one XML document as text, without looking into it. Body: the document as a wire string (its length
/// in bytes, 4 bytes, least significant first; then its UTF-8 bytes).
class ZYLMSGMODULES_EXPORT ZYLMsgAnalysisMessageType : public ZYLMsgBBMessage {
  public:
    /// A message without a document, to be registered as the prototype. It cannot be measured or streamed.
    ZYLMsgAnalysisMessageType();

    /// A message that carries `xmlBuffer`. An empty document is a fatal error
    /// ("xmlBuffer.GetLengthInByte() > 0"); whether it is well-formed is not examined.
    ZYLMsgAnalysisMessageType(const ZYLString& xmlBuffer);
    ~ZYLMsgAnalysisMessageType() override;

    /// The document; empty in a message without one. It lives as long as the message, and changes with
    /// Unstream only.
    const ZYLString& Document() const;

    /// Fatal without a document ("m_msgBuffer.GetLengthInByte() > 0").
    int RequiredBufferSize() const override;
    void Stream(void* buffer, int size) const override;

    /// Takes over the document of a body; bytes after it are ignored. A body with an empty document is
    /// accepted and leaves a message that cannot be streamed.
    void Unstream(const void* buffer, int size) override;

    /// A message with the same document, whose text both share.
    ZYLMsgAnalysisMessageType* Clone() const override;

    /// Writes "Analysis Message Prefix<prefix>" and the whole document on the next line, and flushes. A null
    /// `prefix` counts as "DefaultPfix".
    void Print(FILE* stream, const char* prefix) const override;

    /// The name of the root element of the document `xml`. Text that is not well-formed is a fatal error
    /// ("hr == S_OK").
    static ZYLString GetRootElemNameFromXml(const ZYLString& xml);

    /// The same with one more check: an empty name is a fatal error ("len > 0"). Names with characters beyond
    /// ASCII are accepted. Nothing of this object is used.
    ZYLString GetTypeFromXmlBuffer(const ZYLString& xml) const;

  private:
    ZYLString m_msgBuffer;
};

#endif

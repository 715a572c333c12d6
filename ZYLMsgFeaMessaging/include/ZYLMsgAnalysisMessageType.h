#ifndef ZYLMSGANALYSISMESSAGETYPE_H
#define ZYLMSGANALYSISMESSAGETYPE_H

#include "ZYLMsgBBMessage.h"
#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// Carries one XML document as text, without parsing it. Body: the document as a wire string (its length
/// as a 4-byte integer, least significant byte first; then its UTF-8 bytes).
class ZYLMSGMODULES_EXPORT ZYLMsgAnalysisMessageType : public ZYLMsgBBMessage {
  public:
    /// A message without a document, for use as the prototype. It cannot be streamed.
    ZYLMsgAnalysisMessageType();

    /// A message that carries `xmlBuffer`. An empty document is a fatal error
    /// ("xmlBuffer.GetLengthInByte() > 0"). The document is not checked for well-formedness.
    ZYLMsgAnalysisMessageType(const ZYLString& xmlBuffer);
    ~ZYLMsgAnalysisMessageType() override;

    /// The document, or the empty string. The reference is valid as long as the message; only Unstream
    /// changes the document.
    const ZYLString& Document() const;

    /// Fatal without a document ("m_msgBuffer.GetLengthInByte() > 0").
    int RequiredBufferSize() const override;
    void Stream(void* buffer, int size) const override;

    /// Reads the document from a body and ignores bytes after it. An empty document is accepted, but the
    /// message then cannot be streamed.
    void Unstream(const void* buffer, int size) override;

    /// A message with the same document, whose text both share.
    ZYLMsgAnalysisMessageType* Clone() const override;

    /// Writes "Analysis Message Prefix<prefix>" and the whole document on the next line, and flushes. A
    /// null `prefix` counts as "DefaultPfix".
    void Print(FILE* stream, const char* prefix) const override;

    /// The name of the root element of the document `xml`. A document that is not well-formed is a fatal
    /// error ("hr == S_OK").
    static ZYLString GetRootElemNameFromXml(const ZYLString& xml);

    /// GetRootElemNameFromXml, with an empty name as another fatal error ("len > 0"). Names with
    /// characters beyond ASCII are accepted. The result does not depend on this object.
    ZYLString GetTypeFromXmlBuffer(const ZYLString& xml) const;

  private:
    ZYLString m_msgBuffer;
};

#endif

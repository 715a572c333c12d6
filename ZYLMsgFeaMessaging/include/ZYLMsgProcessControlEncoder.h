#ifndef ZYLMSGPROCESSCONTROLENCODER_H
#define ZYLMSGPROCESSCONTROLENCODER_H

#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

class ZYLMsgProcessControlType;

/// Turns the attributes of a process-control message into its document and back. The kill document is,
/// without any line break or blank between its parts,
///
///     <?xml version="1.0" encoding="utf-8"?><Kill type="symconst">SOFT_KILL</Kill>
///
/// or the same with HARD_KILL. Static members only. Anything else is a fatal error; all comparisons are
/// byte-wise, on what the XML library gives for the element, so that differences which parsing removes do not
/// count.
class ZYLMSGMODULES_EXPORT ZYLMsgProcessControlEncoder {
  public:
    /// Writes the message's document from its "Kill" attribute. Fatal: a message that is no kill request
    /// ("pcType.m_processControlType == ZYLMsgProcessControlType::PROCESS_CONTROL_KILL") and an attribute
    /// that is missing or has another value (text "\"Unknown Kill Type in ZYLMsgProcessControlType\" == 0").
    static void ExternalizeProcessControlMsg(ZYLMsgProcessControlType& pcType);

    /// Makes the message a kill request with the "Kill" attribute of its document; a "Kill" attribute that it
    /// already has is kept. Only attributes that are written in the element count. Fatal, in this order: a
    /// document that is not well-formed ("hr == S_OK"), another element ("rootTagName == \"Kill\""), not
    /// exactly one attribute ("atts.size() == 1"), another one than "type"
    /// ("itr != atts.end()") or of another value ("killType == \"symconst\""), and another text
    /// or elements beside it ("killVal == \"SOFT_KILL\" || killVal == \"HARD_KILL\"").
    static void InternalizeProcessControlMsg(ZYLMsgProcessControlType& pcType);

  private:
    /// The kill document for `killType`, which is not examined.
    static ZYLString CreateKillXmlMessage(const ZYLString& killType);
};

#endif

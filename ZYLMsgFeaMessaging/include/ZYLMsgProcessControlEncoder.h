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
/// or the same with HARD_KILL. Any other document is a fatal error. The parsed element is compared byte by
/// byte, so differences that parsing removes do not count. Static members only.
class ZYLMSGMODULES_EXPORT ZYLMsgProcessControlEncoder {
  public:
    /// Writes the message's document from its "Kill" attribute. Fatal:
    ///
    /// - a message that is no kill request:
    ///   "pcType.m_processControlType == ZYLMsgProcessControlType::PROCESS_CONTROL_KILL"
    /// - an attribute that is missing or has another value:
    ///   "\"Unknown Kill Type in ZYLMsgProcessControlType\" == 0"
    static void ExternalizeProcessControlMsg(ZYLMsgProcessControlType& pcType);

    /// Makes the message a kill request and reads the "Kill" attribute from its document; a "Kill"
    /// attribute that the message already has is kept. Only attributes written in the element count, not
    /// defaults of a document type declaration. Fatal, in this order:
    ///
    /// - a document that is not well-formed: "hr == S_OK"
    /// - a root element with another name: "rootTagName == \"Kill\""
    /// - no attribute, or more than one: "atts.size() == 1"
    /// - an attribute other than "type": "itr != atts.end()"
    /// - another value of "type": "killType == \"symconst\""
    /// - another text, or child elements: "killVal == \"SOFT_KILL\" || killVal == \"HARD_KILL\""
    static void InternalizeProcessControlMsg(ZYLMsgProcessControlType& pcType);

  private:
    /// The kill document for `killType`, which the caller has checked.
    static ZYLString CreateKillXmlMessage(const ZYLString& killType);
};

#endif

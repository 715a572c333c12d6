#include "ZYLMsgProcessControlEncoder.h"

#include "ZYLBasMap.h"
#include "ZYLBasXmlDocument.h"
#include "ZYLBasXmlNode.h"
#include "ZYLMsgAssert.h"
#include "ZYLMsgProcessControlType.h"

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgTypes.m/src/ZYLMsgProcessControlEncoder";

}  // namespace

void ZYLMsgProcessControlEncoder::ExternalizeProcessControlMsg(ZYLMsgProcessControlType& pcType) {
    ZYL_ASSERT(pcType.m_processControlType == ZYLMsgProcessControlType::PROCESS_CONTROL_KILL);
    const ZYLString killType = pcType.m_attributes[ZYLString::BuildFromUTF8("Kill")];
    if (killType != "HARD_KILL" && killType != "SOFT_KILL") {
        ZYL_ASSERT("Unknown Kill Type in ZYLMsgProcessControlType" == 0);
    }
    pcType.m_xmlMessage = CreateKillXmlMessage(killType);
}

void ZYLMsgProcessControlEncoder::InternalizeProcessControlMsg(ZYLMsgProcessControlType& pcType) {
    ZYLBasXmlDocument document;
    const long hr = document.ReadString(pcType.m_xmlMessage);
    ZYL_ASSERT(hr == S_OK);
    ZYLBasXmlNode root;
    document.GetDom(root);
    ZYLString rootTagName;
    root.GetTagName(rootTagName);
    ZYL_ASSERT(rootTagName == "Kill");
    pcType.m_processControlType = ZYLMsgProcessControlType::PROCESS_CONTROL_KILL;

    ZYLBasMap<ZYLString, ZYLString> atts;
    root.GetAttList(atts);
    ZYL_ASSERT(atts.size() == 1);
    const auto itr = atts.find(ZYLString::BuildFromUTF8("type"));
    ZYL_ASSERT(itr != atts.end());
    const ZYLString& killType = itr->second;
    ZYL_ASSERT(killType == "symconst");

    // An element with child elements has no kill value, whatever its own text is.
    ZYLString killVal;
    if (!root.HasChildElements()) {
        root.GetValue(killVal);
    }
    ZYL_ASSERT(killVal == "SOFT_KILL" || killVal == "HARD_KILL");
    pcType.m_attributes.insert(ZYLBasPair<ZYLString, ZYLString>(ZYLString::BuildFromUTF8("Kill"), killVal));
}

ZYLString ZYLMsgProcessControlEncoder::CreateKillXmlMessage(const ZYLString& killType) {
    ZYLString document = ZYLString::BuildFromUTF8("<?xml version=\"1.0\" encoding=\"utf-8\"?>");
    document.Append(ZYLString::BuildFromUTF8("<Kill type=\"symconst\">"));
    document.Append(killType);
    document.Append(ZYLString::BuildFromUTF8("</Kill>"));
    return document;
}

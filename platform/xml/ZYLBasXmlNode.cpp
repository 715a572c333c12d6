#include "ZYLBasXmlNode.h"

ZYLBasXmlNode::ZYLBasXmlNode(const ZYLString& tagName, const ZYLBasMap<ZYLString, ZYLString>& attributes,
                             const ZYLString& value, bool hasChildElements)
    : m_tagName(tagName), m_attributes(attributes), m_value(value), m_hasChildElements(hasChildElements) {}

long ZYLBasXmlNode::GetTagName(ZYLString& name) const {
    name = m_tagName;
    return S_OK;
}

long ZYLBasXmlNode::GetValue(ZYLString& value) const {
    value = m_value;
    return S_OK;
}

long ZYLBasXmlNode::GetAttList(ZYLBasMap<ZYLString, ZYLString>& attributes) const {
    attributes = m_attributes;
    return S_OK;
}

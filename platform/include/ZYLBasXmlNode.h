#ifndef ZYLBASXMLNODE_H
#define ZYLBASXMLNODE_H

#include "ZYLBasMap.h"
#include "ZYLPlatformExport.h"
#include "ZYLString.h"

#ifndef S_OK
/// The status of an XML operation that succeeded; every other value is a failure.
constexpr long S_OK = 0;
#endif

/// One element of an XML document: its name, its attributes and its own text, all as UTF-8.
///
/// A node is a value: copies are independent of each other and of the document they came from (their
/// strings share their text, as copies of ZYLString do). Used on one thread at a time together with all
/// its copies.
class ZYLPLATFORM_EXPORT ZYLBasXmlNode {
  public:
    /// An element without name, attributes and text.
    ZYLBasXmlNode() = default;
    ZYLBasXmlNode(const ZYLString& tagName, const ZYLBasMap<ZYLString, ZYLString>& attributes,
                  const ZYLString& value, bool hasChildElements);

    /// Stores in `name` the element's name as the document writes it, including a namespace prefix.
    /// @return S_OK
    long GetTagName(ZYLString& name) const;

    /// Stores in `value` the element's own text in document order: character data and CDATA sections, with
    /// references resolved and line ends as "\n". Blanks are kept. The text of child elements, comments
    /// and processing instructions is left out.
    /// @return S_OK
    long GetValue(ZYLString& value) const;

    /// Replaces `attributes` by the attributes that are written in the element, name to value. Defaults
    /// from a document type declaration are left out.
    /// @return S_OK
    long GetAttList(ZYLBasMap<ZYLString, ZYLString>& attributes) const;

    /// Whether the element has child elements.
    bool HasChildElements() const { return m_hasChildElements; }

  private:
    ZYLString m_tagName;
    ZYLBasMap<ZYLString, ZYLString> m_attributes;
    ZYLString m_value;
    bool m_hasChildElements = false;
};

#endif

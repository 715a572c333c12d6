// The XML layer, from bytes in any encoding and from text.
#include <string>

#include "Fuzz.h"
#include "ZYLBasXmlDocument.h"
#include "ZYLBasXmlNode.h"

namespace {

/// All that was read of the document element as one text.
std::string TextOf(const ZYLBasXmlDocument& document) {
    ZYLBasXmlNode node;
    ZYLString name;
    ZYLString value;
    ZYLBasMap<ZYLString, ZYLString> attributes;
    Require(document.GetDom(node) == S_OK, "a document that was read has a document element");
    node.GetTagName(name);
    node.GetValue(value);
    node.GetAttList(attributes);
    Require(!name.IsEmpty(), "an element has a name");
    std::string text = std::string(name.GetUTF8()) + value.GetUTF8();
    for (const auto& [attribute, meaning] : attributes) {
        text += std::string(attribute.GetUTF8()) + meaning.GetUTF8();
    }
    return text;
}

}  // namespace

void RunInput(std::string_view input) {
    ZYLBasXmlDocument document;
    const long status = document.ReadBytes(input.data(), input.size());
    // A text is UTF-8 even where it declares another encoding.
    if (input.find('\0') == std::string_view::npos && input.find("encoding") == std::string_view::npos) {
        ZYLBasXmlDocument sameText;
        const long other = sameText.ReadString(ZYLString::BuildFromUTF8(std::string(input).c_str()));
        Require(other == status, "the same text has the same status");
    }
    if (status != S_OK) {
        ZYLBasXmlNode none;
        Require(document.GetDom(none) == ZYLBasXmlDocument::kNoDocument, "what was refused left nothing");
        return;
    }
    const std::string text = TextOf(document);
    const std::string carrier = "<r><![CDATA[" + text + "]]></r>";
    const bool canBeCarried = text.find("]]>") == std::string::npos;
    Require(!canBeCarried || document.ReadBytes(carrier.data(), carrier.size()) == S_OK,
            "names and texts come as UTF-8");
}

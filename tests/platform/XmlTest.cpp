#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>
#include <string_view>

#include "TemporaryDirectory.h"
#include "ZYLBasXmlDocument.h"

using namespace std::string_literals;

namespace {

using Status = ZYLBasXmlDocument::Status;

std::string Utf16(std::u16string_view text, bool bigEndian) {
    std::string bytes;
    for (const char16_t unit : u"\uFEFF" + std::u16string(text)) {
        bytes += static_cast<char>(bigEndian ? unit >> 8 : unit & 0xFF);
        bytes += static_cast<char>(bigEndian ? unit & 0xFF : unit >> 8);
    }
    return bytes;
}

/// So many elements within each other, of which the outermost ones are never closed.
std::string Nested(std::size_t depth, std::size_t closed) {
    std::string document;
    for (std::size_t tag = 0; tag < depth + closed; ++tag) {
        document += tag < depth ? "<a>" : "</a>";
    }
    return document;
}

struct Element {
    std::string name, value;
    std::map<std::string, std::string> attributes{};
    bool operator==(const Element&) const = default;
};

Element Root(const ZYLBasXmlDocument& document) {
    ZYLBasXmlNode root;
    EXPECT_EQ(document.GetDom(root), S_OK);
    ZYLString name, value;
    ZYLBasMap<ZYLString, ZYLString> list;
    EXPECT_EQ(root.GetTagName(name) | root.GetValue(value) | root.GetAttList(list), S_OK);
    Element element{name.GetUTF8(), value.GetUTF8()};
    for (const auto& entry : list) {
        element.attributes[entry.first.GetUTF8()] = entry.second.GetUTF8();
    }
    return element;
}

TEST(Xml, GivesNameTextAndAttributesOfTheDocumentElementAndOpensNothing) {
    const TemporaryDirectory directory;
    const std::string file = directory / "r.dtd";
    std::ofstream(file) << "<!ATTLIST r a CDATA 'from the file'>";
    const struct {
        std::string document;
        Element root;
    } cases[] = {
        {"<?xml version='1.0' encoding='utf-8'?><Kill type='symconst'>SOFT_KILL</Kill>",
         {"Kill", "SOFT_KILL", {{"type", "symconst"}}}},
        {"\uFEFF<!-- c --><?p i?>\n<a:r b='2' a='1'/>\n<!-- c -->", {"a:r", "", {{"a", "1"}, {"b", "2"}}}},
        {"<r> a<![CDATA[<b>&amp;]]>c </r>", {"r", " a<b>&amp;c "}},
        {"<r>one<c x='y'>inner<d/>text</c>two<!-- no --><?no no?></r>", {"r", "onetwo"}},
        {"<r a='&lt;&#xE9;'>&amp;&#x1F600;&quot;</r>", {"r", "&\U0001F600\"", {{"a", "<\u00e9"}}}},
        {"<r>1\r\n2\r3\n</r>", {"r", "1\n2\n3\n"}},
        {"<\u00e9l\u00e9ment/>", {"\u00e9l\u00e9ment", ""}},
        {"<?xml version='1.0' encoding='iso-8859-1'?><r>\xE9</r>", {"r", "\u00e9"}},
        {Utf16(u"<\u00e9 a='\u2192'>\U0001F600</\u00e9>", false),
         {"\u00e9", "\U0001F600", {{"a", "\u2192"}}}},
        {Utf16(u"<?xml version='1.0' encoding='UTF-16'?><a/>", true), {"a", ""}},
        {"<!DOCTYPE r [<!ATTLIST r a CDATA 'x'>]><r b='y'/>", {"r", "", {{"b", "y"}}}},
        {"<!DOCTYPE r SYSTEM '" + file + "'><r/>", {"r", ""}},
    };
    ZYLBasXmlDocument document;
    for (const auto& [text, root] : cases) {
        EXPECT_EQ(document.ReadBytes(text.data(), text.size()), S_OK) << text;
        EXPECT_EQ(Root(document), root) << text;
    }
    const char* const declared = "<?xml version='1.0' encoding='iso-8859-1'?><r>\u00e9</r>";
    EXPECT_EQ(document.ReadString(ZYLString::BuildFromUTF8(declared)), S_OK);
    EXPECT_EQ(Root(document).value, "\u00e9") << "a text is UTF-8";
}

TEST(Xml, AnswersHostileInputWithAStatus) {
    const std::size_t maxSize = ZYLBasXmlDocument::kMaxSize;
    const std::size_t maxDepth = ZYLBasXmlDocument::kMaxDepth;
    const struct {
        const char* name;
        std::string document;
        Status status;
    } cases[] = {
        {"UTF-16 without byte order mark", Utf16(u"<a/>", false).substr(2), Status::kOk},
        {"UTF-16 cut in a character", Utf16(u"<a/>", true).substr(0, 9), Status::kNotWellFormed},
        {"NUL in the text", "<a>\0</a>"s, Status::kNotWellFormed},
        {"overlong UTF-8", "<a>\xC0\xAF</a>", Status::kNotWellFormed},
        {"lone UTF-16 surrogate", Utf16(u"<a>\xD800</a>", false), Status::kNotWellFormed},
        {"unknown encoding", "<?xml version='1.0' encoding='EBCDIC'?><a/>", Status::kNotWellFormed},
        {"internal entity", "<!DOCTYPE r [<!ENTITY a 'ha'><!ENTITY b '&a;&a;'>]><r>&b;</r>",
         Status::kEntityRefused},
        {"external entity", "<!DOCTYPE r [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><r>&e;</r>",
         Status::kEntityRefused},
        {"deepest", Nested(maxDepth, maxDepth), Status::kOk},
        {"too deep", Nested(maxDepth + 1, maxDepth + 1), Status::kTooDeep},
        {"much too deep, never closed", Nested(5'000'000, 0), Status::kTooDeep},
        {"largest", "<a/>" + std::string(maxSize - 4, ' '), Status::kOk},
        {"too large", "<a/>" + std::string(maxSize - 3, ' '), Status::kTooLarge},
    };
    for (const auto& [name, document, status] : cases) {
        EXPECT_EQ(ZYLBasXmlDocument().ReadBytes(document.data(), document.size()), status) << name;
    }
}

}  // namespace

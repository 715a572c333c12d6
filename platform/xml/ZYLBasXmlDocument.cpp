#include "ZYLBasXmlDocument.h"

#include <expat.h>

#include <memory>
#include <new>
#include <string>

namespace {

using Status = ZYLBasXmlDocument::Status;

/// Reads one document: drives the parser and collects the document element.
class Reader {
  public:
    /// `encoding` overrides the document's declaration; null leaves the encoding to the document.
    explicit Reader(const char* encoding) : m_parser(XML_ParserCreate(encoding), &XML_ParserFree) {
        if (!m_parser) {
            throw std::bad_alloc();
        }
        // No handler for external entities is set, and without one the parser opens none.
        XML_SetUserData(m_parser.get(), this);
        XML_SetElementHandler(m_parser.get(), &StartElement, &EndElement);
        XML_SetCharacterDataHandler(m_parser.get(), &CharacterData);
        XML_SetEntityDeclHandler(m_parser.get(), &EntityDeclaration);
        XML_SetSkippedEntityHandler(m_parser.get(), &SkippedEntity);
    }

    /// Passes the whole document at once: in pieces, the parser would scan a long token again for each
    /// piece.
    Status Read(const void* bytes, std::size_t size) {
        const auto* text = static_cast<const char*>(bytes);
        if (XML_Parse(m_parser.get(), text, static_cast<int>(size), XML_TRUE) == XML_STATUS_OK) {
            return Status::kOk;
        }
        if (m_stopReason != Status::kOk) {
            return m_stopReason;
        }
        return XML_GetErrorCode(m_parser.get()) == XML_ERROR_NO_MEMORY ? Status::kOutOfMemory
                                                                       : Status::kNotWellFormed;
    }

    ZYLBasXmlNode Root() const {
        return {ZYLString::BuildFromUTF8(m_name.c_str()), m_attributes,
                ZYLString::BuildFromUTF8(m_text.c_str()), m_hasChildElements};
    }

  private:
    static void XMLCALL StartElement(void* self, const char* name, const char** attributes) {
        auto* reader = static_cast<Reader*>(self);
        reader->OrStop([=] { reader->Open(name, attributes); });
    }

    static void XMLCALL EndElement(void* self, const char* /*name*/) {
        --static_cast<Reader*>(self)->m_depth;
    }

    static void XMLCALL CharacterData(void* self, const char* text, int length) {
        auto* reader = static_cast<Reader*>(self);
        if (reader->m_depth == 1) {
            reader->OrStop([=] { reader->m_text.append(text, static_cast<std::size_t>(length)); });
        }
    }

    static void XMLCALL EntityDeclaration(void* self, const char* /*name*/, int /*isParameter*/,
                                          const char* /*value*/, int /*length*/, const char* /*base*/,
                                          const char* /*systemId*/, const char* /*publicId*/,
                                          const char* /*notation*/) {
        static_cast<Reader*>(self)->Stop(Status::kEntityRefused);
    }

    static void XMLCALL SkippedEntity(void* self, const char* /*name*/, int /*isParameter*/) {
        static_cast<Reader*>(self)->Stop(Status::kEntityRefused);
    }

    void Open(const char* name, const char** attributes) {
        if (++m_depth > ZYLBasXmlDocument::kMaxDepth) {
            Stop(Status::kTooDeep);
        } else if (m_depth == 1) {
            m_name = name;
            // The parser lists the attributes written in the element first, then the defaults.
            const int written = XML_GetSpecifiedAttributeCount(m_parser.get());
            for (int at = 0; at < written; at += 2) {
                m_attributes[ZYLString::BuildFromUTF8(attributes[at])] =
                    ZYLString::BuildFromUTF8(attributes[at + 1]);
            }
        } else {
            m_hasChildElements = true;
        }
    }

    /// No exception may pass through the parser, which is written in C.
    template <class Action>
    void OrStop(Action action) noexcept {
        try {
            action();
        } catch (const std::bad_alloc&) {
            Stop(Status::kOutOfMemory);
        }
    }

    void Stop(Status reason) {
        m_stopReason = reason;
        XML_StopParser(m_parser.get(), XML_FALSE);
    }

    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> m_parser;
    Status m_stopReason = Status::kOk;
    int m_depth = 0;
    std::string m_name;
    ZYLBasMap<ZYLString, ZYLString> m_attributes;
    std::string m_text;
    bool m_hasChildElements = false;
};

}  // namespace

long ZYLBasXmlDocument::ReadString(const ZYLString& xml) {
    return Read(xml.GetUTF8(), static_cast<std::size_t>(xml.GetLengthInByte()), "UTF-8");
}

long ZYLBasXmlDocument::ReadBytes(const void* bytes, std::size_t size) {
    return Read(bytes, size, nullptr);
}

long ZYLBasXmlDocument::Read(const void* bytes, std::size_t size, const char* encoding) try {
    m_root.reset();
    if (size > kMaxSize) {
        return kTooLarge;
    }
    Reader reader(encoding);
    const Status status = reader.Read(bytes, size);
    if (status == kOk) {
        m_root = reader.Root();
    }
    return status;
} catch (const std::bad_alloc&) {
    return kOutOfMemory;
}

long ZYLBasXmlDocument::GetDom(ZYLBasXmlNode& root) const {
    if (!m_root) {
        return kNoDocument;
    }
    root = *m_root;
    return S_OK;
}

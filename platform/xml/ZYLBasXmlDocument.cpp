#include "ZYLBasXmlDocument.h"

#include <expat.h>

#include <memory>
#include <new>
#include <string>

namespace {

using Status = ZYLBasXmlDocument::Status;

/// One reading of one document: drives the parser and collects the document element.
class Reader {
  public:
    Reader() : m_parser(XML_ParserCreate(nullptr), &XML_ParserFree) {
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

    /// The whole document goes in at once: fed in pieces, a long token would be scanned again with each of
    /// them.
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
                ZYLString::BuildFromUTF8(m_text.c_str())};
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
            for (; *attributes != nullptr; attributes += 2) {
                m_attributes[ZYLString::BuildFromUTF8(attributes[0])] =
                    ZYLString::BuildFromUTF8(attributes[1]);
            }
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
};

}  // namespace

long ZYLBasXmlDocument::ReadString(const ZYLString& xml) {
    return ReadBytes(xml.GetUTF8(), static_cast<std::size_t>(xml.GetLengthInByte()));
}

long ZYLBasXmlDocument::ReadBytes(const void* bytes, std::size_t size) try {
    m_root.reset();
    if (size > kMaxSize) {
        return kTooLarge;
    }
    Reader reader;
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

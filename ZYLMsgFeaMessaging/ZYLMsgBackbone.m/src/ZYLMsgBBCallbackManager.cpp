#include "ZYLMsgBBCallbackManager.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "QORText.h"
#include "ZYLMsgAssert.h"
#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgBBMessage.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgWireReader.h"

cow_Btree<cow_String, ZYLMsgBBMessage*> ZYLMsgBBCallbackManager::m_protos;
cow_Btree<cow_String, ZYLMsgBBMessageHandler*> ZYLMsgBBCallbackManager::m_handlers;
const ZYLMsgBBMessage* ZYLMsgBBCallbackManager::m_messageToSend = nullptr;
const ZYLMsgBBDisconnectHandler* ZYLMsgBBCallbackManager::m_disconnectHandler = nullptr;
ZYLString ZYLMsgBBCallbackManager::m_messageID;
bool ZYLMsgBBCallbackManager::m_isStreamed = false;

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgBackbone.m/src/ZYLMsgBBCallbackManager";
constexpr int kLengthWidth = 4;

struct Route {
    ZYLMsgBBMessage* proto;
    ZYLMsgBBMessageHandler* handler;
};

/// The routes of the types received so far, for lookup in constant time. The keys are the prototypes' own
/// type names. Entries stay valid because a type is never unregistered alone, only with all others.
std::unordered_map<std::string_view, Route> g_routes;

template <class T>
void DeleteAll(cow_Btree<cow_String, T*>& registry) {
    cow_BtreeIterator<cow_String, T*> entry(registry);
    for (entry.First(); !entry.IsDone(); entry.Next()) {
        delete registry.ConstGet(entry.CurrentKey());
    }
    registry.Clear();
}

/// Writes one line on standard error with what the text of a fatal check lacks: the culprit and the
/// remedy.
void Say(const std::string& text) {
    const std::string line = fmt::format("ZYLMsgModules: {}\n", text);
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

/// The sender that an envelope names, or a phrase that says why there is none. The bytes are not trusted.
std::string SenderOf(const void* envelope, int size) {
    int length = 0;
    if (size >= kLengthWidth) {
        std::memcpy(&length, envelope, kLengthWidth);
    }
    if (size < kLengthWidth || length < 0 || length > size - kLengthWidth) {
        return "a sender whose identifier cannot be read";
    }
    const std::string_view id(static_cast<const char*>(envelope) + kLengthWidth,
                              static_cast<std::size_t>(length));
    return id.empty() ? "a sender without an identifier" : QORText::Quoted(id);
}

void SayNobodyHandles(const char* type, const void* envelope, int size) {
    Say(fmt::format(
        "nobody handles the message of type {} that came from {}: register a prototype and a handler for its "
        "type (ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler) before ZYLMsgBBAPI::EnableReceiveHandling",
        QORText::Quoted(type), SenderOf(envelope, size)));
}

}  // namespace

ZYLMsgBBCallbackManager::~ZYLMsgBBCallbackManager() {
    g_routes.clear();
    DeleteAll(m_protos);
    DeleteAll(m_handlers);
}

void ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(ZYLMsgBBMessage* proto,
                                                       ZYLMsgBBMessageHandler* handler) {
    ZYL_ASSERT(proto != NULL);
    const cow_String type(proto->Type());
    if (m_protos.IsMember(type) || m_handlers.IsMember(type)) {
        Say(
            fmt::format("the message type {} is registered already: adopt one prototype and one handler for "
                        "each type, once in the process",
                        QORText::Quoted(type.CStr())));
    }
    ZYL_ASSERT(!m_protos.IsMember(type));
    ZYL_ASSERT(!m_handlers.IsMember(type));
    m_protos.InsertUnlessMember(type, proto);
    try {
        m_handlers.InsertUnlessMember(type, handler);
    } catch (...) {
        m_protos.Remove(type);  // does not allocate, because the registry shares no node with another map
        throw;
    }
}

bool ZYLMsgBBCallbackManager::IsMessageTypeHandled(const char* type) {
    const cow_String key(type);
    return m_protos.IsMember(key) && m_handlers.IsMember(key);
}

ZYLMsgBBMessageHandler* ZYLMsgBBCallbackManager::GetHandler(const char* typeName) {
    const cow_String type(typeName);
    ZYL_ASSERT(m_protos.IsMember(type));
    ZYL_ASSERT(m_handlers.IsMember(type));
    return m_handlers.ConstGet(type);
}

void ZYLMsgBBCallbackManager::HandleMessage(const char* typeName, const void* buffer, int size) {
    typeName = QORText::OrEmpty(typeName);
    auto known = g_routes.find(typeName);
    if (known == g_routes.end()) {
        const cow_String type(typeName);
        if (!IsMessageTypeHandled(typeName)) {
            SayNobodyHandles(typeName, buffer, size);
        }
        ZYL_ASSERT(m_protos.IsMember(type));
        ZYL_ASSERT(m_handlers.IsMember(type));
        ZYLMsgBBMessage* const proto = m_protos.ConstGet(type);
        ZYL_ASSERT(proto != NULL);
        known = g_routes.emplace(proto->Type(), Route{proto, m_handlers.ConstGet(type)}).first;
    }
    const auto [proto, handler] = known->second;
    const std::unique_ptr<ZYLMsgBBMessage> msg(proto->Clone());
    ZYLMsgWireReader envelope(buffer, size);
    const int idLength = envelope.ReadInt("identifier length");
    const ZYLMsgWireReader::Text id = envelope.CopyText(idLength, "identifier");
    ZYL_ASSERT(msg != NULL);
    msg->Unstream(envelope.Rest(), envelope.Left());
    if (handler == nullptr) {
        SayNobodyHandles(typeName, buffer, size);
    }
    ZYL_ASSERT(handler != NULL);
    handler->HandleMessage(*msg, id.get());
}

void ZYLMsgBBCallbackManager::AppendMessageToSend(const ZYLMsgBBMessage* msg) {
    m_messageToSend = msg;
    m_isStreamed = false;
}

const char* ZYLMsgBBCallbackManager::TypeOfPendingMessage() {
    ZYL_ASSERT(m_messageToSend != 0);
    return m_messageToSend->Type();
}

int ZYLMsgBBCallbackManager::RequiredBufferSizeOfPendingMessage() {
    ZYL_ASSERT(m_messageToSend != 0);
    const std::int64_t head = std::int64_t{kLengthWidth} + m_messageID.GetLengthInByte();
    const int bodySize = m_messageToSend->RequiredBufferSize();
    if (bodySize < 0 || bodySize > INT_MAX - head) {
        Say(
            fmt::format("the message of type {} announces a body of {} bytes; its RequiredBufferSize() may "
                        "give 0 to {}",
                        QORText::Quoted(m_messageToSend->Type()), bodySize, INT_MAX - head));
    }
    ZYL_ASSERT(bodySize >= 0);
    const std::int64_t total = head + bodySize;
    ZYL_ASSERT(total <= INT_MAX);
    return static_cast<int>(total);
}

void ZYLMsgBBCallbackManager::StreamPendingMessage(void* buffer, int size) {
    const int idLength = m_messageID.GetLengthInByte();
    const std::int64_t head = std::int64_t{kLengthWidth} + idLength;
    ZYL_ASSERT(size >= head);
    char* const out = static_cast<char*>(buffer);
    std::memcpy(out, &idLength, kLengthWidth);
    char* const body = std::copy_n(m_messageID.GetUTF8(), idLength, out + kLengthWidth);
    ZYL_ASSERT(m_messageToSend != 0);
    m_messageToSend->Stream(body, size - static_cast<int>(head));
    m_isStreamed = true;
}

bool ZYLMsgBBCallbackManager::IsPendingMessageStreamed() {
    return m_isStreamed;
}

void ZYLMsgBBCallbackManager::SetMessageID(const char* id) {
    m_messageID = ZYLString::BuildFromUTF8(id);
}

const char* ZYLMsgBBCallbackManager::MessageID() {
    return m_messageID.GetUTF8();
}

void ZYLMsgBBCallbackManager::AssociateDisconnectHandler(const ZYLMsgBBDisconnectHandler* handler) {
    m_disconnectHandler = handler;
}

void ZYLMsgBBCallbackManager::ExpectDisconnectHandler(const char* application) {
    if (m_disconnectHandler == nullptr) {
        Say(fmt::format(
            "application {} enables disconnect handling without a disconnect handler, so the first lost peer "
            "ends this process: call ZYLMsgBBCallbackManager::AssociateDisconnectHandler before "
            "ZYLMsgBBAPI::EnableDisconnectHandling",
            QORText::Quoted(QORText::OrEmpty(application))));
    }
}

void ZYLMsgBBCallbackManager::Disconnection(int pid, const char* app, const char* host, const char* user) {
    app = QORText::OrEmpty(app);
    if (m_disconnectHandler == nullptr) {
        Say(
            fmt::format("nobody handles the loss of application {}: call "
                        "ZYLMsgBBCallbackManager::AssociateDisconnectHandler before "
                        "ZYLMsgBBAPI::EnableDisconnectHandling",
                        QORText::Quoted(app)));
    }
    ZYL_ASSERT(m_disconnectHandler != 0);
    m_disconnectHandler->DetectDisconnection(pid, app, QORText::OrEmpty(host), QORText::OrEmpty(user));
}

#include "ZYLMsgBBCallbackManager.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <unordered_map>

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

namespace {

constexpr const char* kSourceFile = "ZYLMsgFeaMessaging/ZYLMsgBackbone.m/src/ZYLMsgBBCallbackManager";
constexpr int kLengthWidth = 4;

struct Route {
    ZYLMsgBBMessage* proto;
    ZYLMsgBBMessageHandler* handler;
};

/// Where the messages that have come went, by the prototype's own type name: found in the same time however
/// many types there are. A registered type keeps its prototype and handler until all of them go.
std::unordered_map<std::string_view, Route> g_routes;

template <class T>
void DeleteAll(cow_Btree<cow_String, T*>& registry) {
    cow_BtreeIterator<cow_String, T*> entry(registry);
    for (entry.First(); !entry.IsDone(); entry.Next()) {
        delete registry.ConstGet(entry.CurrentKey());
    }
    registry.Clear();
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
    ZYL_ASSERT(!m_protos.IsMember(type));
    ZYL_ASSERT(!m_handlers.IsMember(type));
    m_protos.InsertUnlessMember(type, proto);
    m_handlers.InsertUnlessMember(type, handler);
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
    auto known = g_routes.find(typeName);
    if (known == g_routes.end()) {
        const cow_String type(typeName);
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
    ZYL_ASSERT(handler != NULL);
    handler->HandleMessage(*msg, id.get());
}

void ZYLMsgBBCallbackManager::AppendMessageToSend(const ZYLMsgBBMessage* msg) {
    m_messageToSend = msg;
}

const char* ZYLMsgBBCallbackManager::TypeOfPendingMessage() {
    ZYL_ASSERT(m_messageToSend != 0);
    return m_messageToSend->Type();
}

int ZYLMsgBBCallbackManager::RequiredBufferSizeOfPendingMessage() {
    ZYL_ASSERT(m_messageToSend != 0);
    const std::int64_t total =
        std::int64_t{m_messageToSend->RequiredBufferSize()} + m_messageID.GetLengthInByte() + kLengthWidth;
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
}

void ZYLMsgBBCallbackManager::SetMessageID(const char* id) {
    m_messageID = ZYLString::BuildFromUTF8(id);
}

void ZYLMsgBBCallbackManager::AssociateDisconnectHandler(const ZYLMsgBBDisconnectHandler* handler) {
    m_disconnectHandler = handler;
}

void ZYLMsgBBCallbackManager::Disconnection(int pid, const char* app, const char* host, const char* user) {
    ZYL_ASSERT(m_disconnectHandler != 0);
    m_disconnectHandler->DetectDisconnection(pid, app, host, user);
}

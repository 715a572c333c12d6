#include "ZYLMsgBBCallbackManager.h"

#include <gmock/gmock.h>

#include <climits>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "../foundation/AllocationFaults.h"
#include "ExpectFatal.h"
#include "MemoryStream.h"
#include "MessageBytes.h"
#include "QORFatalError.h"
#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgBBMessage.h"
#include "ZYLMsgBBMessageHandler.h"

using namespace std::string_literals;
using testing::ElementsAre;
using Manager = ZYLMsgBBCallbackManager;

namespace {

const std::string kSource = "ZYLMsgFeaMessaging/ZYLMsgBackbone.m/src/ZYLMsgBBCallbackManager";
const std::string kReader = "ZYLMsgFeaMessaging/ZYLMsgBackbone.m/src/ZYLMsgWireReader";

std::vector<std::string> g_events;

/// Notes what is done to it; its body is a text.
class Probe : public ZYLMsgBBMessage {
  public:
    explicit Probe(const std::string& type, const std::string& body = "")
        : ZYLMsgBBMessage(ZYLString::BuildFromUTF8(type.c_str())), m_body(body) {}
    ~Probe() override { g_events.push_back("delete "s + Type() + m_body); }
    int RequiredBufferSize() const override { return static_cast<int>(m_body.size()); }
    void Stream(void* buffer, int size) const override {
        if (size < RequiredBufferSize()) {
            QORFatalError("AssertionFailed:the probe's own", nullptr, nullptr, nullptr, "Probe", __LINE__);
        }
        m_body.copy(static_cast<char*>(buffer), m_body.size());
    }
    void Unstream(const void* buffer, int size) override {
        m_body.assign(static_cast<const char*>(buffer), static_cast<std::size_t>(size));
        g_events.push_back("unstream " + m_body);
        if (m_body == "bad") {
            QORFatalError("AssertionFailed:bad body", nullptr, nullptr, nullptr, "Probe", __LINE__);
        }
    }
    Probe* Clone() const override {
        g_events.push_back("clone "s + Type());
        return m_body == "sterile" ? nullptr : new Probe(Type());
    }

    std::string m_body;
};

class Recorder : public ZYLMsgBBMessageHandler {
  public:
    explicit Recorder(const std::string& name) : m_name(name) {}
    ~Recorder() override { g_events.push_back("delete handler " + m_name); }
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        if (m_nested) {
            m_nested();
        }
        g_events.push_back(m_name + " handles " + dynamic_cast<const Probe&>(message).m_body + " from " + id);
    }

    std::function<void()> m_nested;  ///< what it does first

  private:
    std::string m_name;
};

class CallbackManager : public testing::Test {
  protected:
    ~CallbackManager() override {
        EmptyTheRegistries();
        Manager::AppendMessageToSend(nullptr);
        Manager::AssociateDisconnectHandler(nullptr);
        Manager::SetMessageID("");
        g_events.clear();
    }
    static void EmptyTheRegistries() { const Manager any; }
    static void Receive(const std::string& type, const std::string& bytes) {
        const HeapBytes buffer(bytes);
        Manager::HandleMessage(type.c_str(), buffer.Get(), buffer.Size());
    }
    static std::string Pending() {
        const HeapBytes buffer(
            std::string(static_cast<std::size_t>(Manager::RequiredBufferSizeOfPendingMessage()), '?'));
        Manager::StreamPendingMessage(buffer.Get(), buffer.Size());
        return buffer.Text();
    }
};

TEST_F(CallbackManager, MessagesAreKnownAndPrintedByTheBytesOfTheirType) {
    EXPECT_TRUE(Probe("Abc").SameType(Probe("Abc")));
    EXPECT_FALSE(Probe("Abc").SameType(Probe("abc")) || Probe("Abc").SameType(Probe("Ab")));
    MemoryStream out;
    Probe("T").Print(out.Get(), nullptr);
    EXPECT_EQ(out.Flushed(), "");
    EXPECT_EQ(out.Text(), "Message Type: T\n");
}

TEST_F(CallbackManager, WritesLengthIdentifierAndBodyOfTheLatestMessage) {
    const Probe earlier("S", "earlier"), message("T", "0123456789");
    Manager::AppendMessageToSend(&earlier);
    EXPECT_EQ(Pending(), "\0\0\0\0earlier"s);
    Manager::SetMessageID("p\xc3\xa9");
    Manager::AppendMessageToSend(&message);
    EXPECT_EQ(Pending(),
              "\3\0\0\0p\xc3\xa9"
              "0123456789"s);
    EXPECT_STREQ(Manager::TypeOfPendingMessage(), "T");
    Manager::SetMessageID(nullptr);
    EXPECT_EQ(Pending(),
              "\0\0\0\0"
              "0123456789"s);
}

TEST_F(CallbackManager, RefusesToSendWhatIsNotThereOrDoesNotFit) {
    char buffer[16];
    const std::string none = "m_messageToSend != 0";
    EXPECT_FATAL(Manager::TypeOfPendingMessage(), none, kSource);
    EXPECT_FATAL(Manager::RequiredBufferSizeOfPendingMessage(), none, kSource);
    EXPECT_FATAL(Manager::StreamPendingMessage(buffer, 16), none, kSource);

    Manager::SetMessageID("prog");
    const Probe message("T", "body");
    Manager::AppendMessageToSend(&message);
    EXPECT_FATAL(Manager::StreamPendingMessage(buffer, 11), "the probe's own", "Probe");
    EXPECT_FATAL(Manager::StreamPendingMessage(nullptr, 7), "size >= head", kSource);
    EXPECT_FATAL(Manager::StreamPendingMessage(nullptr, INT_MIN), "size >= head", kSource);

    struct Announcing : Probe {
        Announcing() : Probe("T") {}
        int RequiredBufferSize() const override { return m_size; }
        int m_size = INT_MAX - 7;
    } announcing;
    Manager::AppendMessageToSend(&announcing);
    const std::string line = "ZYLMsgModules: the message of type 'T' announces a body of ";
    EXPECT_DEATH(Manager::RequiredBufferSizeOfPendingMessage(),
                 line + "2147483640 bytes; .*0 to 2147483639\n.*total <= INT_MAX");
    announcing.m_size = -1;
    EXPECT_DEATH(Manager::RequiredBufferSizeOfPendingMessage(),
                 line + "-1 bytes; .*0 to 2147483639\n.*bodySize >= 0");
    announcing.m_size = INT_MAX - 7;
    Manager::SetMessageID("abc");
    EXPECT_EQ(Manager::RequiredBufferSizeOfPendingMessage(), INT_MAX);
}

TEST_F(CallbackManager, DispatchesAFreshCloneAndDeletesItAlsoWithinAHandler) {
    auto* const outer = new Recorder("a");
    outer->m_nested = [] { Receive("B", "\2\0\0\0meinner"s); };
    Manager::AdoptPrototypeAndHandler(new Probe("A"), outer);
    Manager::AdoptPrototypeAndHandler(new Probe("B", "proto"), new Recorder("b"));
    Receive("A", "\3\0\0\0yououter"s);
    EXPECT_THAT(g_events, ElementsAre("clone A", "unstream outer", "clone B", "unstream inner",
                                      "b handles inner from me", "delete Binner", "a handles outer from you",
                                      "delete Aouter"));
    g_events.clear();
    Receive("B", "\0\0\0\0"s);
    EXPECT_THAT(g_events, ElementsAre("clone B", "unstream ", "b handles  from ", "delete B"));
}

TEST_F(CallbackManager, RefusesBadRegistrations) {
    EXPECT_FATAL(Manager::AdoptPrototypeAndHandler(nullptr, nullptr), "proto != NULL", kSource);
    Manager::AdoptPrototypeAndHandler(new Probe("A"), new Recorder("a"));
    Probe again("A");
    EXPECT_DEATH(Manager::AdoptPrototypeAndHandler(&again, nullptr),
                 "ZYLMsgModules: .* 'A' is registered already.*\n.*:!m_protos.IsMember\\(type\\)");
    Probe half("B");
    Manager::m_handlers.InsertUnlessMember("B", nullptr);
    EXPECT_FATAL(Manager::AdoptPrototypeAndHandler(&half, nullptr), "!m_handlers.IsMember(type)", kSource);
}

TEST_F(CallbackManager, RegistersNothingWhenMemoryEndsHalfway) {
    auto* const proto = new Probe("A");
    auto* const handler = new Recorder("a");
    int allowed = -1;
    for (bool adopted = false; !adopted;) {
        AllocationFaults::FailAt(++allowed + 1);
        try {
            Manager::AdoptPrototypeAndHandler(proto, handler);
            adopted = true;
        } catch (const std::bad_alloc&) {
            EXPECT_FALSE(Manager::m_protos.IsMember("A") || Manager::m_handlers.IsMember("A")) << allowed;
        }
        AllocationFaults::FailAt(0);
    }
    EXPECT_GT(allowed, 4) << "a key and two nodes with their holders";
    EXPECT_TRUE(Manager::IsMessageTypeHandled("A"));
}

TEST_F(CallbackManager, NamesTypeAndSenderOfWhatNobodyHandles) {
    Manager::AdoptPrototypeAndHandler(new Probe("null handler"), nullptr);
    const std::string remedy =
        ": register a prototype and a handler .*before ZYLMsgBBAPI::EnableReceiveHandling\n";
    struct {
        const char* type;
        std::string envelope, said;
    } const cases[] = {
        {"T\n", "\3\0\0\0job"s, "'T.x0a' that came from 'job'"},
        {"null handler", "\3\0\0\0job"s, "'null handler' that came from 'job'"},
        {nullptr, "\5\0\0\0\x1b\xc2\x9bx\0body"s, "'' that came from '.x1b.xc2.x9bx.x00'"},
        {"T", "\xc8\0\0\0"s + std::string(200, 'x'), "'T' that came from 'x{120}\\.\\.\\.'"},
        {"T", "\0\0\0\0"s, "'T' that came from a sender without an identifier"},
        {"T", "\4\0\0\0job"s, "'T' that came from a sender whose identifier cannot be read"},
        {"T", "\xff\xff\xff\xff"s, "'T' that came from a sender whose identifier cannot be read"},
        {"T", "\3\0"s, "'T' that came from a sender whose identifier cannot be read"},
    };
    for (const auto& c : cases) {
        const HeapBytes buffer(c.envelope);
        EXPECT_DEATH(Manager::HandleMessage(c.type, buffer.Get(), buffer.Size()), c.said + remedy);
    }
}

TEST_F(CallbackManager, ChecksInItsOrder) {
    const std::string noEnvelope, good = "\0\0\0\0ok"s;
    Manager::m_protos.InsertUnlessMember("no handler entry", new Probe(""));
    Manager::m_protos.InsertUnlessMember("null proto", nullptr);
    Manager::m_handlers.InsertUnlessMember("null proto", new Recorder("n"));
    Manager::m_handlers.InsertUnlessMember("no proto entry", new Recorder("p"));
    Manager::AdoptPrototypeAndHandler(new Probe("null clone", "sterile"), nullptr);
    Manager::AdoptPrototypeAndHandler(new Probe("null handler"), nullptr);
    struct {
        std::string type, bytes, message, source;
    } const cases[] = {
        {"unknown", noEnvelope, "m_protos.IsMember(type)", kSource},
        {"no proto entry", noEnvelope, "m_protos.IsMember(type)", kSource},
        {"no handler entry", noEnvelope, "m_handlers.IsMember(type)", kSource},
        {"null proto", noEnvelope, "proto != NULL", kSource},
        {"null clone", noEnvelope, "identifier length: 4 bytes needed, 0 bytes left", kReader},
        {"null clone", "\3\0\0\0ab"s, "identifier: 3 bytes needed, 2 bytes left", kReader},
        {"null clone", "\xff\xff\xff\xff"s, "identifier: -1 bytes needed, 0 bytes left", kReader},
        {"null clone", good, "msg != NULL", kSource},
        {"null handler", "\0\0\0\0bad"s, "bad body", "Probe"},
        {"null handler", good, "handler != NULL", kSource},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.type);
        EXPECT_FATAL(Receive(c.type, c.bytes), c.message, c.source);
    }
}

TEST_F(CallbackManager, KnowsWhatIsRegistered) {
    auto* const handler = new Recorder("a");
    Manager::AdoptPrototypeAndHandler(new Probe("A"), handler);
    Manager::AdoptPrototypeAndHandler(new Probe("B"), nullptr);
    Manager::m_protos.InsertUnlessMember("half", new Probe(""));
    EXPECT_TRUE(Manager::IsMessageTypeHandled("A") && Manager::IsMessageTypeHandled("B"));
    EXPECT_FALSE(Manager::IsMessageTypeHandled("half") || Manager::IsMessageTypeHandled("a"));
    Manager manager;
    EXPECT_EQ(manager.GetHandler("A"), handler);
    EXPECT_EQ(manager.GetHandler("B"), nullptr);
    EXPECT_FATAL(manager.GetHandler("unknown"), "m_protos.IsMember(type)", kSource);
    EXPECT_FATAL(manager.GetHandler("half"), "m_handlers.IsMember(type)", kSource);
}

TEST_F(CallbackManager, DestructionDeletesPrototypesThenHandlersInKeyOrder) {
    const Probe pending("P");
    Manager::AppendMessageToSend(&pending);
    for (const char* type : {"b", "c", "a"}) {
        Manager::AdoptPrototypeAndHandler(new Probe(type), new Recorder(type));
    }
    Manager::AdoptPrototypeAndHandler(new Probe("d"), nullptr);
    Receive("c", "\0\0\0\0"s);
    g_events.clear();
    EmptyTheRegistries();
    EXPECT_THAT(g_events, ElementsAre("delete a", "delete b", "delete c", "delete d", "delete handler a",
                                      "delete handler b", "delete handler c"));
    EXPECT_FALSE(Manager::IsMessageTypeHandled("a"));
    EXPECT_STREQ(Manager::TypeOfPendingMessage(), "P");
    EXPECT_FATAL(Receive("c", "\0\0\0\0"s), "m_protos.IsMember(type)", kSource);
    Manager::AdoptPrototypeAndHandler(new Probe("c"), new Recorder("new"));
    g_events.clear();
    Receive("c", "\0\0\0\0"s);
    EXPECT_THAT(g_events, ElementsAre("clone c", "unstream ", "new handles  from ", "delete c"));
}

TEST_F(CallbackManager, HandsLossesToTheLatestDisconnectHandler) {
    struct Watcher : ZYLMsgBBDisconnectHandler {
        void DetectDisconnection(int pid, const char* app, const char* host,
                                 const char* user) const override {
            g_events.push_back(std::to_string(pid) + " " + app + " " + host + " " + user);
        }
    } const watcher;
    EXPECT_DEATH(Manager::Disconnection(1, "a", "h", "u"),
                 "loss of application 'a': .*AssociateDisconnectHandler.*\n.*:m_disconnectHandler != 0");
    Manager::AssociateDisconnectHandler(nullptr);
    Manager::AssociateDisconnectHandler(&watcher);
    Manager::Disconnection(-7, "app", "host", "user");
    Manager::Disconnection(1, nullptr, nullptr, nullptr);
    EXPECT_THAT(g_events, ElementsAre("-7 app host user", "1   "));
}

}  // namespace

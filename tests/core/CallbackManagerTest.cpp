#include "ZYLMsgBBCallbackManager.h"

#include <gmock/gmock.h>

#include <climits>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "../foundation/AllocationFaults.h"
#include "FatalErrors.h"
#include "MemoryStream.h"
#include "MessageBytes.h"
#include "QORFatalError.h"
#include "QORText.h"
#include "ZYLMsgBBMessage.h"
#include "ZYLMsgBBMessageHandler.h"

using namespace std::string_literals;
using testing::ElementsAre;
using Manager = ZYLMsgBBCallbackManager;

namespace {

/// What FatalErrorOf gives for a check of the manager.
std::string FailedCheck(const std::string& check) {
    return Failed(check, "Backbone.m/src/ZYLMsgBBCallbackManager");
}

std::vector<std::string> g_events;

/// Notes what is done to it; its body is a text.
class Probe : public ZYLMsgBBMessage {
  public:
    explicit Probe(const std::string& type, const std::string& body = "")
        : ZYLMsgBBMessage(ZYLString::BuildFromUTF8(type.c_str())), m_body(body) {}
    ~Probe() override { g_events.push_back("delete "s + Type() + m_body); }
    int RequiredBufferSize() const override { return static_cast<int>(m_body.size()); }
    void Stream(void* buffer, int size) const override {
        ASSERT_GE(size, RequiredBufferSize());
        m_body.copy(static_cast<char*>(buffer), m_body.size());
    }
    void Unstream(const void* buffer, int size) override {
        m_body.assign(static_cast<const char*>(buffer), static_cast<std::size_t>(size));
        g_events.push_back("unstream " + m_body);
        if (m_body == "bad") {
            QORFatalError("bad body", nullptr, nullptr, nullptr, "Probe", __LINE__);
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

TEST_F(CallbackManager, WritesLengthIdentifierAndBodyOfTheLatestMessage) {
    const Probe earlier("S", "earlier"), message("T", "0123456789");
    EXPECT_TRUE(message.SameType(Probe("T")) && !message.SameType(Probe("t")));
    MemoryStream out;
    message.Print(out.Get(), nullptr);
    EXPECT_EQ(out.Text(), "Message Type: T\n");
    Manager::AppendMessageToSend(&earlier);
    EXPECT_EQ(Pending(), "\0\0\0\0earlier"s);
    Manager::SetMessageID("p\xc3\xa9");
    Manager::AppendMessageToSend(&message);
    EXPECT_EQ(Pending(), "\3\0\0\0p\xc3\xa9"s + "0123456789");
    EXPECT_STREQ(Manager::TypeOfPendingMessage(), "T");
    Manager::SetMessageID(nullptr);
    EXPECT_EQ(Pending(), "\0\0\0\0"s + "0123456789");
}

TEST_F(CallbackManager, RefusesToSendWhatIsNotThereOrDoesNotFit) {
    char buffer[16];
    const std::string none = FailedCheck("m_messageToSend != 0");
    EXPECT_EQ(FatalErrorOf([] { Manager::TypeOfPendingMessage(); }), none);
    EXPECT_EQ(FatalErrorOf([] { Manager::RequiredBufferSizeOfPendingMessage(); }), none);
    EXPECT_EQ(FatalErrorOf([&] { Manager::StreamPendingMessage(buffer, 16); }), none);
    Manager::SetMessageID("prog");
    for (const int size : {7, INT_MIN}) {
        EXPECT_EQ(FatalErrorOf([&] { Manager::StreamPendingMessage(nullptr, size); }),
                  FailedCheck("size >= head"));
    }
    struct Announcing : Probe {
        Announcing() : Probe("T") {}
        int RequiredBufferSize() const override { return m_size; }
        int m_size = INT_MAX - 8;
    } announcing;
    Manager::AppendMessageToSend(&announcing);
    EXPECT_EQ(Manager::RequiredBufferSizeOfPendingMessage(), INT_MAX);
    for (const auto& [size, check] : {std::pair(INT_MAX - 7, "total <= INT_MAX"), {-1, "bodySize >= 0"}}) {
        announcing.m_size = size;
        EXPECT_EQ(FatalErrorOf([] { Manager::RequiredBufferSizeOfPendingMessage(); }),
                  "ZYLMsgModules: the message of type 'T' announces a body of " + std::to_string(size) +
                      " bytes; its RequiredBufferSize() may give 0 to 2147483639\n" + FailedCheck(check));
    }
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
}

TEST_F(CallbackManager, KnowsWhatIsRegisteredAndRefusesBadRegistrations) {
    auto* const handler = new Recorder("a");
    Manager::AdoptPrototypeAndHandler(new Probe("A"), handler);
    Manager::AdoptPrototypeAndHandler(new Probe("B"), nullptr);
    Manager::m_protos.InsertUnlessMember("half", new Probe(""));
    Manager::m_handlers.InsertUnlessMember("other half", nullptr);
    EXPECT_TRUE(Manager::IsMessageTypeHandled("A") && Manager::IsMessageTypeHandled("B"));
    EXPECT_FALSE(Manager::IsMessageTypeHandled("half") || Manager::IsMessageTypeHandled("a"));
    Manager manager;
    EXPECT_EQ(manager.GetHandler("A"), handler);
    EXPECT_EQ(manager.GetHandler("B"), nullptr);
    Probe again("A"), half("other half");
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[&] { manager.GetHandler("unknown"); }, "m_protos.IsMember(type)"},
        {[&] { manager.GetHandler("half"); }, "m_handlers.IsMember(type)"},
        {[] { Manager::AdoptPrototypeAndHandler(nullptr, nullptr); }, "proto != NULL"},
        {[&] { Manager::AdoptPrototypeAndHandler(&again, nullptr); }, "!m_protos.IsMember(type)"},
        {[&] { Manager::AdoptPrototypeAndHandler(&half, nullptr); }, "!m_handlers.IsMember(type)"},
    };
    for (const auto& [action, check] : cases) {
        EXPECT_THAT(FatalErrorOf(action), testing::EndsWith(FailedCheck(check)));
    }
    EXPECT_THAT(FatalErrorOf(cases[3].first),
                testing::StartsWith("ZYLMsgModules: the message type 'A' is registered already: "));
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

TEST_F(CallbackManager, RefusesInItsOrderAndNamesTypeAndSenderOfWhatNobodyHandles) {
    const std::string noEnvelope, job = "\3\0\0\0job"s,
                                  unreadable = "a sender whose identifier cannot be read";
    Manager::m_protos.InsertUnlessMember("no handler entry", new Probe(""));
    Manager::m_protos.InsertUnlessMember("null proto", nullptr);
    Manager::m_handlers.InsertUnlessMember("null proto", nullptr);
    Manager::m_handlers.InsertUnlessMember("no proto entry", nullptr);
    Manager::AdoptPrototypeAndHandler(new Probe("null clone", "sterile"), nullptr);
    Manager::AdoptPrototypeAndHandler(new Probe("null handler"), nullptr);
    const std::string noProto = FailedCheck("m_protos.IsMember(type)");
    const struct {
        const char* type;
        std::string bytes, sender, error;
    } cases[] = {
        {"T\n", job, "'job'", noProto},
        {nullptr, "\5\0\0\0\x1b\xc2\x9bx\0body"s, "'\\x1b\\xc2\\x9bx\\x00'", noProto},
        {"T", "\xc8\0\0\0"s + std::string(200, 'x'), "'" + std::string(120, 'x') + "...'", noProto},
        {"T", "\0\0\0\0"s, "a sender without an identifier", noProto},
        {"T", "\4\0\0\0job"s, unreadable, noProto},
        {"T", "\xff\xff\xff\xff"s, unreadable, noProto},
        {"no proto entry", noEnvelope, unreadable, noProto},
        {"no handler entry", noEnvelope, unreadable, FailedCheck("m_handlers.IsMember(type)")},
        {"null proto", noEnvelope, "", FailedCheck("proto != NULL")},
        {"null clone", "\3\0\0\0ab"s, "",
         Failed("identifier: 3 bytes needed, 2 bytes left", "Backbone.m/src/ZYLMsgWireReader")},
        {"null clone", job, "", FailedCheck("msg != NULL")},
        {"null handler", "\0\0\0\0bad"s, "", "bad body (Probe)"},
        {"null handler", job, "'job'", FailedCheck("handler != NULL")},
    };
    for (const auto& [type, bytes, sender, error] : cases) {
        const HeapBytes buffer(bytes);
        const std::string line =
            FatalErrorOf([&, name = type] { Manager::HandleMessage(name, buffer.Get(), buffer.Size()); });
        const std::string said = "ZYLMsgModules: nobody handles the message of type " +
                                 QORText::Quoted(QORText::OrEmpty(type)) + " that came from " + sender +
                                 ": register a prototype and a handler ";
        EXPECT_TRUE(line.starts_with(sender.empty() ? error : said) && line.ends_with(error)) << line;
    }
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
    Manager::AdoptPrototypeAndHandler(new Probe("c"), new Recorder("new"));
    g_events.clear();
    Receive("c", "\0\0\0\0"s);
    EXPECT_THAT(g_events, ElementsAre("clone c", "unstream ", "new handles  from ", "delete c"));
}

}  // namespace

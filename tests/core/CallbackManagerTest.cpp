#include "ZYLMsgBBCallbackManager.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "FakeBackbone.h"
#include "FatalErrors.h"
#include "MessageBytes.h"
#include "QORFatalError.h"
#include "QORText.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBDisconnectHandler.h"
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
        g_events.clear();
    }
    static void EmptyTheRegistries() { const Manager any; }
    static void Receive(const std::string& type, const std::string& bytes) {
        const HeapBytes buffer(bytes);
        Manager::HandleMessage(type.c_str(), buffer.Get(), buffer.Size());
    }
};

TEST_F(CallbackManager, SendsLengthIdentifierAndBodyOfTheLatestMessage) {
    const Probe earlier("S", "earlier"), message("T", "0123456789");
    Manager::AppendMessageToSend(&earlier);
    Manager::SetMessageID("p\xc3\xa9");
    ZYLMsgBBAPI::SendRequest(2, nullptr, message);
    Manager::SetMessageID(nullptr);
    ZYLMsgBBAPI::SendRequest(3, "target", message);
    EXPECT_THAT(FakeBackbone::Get().sent,
                ElementsAre(FakeBackbone::Message{2, "", "T", "\3\0\0\0p\xc3\xa9"s + "0123456789"},
                            FakeBackbone::Message{3, "target", "T", "\0\0\0\0"s + "0123456789"}));
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

TEST_F(CallbackManager, RefusesBadRegistrationsAndWhatCannotBeSent) {
    Manager::AdoptPrototypeAndHandler(new Probe("A"), nullptr);
    EXPECT_TRUE(Manager::IsMessageTypeHandled("A") && !Manager::IsMessageTypeHandled("a"));
    struct Announcing : Probe {
        explicit Announcing(int size) : Probe("T"), m_size(size) {}
        int RequiredBufferSize() const override { return m_size; }
        int m_size;
    };
    Probe again("A");
    const Announcing tooLarge(INT_MAX - 3), negative(-1);
    Manager manager;
    const auto send = [](const ZYLMsgBBMessage* message) {
        Manager::AppendMessageToSend(message);
        Manager::RequiredBufferSizeOfPendingMessage();
    };
    const struct {
        std::function<void()> action;
        std::string check, line;
    } cases[] = {
        {[&] { manager.GetHandler("unknown"); }, "m_protos.IsMember(type)", ""},
        {[&] { Manager::AdoptPrototypeAndHandler(&again, nullptr); }, "!m_protos.IsMember(type)",
         "ZYLMsgModules: the message type 'A' is registered already: "},
        {[&] { send(nullptr); }, "m_messageToSend != 0", ""},
        {[&] { send(&tooLarge); }, "total <= INT_MAX",
         "ZYLMsgModules: the message of type 'T' announces a body of 2147483644 bytes; its "},
        {[&] { send(&negative); }, "bodySize >= 0",
         "ZYLMsgModules: the message of type 'T' announces a body of -1 bytes; its "},
        {[] { Manager::StreamPendingMessage(nullptr, 3); }, "size >= head", ""},
    };
    for (const auto& [action, check, line] : cases) {
        const std::string error = FatalErrorOf(action);
        EXPECT_TRUE(error.starts_with(line) && error.ends_with(FailedCheck(check))) << error;
    }
}

TEST_F(CallbackManager, SaysThatALossHasNoHandlerAndPassesItOnOnceItHas) {
    struct Watcher : ZYLMsgBBDisconnectHandler {
        void DetectDisconnection(int pid, const char* app, const char* host,
                                 const char* user) const override {
            g_events = {std::to_string(pid), app, host, user};
        }
    };
    const FakeBackbone& backbone = FakeBackbone::Get();
    const std::string remedy =
        "call ZYLMsgBBCallbackManager::AssociateDisconnectHandler before "
        "ZYLMsgBBAPI::EnableDisconnectHandling\n";
    EXPECT_EQ(
        FatalErrorOf([] { ZYLMsgBBAPI::EnableDisconnectHandling(7, "monitor"); }),
        "ZYLMsgModules: application 'monitor' enables disconnect handling without a disconnect handler, so "
        "the first lost peer ends this process: " +
            remedy);
    EXPECT_EQ(FatalErrorOf([&] { backbone.disconnect(1, "a", "h", "u"); }),
              "ZYLMsgModules: nobody handles the loss of application 'a': " + remedy +
                  FailedCheck("m_disconnectHandler != 0"));
    const Watcher watcher;
    Manager::AssociateDisconnectHandler(&watcher);
    EXPECT_EQ(FatalErrorOf([] { ZYLMsgBBAPI::EnableDisconnectHandling(7, nullptr); }), "");
    backbone.disconnect(-12, "a", nullptr, "u");
    EXPECT_THAT(g_events, ElementsAre("-12", "a", "", "u"));
}

TEST_F(CallbackManager, RefusesInItsOrderAndNamesTypeAndSenderOfWhatNobodyHandles) {
    const std::string job = "\3\0\0\0job"s;
    Manager::AdoptPrototypeAndHandler(new Probe("null clone", "sterile"), nullptr);
    Manager::AdoptPrototypeAndHandler(new Probe("null handler"), nullptr);
    const std::string noProto = FailedCheck("m_protos.IsMember(type)");
    const struct {
        const char* type;
        std::string bytes, sender, error;
    } cases[] = {
        {"T\n", job, "'job'", noProto},
        {nullptr, "\5\0\0\0\x1b\xc2\x9bx\0body"s, "'\\x1b\\xc2\\x9bx\\x00'", noProto},
        {"T", "\xc8\0\0\0"s + std::string(200, 'x'), fmt::format("'{:x>120}...'", ""), noProto},
        {"T", "\0\0\0\0"s, "a sender without an identifier", noProto},
        {"T", "\4\0\0\0job"s, "a sender whose identifier cannot be read", noProto},
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
        const std::string said = fmt::format(
            "ZYLMsgModules: nobody handles the message of type {} that came from {}: register a prototype "
            "and ",
            QORText::Quoted(QORText::OrEmpty(type)), sender);
        EXPECT_TRUE(line.starts_with(sender.empty() ? error : said) && line.ends_with(error)) << line;
    }
}

TEST_F(CallbackManager, DestructionDeletesPrototypesThenHandlersInKeyOrder) {
    for (const char* type : {"b", "c", "a"}) {
        Manager::AdoptPrototypeAndHandler(new Probe(type), new Recorder(type));
    }
    Receive("c", "\0\0\0\0"s);
    g_events.clear();
    EmptyTheRegistries();
    EXPECT_THAT(g_events, ElementsAre("delete a", "delete b", "delete c", "delete handler a",
                                      "delete handler b", "delete handler c"));
    EXPECT_FALSE(Manager::IsMessageTypeHandled("c"));
}

}  // namespace

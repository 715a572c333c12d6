// The monitor of a small analysis: serves the model, prints the solver's messages and progress, and keeps
// the files that the solver sends. With --stop-at it asks the solver to stop at that percentage.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "MessageLine.h"
#include "ProgressMessage.h"
#include "QORText.h"
#include "ZYLBasXmlDocument.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgAnalysisState.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlTypeFactory.h"
#include "ZYLMsgSimpleDisconnectHandler.h"
#include "ZYLMsgStringType.h"

namespace {

/// The length that precedes a document in a body.
constexpr int kLengthBytes = 4;

void PrintLine(const ZYLMsgBBMessage& message, const char* id, int size, const std::string& content) {
    std::puts(MessageLine(id, message.Type(), static_cast<std::size_t>(size), content).c_str());
}

class TextHandler : public ZYLMsgBBMessageHandler {
  public:
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        const auto& text = static_cast<const ZYLMsgStringType&>(message);
        PrintLine(text, id, text.Size(), Content({text.Data(), static_cast<std::size_t>(text.Size())}));
    }
};

/// Prints the solver's progress and asks it to stop at the percentage `stopAt`.
class ProgressHandler : public ZYLMsgBBMessageHandler {
  public:
    ProgressHandler(int domain, double stopAt) : m_domain(domain), m_stopAt(stopAt) {}

    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        const auto& progress = static_cast<const ProgressMessage&>(message);
        PrintLine(progress, id, progress.RequiredBufferSize(), progress.Text());
        ZYLMsgAnalysisState::SetPercentage(progress.percent);
        if (progress.percent >= m_stopAt && !m_asked) {
            m_asked = true;
            std::printf("asks %s to stop\n", QORText::Printable(id).c_str());
            ZYLMsgBBAPI::SendRequest(m_domain, id, *ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg());
        }
    }

  private:
    int m_domain;
    double m_stopAt;
    bool m_asked = false;
};

/// Records how the solver ended, from a document such as <Finished percent="100"/>.
class EndHandler : public ZYLMsgBBMessageHandler {
  public:
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        const ZYLString& text = static_cast<const ZYLMsgAnalysisMessageType&>(message).Document();
        PrintLine(message, id, kLengthBytes + text.GetLengthInByte(), Content(text.GetUTF8()));
        ZYLBasXmlDocument document;
        ZYLBasXmlNode root;
        if (document.ReadString(text) != S_OK || document.GetDom(root) != S_OK) {
            std::fprintf(stderr, "%s sent something else than XML\n", QORText::Printable(id).c_str());
            return;
        }
        root.GetTagName(m_how);
    }

    /// "Finished" or "Stopped", or "lost" if no document has arrived.
    const char* How() const { return m_how.IsEmpty() ? "lost" : m_how.GetUTF8(); }

  private:
    ZYLString m_how;
};

/// Ends one wait when the solver is lost, and another when the relay is lost. Closes the files of lost
/// applications.
class PeerWatch : public ZYLMsgSimpleDisconnectHandler {
  public:
    explicit PeerWatch(ZYLMsgFileTransfer& files) : m_files(files) {
        SetWatchApplication("solver", -1, nullptr);
        SetDisconnectBehavior(e_endLoop);
    }
    void DetectDisconnection(int pid, const char* app, const char* host, const char* user) const override {
        ZYLMsgSimpleDisconnectHandler::DetectDisconnection(pid, app, host, user);
        m_files.ApplicationLost(app);
        if (std::strcmp(app, "relay") == 0) {
            m_relayCondition = 0;
        }
    }
    int& RelayCondition() { return m_relayCondition; }

  private:
    ZYLMsgFileTransfer& m_files;
    mutable int m_relayCondition = -1;
};

}  // namespace

int main(int argc, char** argv) try {
    double stopAt = 1000;  // never
    std::string domainName;
    CLI::App options("Watches a solver.");
    options.add_option("--domain", domainName, "where it meets the others: one domain for each job")
        ->required();
    options.add_option("--stop-at", stopAt, "ask the solver to stop at this percentage");
    CLI11_PARSE(options, argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    // Deletes the prototypes and handlers at every exit of the process.
    static const ZYLMsgBBCallbackManager manager;
    int domain = 0;
    ZYLMsgBBAPI::RegisterCommunicator(domainName.c_str(), domain);
    ZYLMsgBBAPI::DeclareApplicationId(domain, "monitor", true);
    ZYLMsgBBCallbackManager::SetMessageID("monitor");

    ZYLMsgFileTransfer files(domain, nullptr, 0);
    auto* const end = new EndHandler;
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType, new TextHandler);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ProgressMessage,
                                                      new ProgressHandler(domain, stopAt));
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgAnalysisMessageType, end);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(&files));
    PeerWatch watch(files);
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&watch);
    ZYLMsgBBAPI::EnableReceiveHandling(domain, "monitor");
    ZYLMsgBBAPI::EnableDisconnectHandling(domain, "monitor");

    ZYLMsgBBAPI::WaitingLoop(domain, -1, watch.EndingCondition());
    // The relay leaves after it has forwarded the solver's last message.
    ZYLMsgBBAPI::WaitingLoop(domain, -1, watch.RelayCondition());
    std::printf("the solver has gone at %g %%: %s\n", ZYLMsgAnalysisState::GetPercentage(), end->How());
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return EXIT_FAILURE;
}

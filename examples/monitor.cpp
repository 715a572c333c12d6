// The monitor of a small analysis: holds the model, prints the solver's messages and its progress, keeps the
// files that it sends and, with --stop-at, asks it to stop once it has come that far.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "ZYLBasXmlDocument.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgAnalysisState.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgPrintingHandler.h"
#include "ZYLMsgProcessControlTypeFactory.h"
#include "ZYLMsgSimpleDisconnectHandler.h"
#include "ZYLMsgStreamUtils.h"
#include "ZYLMsgStringType.h"

namespace {

/// The document that an analysis message carries: its body is one wire string.
ZYLString DocumentOf(const ZYLMsgBBMessage& message) {
    std::vector<char> body(static_cast<std::size_t>(message.RequiredBufferSize()));
    message.Stream(body.data(), message.RequiredBufferSize());
    ZYLString document;
    int offset = 0;
    ZYLMsgStreamUtils::UnstreamZYLString(document, body.data(), offset);
    return document;
}

/// Follows the solver through its documents, such as <Progress percent="40" hottest="213"/>.
class ProgressHandler : public ZYLMsgBBMessageHandler {
  public:
    ProgressHandler(int domain, double stopAt) : m_domain(domain), m_stopAt(stopAt) {}

    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        ZYLBasXmlDocument document;
        ZYLBasXmlNode root;
        if (document.ReadString(DocumentOf(message)) != S_OK || document.GetDom(root) != S_OK) {
            std::fprintf(stderr, "monitor: %s sent something else than XML\n", id);
            return;
        }
        ZYLBasMap<ZYLString, ZYLString> attributes;
        root.GetAttList(attributes);
        root.GetTagName(m_stage);
        const double percent =
            std::strtod(attributes[ZYLString::BuildFromUTF8("percent")].GetUTF8(), nullptr);
        ZYLMsgAnalysisState::SetPercentage(percent);
        std::printf("monitor: %s: %s %g %%, hottest %s\n", id, m_stage.GetUTF8(), percent,
                    attributes[ZYLString::BuildFromUTF8("hottest")].GetUTF8());
        if (percent >= m_stopAt && !m_asked) {
            m_asked = true;
            std::printf("monitor: asks %s to stop\n", id);
            ZYLMsgBBAPI::SendRequest(m_domain, id, *ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg());
        }
    }

    /// What the solver did last: "Progress", "Finished" or "Stopped".
    const char* Stage() const { return m_stage.GetUTF8(); }

  private:
    int m_domain;
    double m_stopAt;
    bool m_asked = false;
    ZYLString m_stage;
};

/// Ends one wait when the solver has gone, and one when the relay has gone.
class PeerWatch : public ZYLMsgSimpleDisconnectHandler {
  public:
    PeerWatch() {
        SetWatchApplication("solver", -1, nullptr);
        SetDisconnectBehavior(e_endLoop);
    }
    void DetectDisconnection(int pid, const char* app, const char* host, const char* user) const override {
        ZYLMsgSimpleDisconnectHandler::DetectDisconnection(pid, app, host, user);
        if (std::strcmp(app, "relay") == 0) {
            m_relayCondition = 0;
        }
    }
    int& RelayCondition() { return m_relayCondition; }

  private:
    mutable int m_relayCondition = -1;
};

}  // namespace

int main(int argc, char** argv) try {
    double stopAt = 1000;  // never
    CLI::App options("Watches a solver.");
    options.add_option("--stop-at", stopAt, "ask the solver to stop at this percentage");
    CLI11_PARSE(options, argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    // Deletes the prototypes and handlers when the process ends, in whatever way.
    static const ZYLMsgBBCallbackManager manager;
    int domain = 0;
    ZYLMsgBBAPI::RegisterCommunicator("analysis", domain);
    ZYLMsgBBAPI::DeclareApplicationId(domain, "monitor", true);
    ZYLMsgBBCallbackManager::SetMessageID("monitor");

    ZYLMsgFileTransfer files(domain, nullptr, 0);
    auto* const progress = new ProgressHandler(domain, stopAt);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgAnalysisMessageType, progress);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType,
                                                      new ZYLMsgPrintingHandler(stdout));
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(&files));
    PeerWatch watch;
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&watch);
    ZYLMsgBBAPI::EnableReceiveHandling(domain, "monitor");
    ZYLMsgBBAPI::EnableDisconnectHandling(domain, "monitor");

    ZYLMsgBBAPI::WaitingLoop(domain, -1, watch.EndingCondition());
    // The relay leaves when it has forwarded the solver's last message.
    ZYLMsgBBAPI::WaitingLoop(domain, -1, watch.RelayCondition());
    const bool reported = std::strcmp(progress->Stage(), "Progress") != 0 && *progress->Stage() != '\0';
    std::printf("monitor: the solver has gone at %g %%: %s\n", ZYLMsgAnalysisState::GetPercentage(),
                reported ? progress->Stage() : "lost");
} catch (const std::exception& error) {
    std::fprintf(stderr, "monitor: %s\n", error.what());
    return EXIT_FAILURE;
}

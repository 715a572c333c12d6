// zylmsg: what an operator does to a running system by hand. Sends a string message or a file, asks an
// application to end, prints what an application receives.

#include <CLI/CLI.hpp>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>

#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgPrintingHandler.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgProcessControlTypeFactory.h"
#include "ZYLMsgStringType.h"

namespace {

enum ExitCode : int { kDone = 0, kFailed = 1, kUsage = 2, kTargetLost = 3, kFileUnreadable = 4 };

/// What the options before the subcommand say.
struct Options {
    std::string domain = "default";
    std::string as;
};

/// Two commands at once must not hold the same name.
std::string RandomName() {
    char name[sizeof "zylmsg-00000000"];
    std::snprintf(name, sizeof name, "zylmsg-%08x", static_cast<unsigned>(std::random_device()()));
    return name;
}

/// Ends the program when the target goes away before it confirmed a file; notes a target that was not met.
class TargetWatch : public ZYLMsgBBDisconnectHandler {
  public:
    explicit TargetWatch(const std::string& target) : m_target(target) {}

    void DetectDisconnection(int pid, const char* app, const char* /*host*/,
                             const char* /*user*/) const override {
        if (m_target != app) {
            return;
        }
        if (m_awaitsConfirmation) {
            std::fprintf(stderr, "zylmsg: %s has not come, or has gone before it confirmed the file\n", app);
            std::exit(kTargetLost);
        }
        m_dropped = m_dropped || pid == 0;  // a peer that was there is reported with its process number
    }

    void AwaitConfirmation() { m_awaitsConfirmation = true; }
    bool Dropped() const { return m_dropped; }

  private:
    std::string m_target;
    bool m_awaitsConfirmation = false;
    mutable bool m_dropped = false;
};

/// Registers a handler with its prototype. Both are deleted when the program ends, in whatever way.
void Adopt(ZYLMsgBBMessage* prototype, ZYLMsgBBMessageHandler* handler) {
    static const ZYLMsgBBCallbackManager manager;
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(prototype, handler);
}

/// Joins the domain as a passing helper, whose leaving nobody is told.
int Join(const Options& options, const TargetWatch& watch) {
    int communicator = 0;
    ZYLMsgBBAPI::RegisterCommunicator(options.domain.c_str(), communicator);
    ZYLMsgBBAPI::DeclareApplicationId(communicator, options.as.c_str(), false);
    ZYLMsgBBCallbackManager::SetMessageID(options.as.c_str());
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&watch);
    ZYLMsgBBAPI::EnableDisconnectHandling(communicator, options.as.c_str());
    return communicator;
}

/// kDone once the message is in the target's hands.
int SendOne(const Options& options, const std::string& target, const ZYLMsgBBMessage& message) {
    const TargetWatch watch(target);
    const int communicator = Join(options, watch);
    ZYLMsgBBAPI::SendRequest(communicator, target.c_str(), message);
    int never = -1;
    ZYLMsgBBAPI::WaitingLoop(communicator, 0, never);
    return watch.Dropped() ? kTargetLost : kDone;
}

int Send(const Options& options, const std::string& target, const std::string& text) {
    ZYLMsgStringType message;
    message.SetData(text.data(), static_cast<int>(text.size()));
    return SendOne(options, target, message);
}

int Kill(const Options& options, const std::string& target, bool hard) {
    const ZYLBasSharedPtr<ZYLMsgBBMessage> message =
        hard ? ZYLMsgProcessControlTypeFactory::CreateHardKillMsg()
             : ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg();
    return SendOne(options, target, *message);
}

/// kDone once the target has confirmed that it has the whole file.
int Put(const Options& options, const std::string& file, const std::string& target,
        const std::string& directory) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error) || !std::ifstream(file).is_open()) {
        std::fprintf(stderr, "zylmsg: cannot read %s: %s\n", file.c_str(),
                     error ? error.message().c_str() : "it is no readable regular file");
        return kFileUnreadable;
    }
    TargetWatch watch(target);
    watch.AwaitConfirmation();
    const int communicator = Join(options, watch);
    ZYLMsgFileTransfer transfer(communicator, nullptr, 0);
    Adopt(new ZYLMsgFileTransferType, new ZYLMsgFileTransferHandler(&transfer));
    ZYLMsgBBAPI::EnableReceiveHandling(communicator, options.as.c_str());
    transfer.SendFile(options.as.c_str(), "", "", file.c_str(), target.c_str(), directory.c_str(), "",
                      std::filesystem::path(file).filename().c_str());
    return kDone;
}

/// Prints a message, and ends the loop after the last one that is wanted.
class CountingPrinter : public ZYLMsgPrintingHandler {
  public:
    CountingPrinter(int& left, int& endingCondition)
        : ZYLMsgPrintingHandler(stdout), m_left(left), m_endingCondition(endingCondition) {}

    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        ZYLMsgPrintingHandler::HandleMessage(message, id);
        if (--m_left == 0) {
            m_endingCondition = 0;
        }
    }

  private:
    int& m_left;
    int& m_endingCondition;
};

/// Is a full application for as long as it runs: who waits for an answer of it hears of its end.
int Listen(const Options& options, const std::string& name, int count) {
    int endingCondition = -1;
    Adopt(new ZYLMsgStringType, new CountingPrinter(count, endingCondition));
    Adopt(new ZYLMsgAnalysisMessageType, new CountingPrinter(count, endingCondition));
    Adopt(new ZYLMsgFileTransferType, new CountingPrinter(count, endingCondition));
    Adopt(new ZYLMsgProcessControlType, new CountingPrinter(count, endingCondition));
    int communicator = 0;
    ZYLMsgBBAPI::RegisterCommunicator(options.domain.c_str(), communicator);
    ZYLMsgBBAPI::EnableReceiveHandling(communicator, name.c_str());
    ZYLMsgBBAPI::WaitingLoop(communicator, -1, endingCondition);
    return kDone;
}

}  // namespace

int main(int argc, char** argv) try {
    Options options;
    options.as = RandomName();
    std::string target;
    std::string text;
    std::string file;
    std::string directory;
    bool hard = false;
    int count = INT_MAX;
    int status = kDone;

    CLI::App app("Works on a running system of applications by hand.");
    app.footer(
        "Status: 0 done, 1 another failure, 2 wrong usage, 3 the target did not come in time or has gone, 4 "
        "the\n"
        "file cannot be read. A target that is not there is waited for, ZYL_BACKBONE_CONNECT_TIMEOUT seconds "
        "(30).");
    app.require_subcommand(1);
    app.add_option("--domain", options.domain, "the domain to join")->capture_default_str();
    app.add_option("--as", options.as,
                   "this program's application name (default: zylmsg- and a random number)");

    CLI::App* const send = app.add_subcommand("send", "sends a string message");
    send->add_option("target", target)->required();
    send->add_option("text", text)->required();
    send->callback([&] { status = Send(options, target, text); });

    CLI::App* const listen = app.add_subcommand("listen", "prints every message for an application");
    listen->add_option("name", target, "the application to be")->required();
    listen->add_option("--count", count, "end after so many messages")->check(CLI::PositiveNumber);
    listen->callback([&] { status = Listen(options, target, count); });

    CLI::App* const kill = app.add_subcommand("kill", "asks an application to end");
    kill->add_option("target", target)->required();
    kill->add_flag("--hard", hard, "at once, rather than in good order");
    kill->callback([&] { status = Kill(options, target, hard); });

    CLI::App* const put = app.add_subcommand("put", "sends a file and waits for the confirmation");
    put->add_option("file", file)->required();
    put->add_option("target", target)->required();
    put->add_option("directory", directory, "where the target keeps it (default: where the target runs)");
    put->callback([&] { status = Put(options, file, target, directory); });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kUsage;
    }
    return status;
} catch (const std::exception& error) {
    std::fprintf(stderr, "zylmsg: %s\n", error.what());
    return kFailed;
}

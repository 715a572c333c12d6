#include "Commands.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferOutcome.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgProcessControlTypeFactory.h"
#include "ZYLMsgStringType.h"

namespace {

/// Notes that the target has gone, or was never met, and ends the wait for it in a file transfer.
class TargetWatch : public ZYLMsgBBDisconnectHandler {
  public:
    explicit TargetWatch(const std::string& target) : m_target(target) {}

    void DetectDisconnection(int pid, const char* app, const char* /*host*/,
                             const char* /*user*/) const override {
        if (m_target != app) {
            return;
        }
        m_isLost = true;
        m_isDropped = m_isDropped || pid == 0;  // a peer that was there is reported with its process number
        if (m_transfer != nullptr) {
            m_transfer->ApplicationLost(app);
        }
    }

    /// The transfer must live as long as reports may come.
    void EndWaitsOf(ZYLMsgFileTransfer& transfer) { m_transfer = &transfer; }
    bool IsLost() const { return m_isLost; }
    /// It was not met, so a message to it is dropped.
    bool IsDropped() const { return m_isDropped; }

  private:
    std::string m_target;
    ZYLMsgFileTransfer* m_transfer = nullptr;
    mutable bool m_isLost = false;
    mutable bool m_isDropped = false;
};

/// Joins the domain as a passing helper, whose leaving nobody is told.
int Join(const Identity& identity, const TargetWatch& watch) {
    const JoiningGuard guard;
    int communicator = 0;
    ZYLMsgBBAPI::RegisterCommunicator(identity.domain.c_str(), communicator);
    ZYLMsgBBAPI::DeclareApplicationId(communicator, identity.name.c_str(), false);
    ZYLMsgBBCallbackManager::SetMessageID(identity.name.c_str());
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&watch);
    ZYLMsgBBAPI::EnableDisconnectHandling(communicator, identity.name.c_str());
    return communicator;
}

int SendOne(const Identity& identity, const std::string& target, const ZYLMsgBBMessage& message) {
    const TargetWatch watch(target);
    const int communicator = Join(identity, watch);
    ZYLMsgBBAPI::SendRequest(communicator, target.c_str(), message);
    int never = -1;
    ZYLMsgBBAPI::WaitingLoop(communicator, 0, never);
    return watch.IsDropped() ? kTargetLost : kDone;
}

/// Why the file cannot be sent; empty when it can.
std::string WhyUnreadable(const std::string& file) {
    std::error_code error;
    const bool isRegular = std::filesystem::is_regular_file(file, error);
    if (error) {
        return error.message();
    }
    if (!isRegular) {
        return "it is no regular file";
    }
    std::FILE* const opened = std::fopen(file.c_str(), "rb");
    if (opened == nullptr) {
        return std::generic_category().message(errno);
    }
    std::fclose(opened);
    return {};
}

}  // namespace

JoiningGuard::JoiningGuard() {
    std::signal(SIGABRT, [](int) { std::_Exit(kFailed); });
}

JoiningGuard::~JoiningGuard() {
    std::signal(SIGABRT, SIG_DFL);
}

int Send(const Identity& identity, const std::string& target, const std::string& text) {
    ZYLMsgStringType message;
    message.SetData(text.data(), static_cast<int>(text.size()));
    return SendOne(identity, target, message);
}

int Kill(const Identity& identity, const std::string& target, bool hard) {
    const ZYLBasSharedPtr<ZYLMsgBBMessage> message =
        hard ? ZYLMsgProcessControlTypeFactory::CreateHardKillMsg()
             : ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg();
    return SendOne(identity, target, *message);
}

int Put(const Identity& identity, const std::string& file, const std::string& target,
        const std::string& directory) {
    if (const std::string reason = WhyUnreadable(file); !reason.empty()) {
        std::fprintf(stderr, "zylmsg: cannot read %s: %s\n", file.c_str(), reason.c_str());
        return kFileUnreadable;
    }
    // Deletes the prototype and the handler when the program ends, in whatever way.
    static const ZYLMsgBBCallbackManager manager;
    TargetWatch watch(target);
    const int communicator = Join(identity, watch);
    ZYLMsgFileTransfer transfer(communicator, nullptr, 0);
    watch.EndWaitsOf(transfer);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(&transfer));
    ZYLMsgBBAPI::EnableReceiveHandling(communicator, identity.name.c_str());
    const std::string name = std::filesystem::path(file).filename().string();
    transfer.SendFile(identity.name.c_str(), "", "", file.c_str(), target.c_str(), directory.c_str(), "",
                      name.c_str());
    const ZYLMsgFileTransferOutcome& outcome = transfer.LastOutcome();
    if (!outcome.ok) {
        std::fprintf(stderr, "zylmsg: %s does not have %s: %s\n", target.c_str(), name.c_str(),
                     outcome.text.GetUTF8());
        return watch.IsLost() ? kTargetLost : kFileNotKept;
    }
    std::printf("%s has %s, %lld bytes\n", target.c_str(), name.c_str(), outcome.bytes);
    return kDone;
}

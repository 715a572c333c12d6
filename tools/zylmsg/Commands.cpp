#include "Commands.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "QORText.h"
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

/// Records the loss of the target and ends the wait for it in a file transfer.
class TargetWatch : public ZYLMsgBBDisconnectHandler {
  public:
    explicit TargetWatch(const std::string& target) : m_target(target) {}

    void DetectDisconnection(int /*pid*/, const char* app, const char* /*host*/,
                             const char* /*user*/) const override {
        if (m_target != app) {
            return;
        }
        m_isLost = true;
        if (m_transfer != nullptr) {
            m_transfer->ApplicationLost(app);
        }
    }

    /// `transfer` must outlive the waiting loops.
    void EndWaitsOf(ZYLMsgFileTransfer& transfer) { m_transfer = &transfer; }
    bool IsLost() const { return m_isLost; }

  private:
    std::string m_target;
    ZYLMsgFileTransfer* m_transfer = nullptr;
    mutable bool m_isLost = false;
};

enum class Presence { kAnnounced, kPassing };

/// Joins the domain. The leaving of a passing helper is not reported to others.
int Join(const Identity& identity, Presence presence) {
    const JoiningGuard guard;
    int communicator = 0;
    ZYLMsgBBAPI::RegisterCommunicator(identity.domain.c_str(), communicator);
    ZYLMsgBBAPI::DeclareApplicationId(communicator, identity.name.c_str(), presence == Presence::kAnnounced);
    ZYLMsgBBCallbackManager::SetMessageID(identity.name.c_str());
    return communicator;
}

/// Sends one message. The status depends only on whether the target took it, not on whether the target is
/// still there, since one may end on its first message. The backbone itself reports a message that it
/// drops.
int SendOne(const Identity& identity, const std::string& target, const ZYLMsgBBMessage& message) {
    const int communicator = Join(identity, Presence::kPassing);
    ZYLMsgBBAPI::SendRequest(communicator, target.c_str(), message);
    return ZYLMsgBBCallbackManager::IsPendingMessageStreamed() ? kDone : kTargetLost;
}

/// The reason why the file cannot be sent; empty if it can.
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
    std::fgetc(opened);  // some files can be opened, but not read
    std::string reason = std::ferror(opened) != 0 ? std::generic_category().message(errno) : "";
    std::fclose(opened);
    return reason;
}

}  // namespace

JoiningGuard::JoiningGuard() {
    std::signal(SIGABRT, [](int) { std::_Exit(kFailed); });
}

JoiningGuard::~JoiningGuard() {
    std::signal(SIGABRT, SIG_DFL);
}

bool WriteOut() {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return true;
    }
    std::fprintf(stderr, "zylmsg: cannot write to standard output: %s\n",
                 std::generic_category().message(errno).c_str());
    return false;
}

int Send(const Identity& identity, const std::string& target, const std::string& text) {
    ZYLMsgStringType message;
    message.SetData(text.data(), static_cast<int>(text.size()));
    return SendOne(identity, target, message);
}

int KillSoftly(const Identity& identity, const std::string& target) {
    return SendOne(identity, target, *ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg());
}

int KillHard(const Identity& identity, const std::string& target) {
    return SendOne(identity, target, *ZYLMsgProcessControlTypeFactory::CreateHardKillMsg());
}

int Put(const Identity& identity, const std::string& file, const std::string& target,
        const std::string& directory) {
    if (const std::string reason = WhyUnreadable(file); !reason.empty()) {
        std::fprintf(stderr, "zylmsg: cannot read %s: %s\n", QORText::Printable(file, file.size()).c_str(),
                     reason.c_str());
        return kFileUnreadable;
    }
    // Deletes the prototype and the handler at every exit of the program.
    static const ZYLMsgBBCallbackManager manager;
    TargetWatch watch(target);
    // Announced, so that the target is told to close the file if this program is interrupted.
    const int communicator = Join(identity, Presence::kAnnounced);
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&watch);
    ZYLMsgBBAPI::EnableDisconnectHandling(communicator, identity.name.c_str());
    ZYLMsgFileTransfer transfer(communicator, nullptr, 0);
    watch.EndWaitsOf(transfer);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(&transfer));
    ZYLMsgBBAPI::EnableReceiveHandling(communicator, identity.name.c_str());
    const std::string name = std::filesystem::path(file).filename().string();
    transfer.SendFile(identity.name.c_str(), "", "", file.c_str(), target.c_str(), directory.c_str(), "",
                      name.c_str());
    const ZYLMsgFileTransferOutcome& outcome = transfer.LastOutcome();
    const std::string who = QORText::Printable(target);
    const std::string what = QORText::Printable(name, name.size());
    if (!outcome.ok) {
        std::fprintf(stderr, "zylmsg: %s does not have %s: %s\n", who.c_str(), what.c_str(),
                     outcome.text.GetUTF8());
        return watch.IsLost() ? kTargetLost : kFileNotKept;
    }
    std::printf("%s has %s, %lld bytes\n", who.c_str(), what.c_str(), outcome.bytes);
    return kDone;
}

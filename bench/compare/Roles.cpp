#include "Roles.h"

#include <fmt/core.h>
#include <sys/resource.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "Channel.h"
#include "ChannelRoles.h"
#include "RoleCommand.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgStringType.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

std::string MemberName(std::size_t number) {
    return fmt::format("member-{}", number);
}

class WakingHandler final : public ZYLMsgBBMessageHandler {
  public:
    explicit WakingHandler(int& condition) : m_condition(condition) {}
    void HandleMessage(const ZYLMsgBBMessage& /*message*/, const char* /*id*/) override { m_condition = 0; }

  private:
    int& m_condition;
};

/// An application of this project whose wait ends with the next string message.
class Application {
  public:
    explicit Application(const std::string& name) {
        ZYLMsgBBAPI::RegisterCommunicator("bench", m_communicator);
        ZYLMsgBBAPI::DeclareApplicationId(m_communicator, name.c_str(), true);
        ZYLMsgBBCallbackManager::SetMessageID(name.c_str());
        ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType,
                                                          new WakingHandler(m_condition));
        ZYLMsgBBAPI::EnableReceiveHandling(m_communicator, name.c_str());
    }
    int Communicator() const { return m_communicator; }
    void Send(const std::string& target, const std::vector<char>& bytes) {
        m_message.SetData(bytes.data(), static_cast<int>(bytes.size()));
        ZYLMsgBBAPI::SendRequest(m_communicator, target.c_str(), m_message);
    }
    void Wait(int milliseconds = -1) {
        m_condition = -1;
        ZYLMsgBBAPI::WaitingLoop(m_communicator, milliseconds, m_condition);
    }

  private:
    ZYLMsgBBCallbackManager m_emptiesTheRegistriesAtItsEnd;
    int m_communicator = 0;
    int m_condition = -1;
    ZYLMsgStringType m_message;
};

void Hub(RoleOptions& options) {
    Application hub("hub");
    const std::vector<char> message(options.setup.size, 'm');
    Clock::time_point start;
    for (std::size_t round = 0; round <= options.rounds; ++round) {
        for (std::size_t member = 0; member < options.count; ++member) {
            hub.Send(MemberName(member), message);
            hub.Wait();
        }
        if (round == 0) {
            start = Clock::now();  // every member is there now, and linked
        }
    }
    Print("mean", Seconds(Clock::now() - start) * 1e9 / static_cast<double>(options.rounds * options.count));
    PrintPeakMemory();
}

void Member(RoleOptions& options) {
    options.setup.kind = "zyl";
    options.setup.peer = "hub";
    options.setup.serves = true;
    const auto channel = Channel::Open(options.setup);
    Echo(*channel, options.setup, options.rounds + 1);
    Linger();
}

/// The engine of a process that sends or receives files.
std::unique_ptr<ZYLMsgFileTransfer> MakeEngine(const Application& application) {
    auto engine = std::make_unique<ZYLMsgFileTransfer>(application.Communicator(), nullptr, 0);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(engine.get()));
    return engine;
}

void SendFile(RoleOptions& options) {
    Application application("sender");
    const auto engine = MakeEngine(application);
    const std::string target = fmt::format("{}.copy", options.file);
    application.Send("receiver", {});  // meets the receiver
    application.Wait();
    const Clock::time_point start = Clock::now();
    engine->SendFile("sender", "", "", options.file.c_str(), "receiver", "", "", target.c_str());
    Print("seconds", Seconds(Clock::now() - start));
    application.Send("receiver", {});
    PrintPeakMemory();
}

void ReceiveFile(RoleOptions& /*options*/) {
    Application application("receiver");
    const auto engine = MakeEngine(application);
    application.Wait();
    application.Send("sender", {});
    application.Wait();
    PrintPeakMemory();
}

rusage Usage() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage;
}

double ProcessorMicroseconds(const rusage& usage) {
    const auto microseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return microseconds(usage.ru_utime) + microseconds(usage.ru_stime);
}

/// Both ends meet and say something, then neither has anything to do.
void Idle(RoleOptions& options) {
    Application application(options.setup.self);
    application.Send(options.setup.peer, {});
    application.Wait();
    application.Wait(100);  // settles
    const rusage before = Usage();
    application.Wait(1000);
    const rusage after = Usage();
    Print("processor", ProcessorMicroseconds(after) - ProcessorMicroseconds(before));
    Print("sleeps", static_cast<double>(after.ru_nvcsw - before.ru_nvcsw));
    Linger();
}

void Spin(RoleOptions& /*options*/) {
    for (volatile unsigned turns = 0;;) {
        turns = turns + 1;
    }
}

const std::map<std::string, void (*)(RoleOptions&)> kRoles = {
    {"hub", Hub},   {"member", Member}, {"send-file", SendFile}, {"receive-file", ReceiveFile},
    {"idle", Idle}, {"spin", Spin},
};

}  // namespace

void AddRoles(CLI::App& program) {
    AddRoleCommand(program, [](const std::string& role, RoleOptions& options) {
        if (!RunChannelRole(role, options, Channel::Open)) {
            kRoles.at(role)(options);
        }
    });
}

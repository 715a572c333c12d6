#include "Roles.h"

#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "Channel.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgStringType.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Nothing that is measured takes nearly as long.
constexpr unsigned kDeadlineInSeconds = 900;

struct Options {
    Channel::Setup setup;
    std::size_t count = 0;
    std::size_t rounds = 0;  ///< with each member of a hub
    int processor = -1;
    std::string file;
};

double Seconds(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

void Print(const std::string& name, double value) {
    std::cout << name << ' ' << value << '\n';
}

void PrintPeakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmHWM:") {
            double kib = 0;
            status >> kib;
            Print("peak", kib);
        }
    }
}

void Linger() {
    std::cout.flush();
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
}

std::size_t WarmUp(std::size_t count) {
    return std::min<std::size_t>(count / 10 + 1, 1000);
}

void Ping(Options& options) {
    const auto channel = Channel::Open(options.setup);
    const std::vector<char> message(options.setup.size, 'm');
    std::vector<double> times;
    times.reserve(options.count);
    const auto roundTrips = [&](std::size_t count) {
        times.clear();
        Clock::time_point last = Clock::now();
        for (; count > 0; --count) {
            channel->Send(message);
            channel->Receive();
            const Clock::time_point now = Clock::now();
            times.push_back(Seconds(now - last) * 1e9);
            last = now;
        }
    };
    roundTrips(WarmUp(options.count));
    roundTrips(options.count);
    std::sort(times.begin(), times.end());
    Print("median", times[times.size() / 2]);
    Print("percentile99", times[times.size() * 99 / 100]);
    PrintPeakMemory();
}

void Echo(const Options& options, std::size_t count) {
    const auto channel = Channel::Open(options.setup);
    const std::vector<char> message(options.setup.size, 'm');
    channel->Receive(count, [&] { channel->Send(message); });
    PrintPeakMemory();
    Linger();
}

void Pong(Options& options) {
    options.setup.serves = true;
    Echo(options, WarmUp(options.count) + options.count);
}

void Source(Options& options) {
    const auto channel = Channel::Open(options.setup);
    const std::vector<char> message(options.setup.size, 'm');
    channel->Send(message);
    channel->Receive();
    const Clock::time_point start = Clock::now();
    for (std::size_t sent = 0; sent < options.count; ++sent) {
        channel->Send(message);
    }
    channel->Receive();
    Print("seconds", Seconds(Clock::now() - start));
    PrintPeakMemory();
}

void Sink(Options& options) {
    options.setup.serves = true;
    const auto channel = Channel::Open(options.setup);
    const std::vector<char> message(options.setup.size, 'm');
    for (const std::size_t count : {std::size_t{1}, options.count}) {
        channel->Receive(count, [] {});
        channel->Send(message);
    }
    PrintPeakMemory();
    Linger();
}

std::string MemberName(std::size_t number) {
    return "member-" + std::to_string(number);
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

void Hub(Options& options) {
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

void Member(Options& options) {
    options.setup.kind = "zyl";
    options.setup.peer = "hub";
    Echo(options, options.rounds + 1);
}

/// The engine of a process that sends or receives files.
std::unique_ptr<ZYLMsgFileTransfer> MakeEngine(const Application& application) {
    auto engine = std::make_unique<ZYLMsgFileTransfer>(application.Communicator(), nullptr, 0);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(engine.get()));
    return engine;
}

void SendFile(Options& options) {
    Application application("sender");
    const auto engine = MakeEngine(application);
    const std::string target = options.file + ".copy";
    application.Send("receiver", {});  // meets the receiver
    application.Wait();
    const Clock::time_point start = Clock::now();
    engine->SendFile("sender", "", "", options.file.c_str(), "receiver", "", "", target.c_str());
    Print("seconds", Seconds(Clock::now() - start));
    application.Send("receiver", {});
    PrintPeakMemory();
}

void ReceiveFile(Options& /*options*/) {
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
void Idle(Options& options) {
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

void Spin(Options& /*options*/) {
    for (volatile unsigned turns = 0;;) {
        turns = turns + 1;
    }
}

const std::map<std::string, void (*)(Options&)> kRoles = {
    {"ping", Ping}, {"pong", Pong},     {"source", Source},      {"sink", Sink},
    {"hub", Hub},   {"member", Member}, {"send-file", SendFile}, {"receive-file", ReceiveFile},
    {"idle", Idle}, {"spin", Spin},
};

void Run(const std::string& role, Options& options) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    alarm(kDeadlineInSeconds);
    if (options.processor >= 0) {
        cpu_set_t processors;
        CPU_ZERO(&processors);
        CPU_SET(static_cast<std::size_t>(options.processor), &processors);
        sched_setaffinity(0, sizeof processors, &processors);
    }
    kRoles.at(role)(options);
}

}  // namespace

void AddRoles(CLI::App& program) {
    CLI::App* command = program.add_subcommand("role")->group("");  // not for people
    auto role = std::make_shared<std::string>();
    auto options = std::make_shared<Options>();
    command->add_option("name", *role)->required();
    command->add_option("--kind", options->setup.kind);
    command->add_option("--directory", options->setup.directory);
    command->add_option("--self", options->setup.self);
    command->add_option("--peer", options->setup.peer);
    command->add_option("--size", options->setup.size);
    command->add_option("--identifier", options->setup.identifier);
    command->add_option("--count", options->count);
    command->add_option("--rounds", options->rounds);
    command->add_option("--processor", options->processor);
    command->add_option("--file", options->file);
    command->callback([role, options] { Run(*role, *options); });
}

// The solver of a small analysis: fetches its model, computes step by step how heat spreads in it, reports
// its progress to the monitor and sends the results there. It stops early on request.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "MessageLine.h"
#include "ProgressMessage.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgAnalysisState.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgStringType.h"

namespace {

/// The temperatures along a rod, one byte a node; a model file is nothing else.
using Field = std::vector<unsigned char>;

Field Load(const char* file) {
    std::ifstream stream(file, std::ios::binary);
    Field field(std::filesystem::file_size(file));
    stream.read(reinterpret_cast<char*>(field.data()), static_cast<std::streamsize>(field.size()));
    return field;
}

void Save(const Field& field, const char* file) {
    std::ofstream stream(file, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(field.data()), static_cast<std::streamsize>(field.size()));
    if (!stream.flush()) {
        throw std::system_error(errno, std::generic_category(), fmt::format("cannot write {}", file));
    }
}

/// Computes one step. Returns its residual, the root mean square of all changes.
double Spread(Field& field) {
    const Field before = field;
    double squares = 0;
    for (std::size_t node = 1; node + 1 < field.size(); ++node) {
        field[node] =
            static_cast<unsigned char>((before[node - 1] + 2 * before[node] + before[node + 1] + 2) / 4);
        const int change = field[node] - before[node];
        squares += change * change;
    }
    return field.empty() ? 0 : std::sqrt(squares / static_cast<double>(field.size()));
}

double Hottest(const Field& field) {
    return field.empty() ? 0 : *std::max_element(field.begin(), field.end());
}

/// Stops the analysis at the monitor's request.
class StopHandler : public ZYLMsgBBMessageHandler {
  public:
    explicit StopHandler(int& stopCondition) : m_stopCondition(stopCondition) {}
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        const auto& request = static_cast<const ZYLMsgProcessControlType&>(message);
        const ZYLString kill = request.GetVal(ZYLString::BuildFromUTF8("Kill"));
        std::printf("%s\n",
                    MessageLine(id, request.Type(), static_cast<std::size_t>(request.RequiredBufferSize()),
                                kill.GetUTF8())
                        .c_str());
        if (kill == "HARD_KILL") {
            std::exit(EXIT_FAILURE);
        }
        m_stopCondition = 0;
    }

  private:
    int& m_stopCondition;
};

/// Ends the computation and the current transfer when the monitor is lost, because nobody wants the
/// results then.
class MonitorWatch : public ZYLMsgBBDisconnectHandler {
  public:
    MonitorWatch(ZYLMsgFileTransfer& files, int& stopCondition)
        : m_files(files), m_stopCondition(stopCondition) {}
    void DetectDisconnection(int /*pid*/, const char* app, const char* /*host*/,
                             const char* /*user*/) const override {
        m_files.ApplicationLost(app);
        if (std::strcmp(app, "monitor") == 0) {
            m_isLost = true;
            m_stopCondition = 0;
        }
    }
    bool IsLost() const { return m_isLost; }

  private:
    ZYLMsgFileTransfer& m_files;
    int& m_stopCondition;
    mutable bool m_isLost = false;
};

void Say(int domain, const char* target, const std::string& text) {
    ZYLMsgStringType message;
    message.SetData(text.data(), static_cast<int>(text.size()));
    ZYLMsgBBAPI::SendRequest(domain, target, message);
}

void ReportProgress(int domain, int step, double residual, const Field& field) {
    ProgressMessage progress;
    progress.step = step;
    progress.percent = ZYLMsgAnalysisState::GetPercentage();
    progress.residual = residual;
    progress.hottest = Hottest(field);
    ZYLMsgBBAPI::SendRequest(domain, "monitor", progress);
}

/// Reports the end of the analysis, `how` being "Finished" or "Stopped", in a document.
void ReportEnd(int domain, const std::string& how) {
    const std::string document =
        fmt::format("<{} percent=\"{:f}\"/>", how, ZYLMsgAnalysisState::GetPercentage());
    ZYLMsgBBAPI::SendRequest(domain, "monitor",
                             ZYLMsgAnalysisMessageType(ZYLString::BuildFromUTF8(document.c_str())));
}

/// Runs one transfer and prints its size and time. Raises an exception if the transfer failed.
template <class Transfer>
void Timed(const char* what, const char* file, const ZYLMsgFileTransfer& files, Transfer transfer) {
    const auto start = std::chrono::steady_clock::now();
    transfer();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    const ZYLMsgFileTransferOutcome& outcome = files.LastOutcome();
    if (!outcome.ok) {
        throw std::runtime_error(outcome.text.GetUTF8());
    }
    const auto size = static_cast<double>(outcome.bytes);
    std::printf("%-25s %-12s %9.0f bytes %7.3f s %7.1f MB/s\n", what, file, size, time.count(),
                size / 1e6 / time.count());
}

/// Computes `steps` steps; at `pauseAt` percent it waits until it is stopped. Returns false if it was
/// stopped.
bool Compute(int domain, Field& field, int steps, double pauseAt, int& stopCondition) {
    for (int step = 1; step <= steps && stopCondition != 0; ++step) {
        const double residual = Spread(field);
        ZYLMsgAnalysisState::SetPercentage(100.0 * step / steps);
        ReportProgress(domain, step, residual, field);
        const bool pauses = ZYLMsgAnalysisState::GetPercentage() >= pauseAt;
        ZYLMsgBBAPI::WaitingLoop(domain, pauses ? -1 : 0, stopCondition);
    }
    return stopCondition != 0;
}

void SendResults(ZYLMsgFileTransfer& files, const Field& field) {
    Field flux(field.size());
    std::adjacent_difference(field.begin(), field.end(), flux.begin());
    Save(field, "restart.dat");
    Save(flux, "result.dat");
    Save({}, "warnings.log");
    Timed("sent, not confirmed", "restart.dat", files,
          [&] { files.ISendFile("solver", "", "", "restart.dat", "monitor", "", "", "restart.dat"); });
    for (const char* file : {"result.dat", "warnings.log"}) {
        Timed("sent and confirmed", file, files,
              [&] { files.SendFile("solver", "", "", file, "monitor", "", "", file); });
    }
}

}  // namespace

int main(int argc, char** argv) try {
    int steps = 10;
    double pauseAt = 1000;  // never
    std::string domainName;
    CLI::App options("Computes how heat spreads along a rod.");
    options.add_option("--domain", domainName, "where it meets the others: one domain for each job")
        ->required();
    options.add_option("--steps", steps, "number of steps");
    options.add_option("--pause-at", pauseAt, "at this percentage, wait until a stop is asked for");
    CLI11_PARSE(options, argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    // Deletes the prototypes and handlers at every exit of the process.
    static const ZYLMsgBBCallbackManager manager;
    int domain = 0;
    int stopCondition = -1;
    ZYLMsgBBAPI::RegisterCommunicator(domainName.c_str(), domain);
    ZYLMsgBBAPI::DeclareApplicationId(domain, "solver", true);
    ZYLMsgBBCallbackManager::SetMessageID("solver");
    ZYLMsgFileTransfer files(domain, nullptr, 0);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(&files));
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgProcessControlType,
                                                      new StopHandler(stopCondition));
    const MonitorWatch monitor(files, stopCondition);
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&monitor);
    ZYLMsgBBAPI::EnableReceiveHandling(domain, "solver");
    ZYLMsgBBAPI::EnableDisconnectHandling(domain, "solver");

    Say(domain, "monitor", "The solver says this itself.");
    Say(domain, "relay", "The solver says this through the relay.");
    Timed("requested", "model.dat", files,
          [&] { files.ReceiveFile("monitor", "", "", "model.dat", "solver", "", "", "model.dat"); });
    Field field = Load("model.dat");
    const bool finished = Compute(domain, field, steps, pauseAt, stopCondition);
    if (monitor.IsLost()) {
        throw std::runtime_error("the monitor has gone");
    }
    SendResults(files, field);
    ReportEnd(domain, finished ? "Finished" : "Stopped");
    std::printf("%s at %g %%\n", finished ? "finished" : "stopped cleanly",
                ZYLMsgAnalysisState::GetPercentage());
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return EXIT_FAILURE;
}

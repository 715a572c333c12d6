// The solver of a small analysis: fetches its model, lets the heat in it spread step by step, reports its
// progress to the monitor and sends it the results. It stops early when it is asked to.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <string>
#include <vector>

#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgAnalysisState.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgSimpleDisconnectHandler.h"
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
}

void Spread(Field& field) {
    const Field before = field;
    for (std::size_t node = 1; node + 1 < field.size(); ++node) {
        field[node] =
            static_cast<unsigned char>((before[node - 1] + 2 * before[node] + before[node + 1] + 2) / 4);
    }
}

/// Stops the analysis when the monitor asks for it.
class StopHandler : public ZYLMsgBBMessageHandler {
  public:
    explicit StopHandler(int& stopCondition) : m_stopCondition(stopCondition) {}
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        const auto& request = static_cast<const ZYLMsgProcessControlType&>(message);
        const ZYLString kill = request.GetVal(ZYLString::BuildFromUTF8("Kill"));
        std::printf("solver: %s from %s\n", kill.GetUTF8(), id);
        if (kill == "HARD_KILL") {
            std::exit(EXIT_FAILURE);
        }
        m_stopCondition = 0;
    }

  private:
    int& m_stopCondition;
};

void Say(int domain, const char* target, const std::string& text) {
    ZYLMsgStringType message;
    message.SetData(text.data(), static_cast<int>(text.size()));
    ZYLMsgBBAPI::SendRequest(domain, target, message);
}

void Report(int domain, const std::string& stage, const Field& field) {
    const auto hottest = std::max_element(field.begin(), field.end());
    const std::string document = "<" + stage + " percent=\"" +
                                 std::to_string(ZYLMsgAnalysisState::GetPercentage()) + "\" hottest=\"" +
                                 std::to_string(hottest != field.end() ? int{*hottest} : 0) + "\"/>";
    ZYLMsgBBAPI::SendRequest(domain, "monitor",
                             ZYLMsgAnalysisMessageType(ZYLString::BuildFromUTF8(document.c_str())));
}

/// Runs one transfer and prints what it took.
template <class Transfer>
void Timed(const char* what, const char* file, Transfer transfer) {
    const auto start = std::chrono::steady_clock::now();
    transfer();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    const auto size = static_cast<double>(std::filesystem::file_size(file));
    std::printf("solver: %-25s %-12s %9.0f bytes %7.3f s %7.1f MB/s\n", what, file, size, time.count(),
                size / 1e6 / time.count());
}

/// Spreads the heat `steps` times; at `pauseAt` percent it goes on only to stop. False when it was stopped.
bool Compute(int domain, Field& field, int steps, double pauseAt, int& stopCondition) {
    for (int step = 1; step <= steps && stopCondition != 0; ++step) {
        Spread(field);
        ZYLMsgAnalysisState::SetPercentage(100.0 * step / steps);
        Report(domain, "Progress", field);
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
    Timed("sent, not confirmed", "restart.dat",
          [&] { files.ISendFile("solver", "", "", "restart.dat", "monitor", "", "", "restart.dat"); });
    for (const char* file : {"result.dat", "warnings.log"}) {
        Timed("sent and confirmed", file,
              [&] { files.SendFile("solver", "", "", file, "monitor", "", "", file); });
    }
}

}  // namespace

int main(int argc, char** argv) try {
    int steps = 10;
    double pauseAt = 1000;  // never
    CLI::App options("Computes how heat spreads along a rod.");
    options.add_option("--steps", steps, "number of steps");
    options.add_option("--pause-at", pauseAt, "at this percentage, wait until a stop is asked for");
    CLI11_PARSE(options, argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    // Deletes the prototypes and handlers when the process ends, in whatever way.
    static const ZYLMsgBBCallbackManager manager;
    int domain = 0;
    int stopCondition = -1;
    ZYLMsgBBAPI::RegisterCommunicator("analysis", domain);
    ZYLMsgBBAPI::DeclareApplicationId(domain, "solver", true);
    ZYLMsgBBCallbackManager::SetMessageID("solver");
    ZYLMsgFileTransfer files(domain, nullptr, 0);
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType,
                                                      new ZYLMsgFileTransferHandler(&files));
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgProcessControlType,
                                                      new StopHandler(stopCondition));
    // Without the monitor nobody wants the results: a transfer would wait for it for ever.
    ZYLMsgSimpleDisconnectHandler monitor;
    monitor.SetWatchApplication("monitor", -1, nullptr);
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&monitor);
    ZYLMsgBBAPI::EnableReceiveHandling(domain, "solver");
    ZYLMsgBBAPI::EnableDisconnectHandling(domain, "solver");

    Say(domain, "monitor", "The solver says this itself.");
    Say(domain, "relay", "The solver says this through the relay.");
    Timed("requested", "model.dat",
          [&] { files.ReceiveFile("monitor", "", "", "model.dat", "solver", "", "", "model.dat"); });
    Field field = Load("model.dat");
    const bool finished = Compute(domain, field, steps, pauseAt, stopCondition);
    SendResults(files, field);
    Report(domain, finished ? "Finished" : "Stopped", field);
    std::printf("solver: %s at %g %%\n", finished ? "finished" : "stopped cleanly",
                ZYLMsgAnalysisState::GetPercentage());
} catch (const std::exception& error) {
    std::fprintf(stderr, "solver: %s\n", error.what());
    return EXIT_FAILURE;
}

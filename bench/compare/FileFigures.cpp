#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Child.h"
#include "Figures.h"
#include "RunDirectory.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::uintmax_t kMebibyte = std::uintmax_t{1024} * 1024;

/// A file whose bytes do not repeat within a block, so that nothing along the way can save the copying.
std::string MakeFile(const std::string& directory, std::uintmax_t size) {
    std::string name = fmt::format("{}/file", directory);
    std::vector<std::uint64_t> block(kMebibyte / sizeof(std::uint64_t));
    std::uint64_t state = 88172645463325252U;
    std::ofstream file(name, std::ios::binary);
    for (std::uintmax_t written = 0; written < size; written += kMebibyte) {
        for (std::uint64_t& word : block) {
            state ^= state << 13U;
            state ^= state >> 7U;
            state ^= state << 17U;
            word = state;
        }
        file.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(kMebibyte));
    }
    if (!file.flush()) {
        throw std::runtime_error(fmt::format("cannot write {}", name));
    }
    return name;
}

/// Starts every copy alike: no target, nothing left to be written to the disk.
void Settle(const std::string& target) {
    std::filesystem::remove(target);
    const int directory = open(std::filesystem::path(target).parent_path().c_str(), O_RDONLY | O_CLOEXEC);
    syncfs(directory);
    close(directory);
}

void CheckSame(const std::string& source, const std::string& target) {
    Child({"cmp", source, target}).Finish();
}

struct Transfer {
    double seconds;
    double senderPeak;    ///< KiB
    double receiverPeak;  ///< KiB
};

Transfer SendFile(const std::string& source) {
    const BackboneRun run;
    Child receiver = Child::InRole({"role", "receive-file"});
    Child sender = Child::InRole({"role", "send-file", "--file", source});
    const Figures sent = sender.Finish();
    return {sent.at("seconds"), sent.at("peak"), receiver.Finish().at("peak")};
}

double TimeCommand(const std::vector<std::string>& command) {
    const Clock::time_point start = Clock::now();
    Child(command).Finish();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

bool HasRoom(const std::string& directory, std::uintmax_t size) {
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(directory, error);
    return !error && space.available > size;
}

bool Installed(const std::string& command) {
    try {
        Child({command, "--version"}).Finish();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void CopiesIn(const std::string& parent, const std::string& where, const Measurement& measurement) {
    const std::uintmax_t size = (measurement.quick ? 64 : 1024) * kMebibyte;
    if (!HasRoom(parent, 3 * size)) {
        std::cerr << parent << " has no room for the copies; they are left out\n";
        return;
    }
    const RunDirectory directory(parent);
    const std::string source = MakeFile(directory.Path(), size);
    const std::string target = fmt::format("{}.copy", source);
    const std::string figure = fmt::format("copy of a file of {} MiB, {}", size / kMebibyte, where);
    const auto add = [&](const std::string& contender, const std::function<double()>& copy) {
        Settle(target);
        const double seconds = copy();
        CheckSame(source, target);
        measurement.results.Add(figure, "MB/s", contender, static_cast<double>(size) / 1e6 / seconds);
    };
    TimeCommand({"cp", source, target});  // the first copy would pay for pages the machine has to look for
    add("zyl SendFile", [&] { return SendFile(source).seconds; });
    add("cp", [&] { return TimeCommand({"cp", source, target}); });
    if (Installed("rsync")) {
        add("rsync --whole-file", [&] { return TimeCommand({"rsync", "--whole-file", source, target}); });
    } else {
        std::cerr << "rsync is not installed; it is left out\n";
    }
}

}  // namespace

void FileCopies(const Measurement& measurement) {
    CopiesIn(measurement.memory, "in memory", measurement);
    CopiesIn(measurement.disk, "on disk", measurement);
}

void PeakMemory(const Measurement& measurement) {
    for (const std::uintmax_t mebibytes :
         {std::uintmax_t{64}, std::uintmax_t{measurement.quick ? 256U : 4096U}}) {
        const std::uintmax_t size = mebibytes * kMebibyte;
        const bool inMemory = HasRoom(measurement.memory, 2 * size);
        const RunDirectory directory(inMemory ? measurement.memory : measurement.disk);
        const std::string source = fmt::format("{}/file", directory.Path());
        std::ofstream(source).close();
        std::filesystem::resize_file(source, size);  // a hole: only the copy takes room
        const Transfer transfer = SendFile(source);
        if (std::filesystem::file_size(fmt::format("{}.copy", source)) != size) {
            throw std::runtime_error(fmt::format("the copy of {} is not whole", source));
        }
        const std::string contender = fmt::format("file of {} MiB", mebibytes);
        measurement.results.Add("peak memory of the sender", "MiB", contender, transfer.senderPeak / 1024);
        measurement.results.Add("peak memory of the receiver", "MiB", contender,
                                transfer.receiverPeak / 1024);
    }
}

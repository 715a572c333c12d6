#include <fmt/core.h>
#include <sched.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "CacheLine.h"
#include "Child.h"
#include "Figures.h"
#include "Pair.h"
#include "RunDirectory.h"

namespace {

constexpr std::size_t kKibibyte = 1024;
constexpr std::size_t kMebibyte = kKibibyte * kKibibyte;

/// The processors this program may use.
std::vector<int> Processors() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    std::vector<int> processors;
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
        if (CPU_ISSET(static_cast<std::size_t>(processor), &allowed)) {
            processors.push_back(processor);
        }
    }
    return processors;
}

double OneWaySeconds(const Pairing& pairing) {
    return RunPair("sink", "source", pairing).at("seconds");
}

double MegabytesPerSecond(const Pairing& pairing) {
    return static_cast<double>(pairing.size * pairing.count) / 1e6 / OneWaySeconds(pairing);
}

void AddPercentiles(const Measurement& measurement, const std::string& figure, const Pairing& pairing) {
    const Figures figures = RunPair("pong", "ping", pairing);
    measurement.results.Add(figure, "us", pairing.kind, figures.at("median") / 1000);
    measurement.results.Add(fmt::format("{}, 99th percentile", figure), "us", pairing.kind,
                            figures.at("percentile99") / 1000);
    measurement.results.Add(fmt::format("{}, 99.9th percentile", figure), "us", pairing.kind,
                            figures.at("percentile99.9") / 1000);
}

std::string SizeName(std::size_t size) {
    if (size >= kMebibyte) {
        return fmt::format("{} MiB", size / kMebibyte);
    }
    return size >= kKibibyte ? fmt::format("{} KiB", size / kKibibyte) : fmt::format("{} B", size);
}

}  // namespace

void RoundTrips(const Measurement& measurement) {
    const std::vector<int> processors = Processors();
    for (const std::string& kind : Contenders()) {
        Pairing pairing{kind};
        pairing.count = measurement.Count(20000);
        pairing.serverProcessor = processors.front();
        pairing.clientProcessor = processors.front();
        measurement.results.Add("round trip of 64 bytes, one processor", "us", kind,
                                RunPair("pong", "ping", pairing).at("median") / 1000);
        if (processors.size() > 1) {
            pairing.clientProcessor = processors[1];
            AddPercentiles(measurement, "round trip of 64 bytes, two processors", pairing);
            pairing.warmUp = 30000;  // more than a lane holds: all of its memory has been used once
            AddPercentiles(measurement, "round trip of 64 bytes, two processors, after 30000 others",
                           pairing);
        }
    }
    if (processors.size() > 1) {
        measurement.results.Add("round trip of 64 bytes, two processors", "us", "one word, no message",
                                CacheLineRoundTrip(processors[0], processors[1]));
    }
}

void RoundTripsBesideBusyProcesses(const Measurement& measurement) {
    const Child busy[] = {Child::InRole({"role", "spin"}), Child::InRole({"role", "spin"})};
    for (const std::string& kind : Contenders()) {
        Pairing pairing{kind};
        pairing.count = measurement.Count(4000);
        const Figures figures = RunPair("pong", "ping", pairing);
        measurement.results.Add("round trip of 64 bytes beside two busy processes, 99th percentile", "us",
                                kind, figures.at("percentile99") / 1000);
        measurement.results.Add("round trip of 64 bytes beside two busy processes, median", "us", kind,
                                figures.at("median") / 1000);
    }
}

void Rates(const Measurement& measurement) {
    const std::vector<int> processors = Processors();
    for (const std::string& kind : Contenders()) {
        Pairing pairing{kind};
        pairing.count = measurement.Count(400000);
        const auto rate = [&] { return static_cast<double>(pairing.count) / OneWaySeconds(pairing); };
        measurement.results.Add("messages of 64 bytes, one way", "1/s", kind, rate());
        pairing.serverProcessor = processors.front();
        pairing.clientProcessor = processors.back();
        measurement.results.Add("messages of 64 bytes, one way, each end on its processor", "1/s", kind,
                                rate());
    }
}

void BulkRates(const Measurement& measurement) {
    const std::vector<int> processors = Processors();
    for (const std::string& kind : Contenders()) {
        Pairing pairing{kind, 65536};
        pairing.count = measurement.Count(20000);
        measurement.results.Add("messages of 64 KiB, one way", "MB/s", kind, MegabytesPerSecond(pairing));
        pairing.serverProcessor = processors.front();
        pairing.clientProcessor = processors.back();
        measurement.results.Add("messages of 64 KiB, one way, each end on its processor", "MB/s", kind,
                                MegabytesPerSecond(pairing));
    }
}

void LargeRates(const Measurement& measurement) {
    const std::vector<int> processors = Processors();
    for (const auto& [size, count] : {std::pair{16 * kMebibyte, 64U}, std::pair{256 * kMebibyte, 8U}}) {
        for (const std::string& kind : Contenders()) {
            Pairing pairing{kind, size};
            pairing.count = measurement.Count(count);
            pairing.serverProcessor = processors.front();
            pairing.clientProcessor = processors.back();
            measurement.results.Add(
                fmt::format("messages of {}, one way, each end on its processor", SizeName(size)), "MB/s",
                kind, MegabytesPerSecond(pairing));
        }
    }
}

void MessageSizes(const Measurement& measurement) {
    constexpr std::size_t kBytes = 2048 * kMebibyte;
    constexpr std::size_t kMessages = 100000;
    for (const std::size_t size :
         {64UL, 1024UL, 16384UL, 65536UL, 262144UL, 1048576UL, 16777216UL, 268435456UL}) {
        Pairing pairing{"zyl", size};
        pairing.count = measurement.Count(std::min(kMessages, kBytes / size));
        const double seconds = OneWaySeconds(pairing);
        const auto count = static_cast<double>(pairing.count);
        measurement.results.Add("one message by its size, one way", "us", SizeName(size),
                                seconds * 1e6 / count);
        measurement.results.Add("throughput by the size of the messages", "MB/s", SizeName(size),
                                static_cast<double>(size) * count / 1e6 / seconds);
    }
}

void IdentifierLengths(const Measurement& measurement) {
    constexpr int kRuns = 5;  // the best of them, in turns: a difference must not
                              // be what else went on meanwhile
    const std::vector<int> processors = Processors();
    std::vector<double> best(64);
    for (int run = 0; run < kRuns; ++run) {
        for (std::size_t length = 0; length < best.size(); ++length) {
            Pairing pairing{"zyl record", 65536};
            pairing.count = measurement.Count(4000);
            pairing.identifier = static_cast<int>(length);
            pairing.serverProcessor = processors.front();
            pairing.clientProcessor = processors.back();
            best[length] = std::max(best[length], MegabytesPerSecond(pairing));
        }
    }
    const auto [least, most] = std::minmax_element(best.begin(), best.end());
    const std::string figure = "chunks of 64 KiB, identifiers of 0 to 63 bytes";
    measurement.results.Add(figure, "MB/s", "slowest length", *least);
    measurement.results.Add(figure, "MB/s", "fastest length", *most);
}

void ApplicationCounts(const Measurement& measurement) {
    for (const std::size_t applications : {2U, 20U, 100U, 200U}) {
        const BackboneRun run;
        const std::size_t members = applications - 1;
        const std::string rounds = std::to_string(measurement.Count(20000) / members + 1);
        std::vector<Child> children;
        for (std::size_t member = 0; member < members; ++member) {
            children.push_back(Child::InRole({"role", "member", "--self", fmt::format("member-{}", member),
                                              "--size", "64", "--answer", "64", "--rounds", rounds}));
        }
        Child hub = Child::InRole(
            {"role", "hub", "--size", "64", "--count", std::to_string(members), "--rounds", rounds});
        const Figures figures = hub.Finish();
        for (Child& child : children) {
            child.Finish();
        }
        const std::string contender = fmt::format("{} applications", applications);
        measurement.results.Add("round trip of 64 bytes with each application in turn", "us", contender,
                                figures.at("mean") / 1000);
        measurement.results.Add("peak memory of the one linked to all", "MiB", contender,
                                figures.at("peak") / 1024);
    }
}

void IdleWaiter(const Measurement& measurement) {
    const BackboneRun run;
    Child one = Child::InRole({"role", "idle", "--self", "one", "--peer", "other"});
    Child other = Child::InRole({"role", "idle", "--self", "other", "--peer", "one"});
    const Figures figures = one.Finish();
    other.Finish();
    measurement.results.Add("processor time of an idle waiter in a second", "us", "zyl",
                            figures.at("processor"));
    measurement.results.Add("sleeps of an idle waiter in a second", "number", "zyl", figures.at("sleeps"));
}

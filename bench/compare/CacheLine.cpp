#include "CacheLine.h"

#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <thread>

namespace {

constexpr unsigned kRoundTrips = 100000;

void RunOn(int processor) {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(static_cast<std::size_t>(processor), &processors);
    sched_setaffinity(0, sizeof processors, &processors);
}

struct Words {
    alignas(64) std::atomic<unsigned> there{0};
    alignas(64) std::atomic<unsigned> back{0};
};

void Await(const std::atomic<unsigned>& word, unsigned value) {
    while (word.load(std::memory_order_acquire) != value) {
    }
}

}  // namespace

double CacheLineRoundTrip(int oneProcessor, int otherProcessor) {
    Words words;
    std::thread answering([&] {
        RunOn(otherProcessor);
        for (unsigned trip = 1; trip <= kRoundTrips; ++trip) {
            Await(words.there, trip);
            words.back.store(trip, std::memory_order_release);
        }
    });
    double microseconds = 0;
    std::thread asking([&] {
        RunOn(oneProcessor);
        const auto start = std::chrono::steady_clock::now();
        for (unsigned trip = 1; trip <= kRoundTrips; ++trip) {
            words.there.store(trip, std::memory_order_release);
            Await(words.back, trip);
        }
        microseconds =
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
    });
    asking.join();
    answering.join();
    return microseconds / kRoundTrips;
}

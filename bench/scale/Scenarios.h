#ifndef ZYL_BENCH_SCENARIOS_H
#define ZYL_BENCH_SCENARIOS_H

#include <chrono>
#include <cstddef>

/// What happens to applications when there are many of them. Every call starts processes of its own in a fresh
/// directory of the backbone. What does not come to its end within `limit` is infinite, with a line on standard
/// error.

/// Round trips of 64 bytes between two applications, each on its processor where there are two, while the one
/// that answers has `idle` other links that have carried a message and are silent now. In us.
struct RoundTrip {
    double median;
    double percentile99;
};
RoundTrip RoundTripBesideIdleLinks(std::size_t idle, std::chrono::seconds limit);

/// All start at once, and each watches all others; then one of them is killed.
struct Watching {
    double startSeconds;        ///< until the last one has declared itself and watches
    double reportMilliseconds;  ///< from the kill until the last one of the others has the report
};
Watching AllWatchOneIsKilled(std::size_t applications, std::chrono::seconds limit);

/// All start at once, and each sends one message of 64 bytes to each other one; no process has more than
/// `descriptors`. Seconds until the last one has all of its messages.
double AllToAll(std::size_t applications, std::size_t descriptors, std::chrono::seconds limit);

#endif

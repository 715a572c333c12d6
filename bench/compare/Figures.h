#ifndef ZYL_BENCH_FIGURES_H
#define ZYL_BENCH_FIGURES_H

#include <cstddef>
#include <string>

#include "Results.h"

/// What a figure is measured with: one call is one round of it, every contender in turn.
struct Measurement {
    Results& results;
    bool quick = false;  ///< smaller counts and files: shows that all works, not how fast
    std::string disk;    ///< a directory on a disk
    std::string memory;  ///< one on a memory file system

    std::size_t Count(std::size_t full) const { return quick ? full / 20 + 1 : full; }
};

void RoundTrips(const Measurement& measurement);
void RoundTripsBesideBusyProcesses(const Measurement& measurement);
void Rates(const Measurement& measurement);
void BulkRates(const Measurement& measurement);
void LargeRates(const Measurement& measurement);
void MessageSizes(const Measurement& measurement);
void IdentifierLengths(const Measurement& measurement);
void ApplicationCounts(const Measurement& measurement);
void IdleWaiter(const Measurement& measurement);

void FileCopies(const Measurement& measurement);
void PeakMemory(const Measurement& measurement);

void Records(const Measurement& measurement);
void Dispatch(const Measurement& measurement);
void TreeMapCopies(const Measurement& measurement);

#endif

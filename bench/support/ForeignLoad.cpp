#include "ForeignLoad.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <fstream>
#include <numeric>
#include <string>

namespace {

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double ProcessorSeconds(int whose) {
    rusage usage{};
    getrusage(whose, &usage);
    return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

}  // namespace

ForeignLoad::ForeignLoad() : m_start(Now()) {}

double ForeignLoad::Share() const {
    const Times now = Now();
    const double others = (now.busy - m_start.busy) - (now.ours - m_start.ours);
    return std::clamp(others / std::max(now.all - m_start.all, 1e-9), 0.0, 1.0);
}

ForeignLoad::Times ForeignLoad::Now() {
    // user, nice, system, idle, waiting for a disk, interrupts, soft interrupts, stolen
    constexpr std::size_t kIdle = 3;
    constexpr std::size_t kDisk = 4;
    std::array<double, 8> ticks{};
    std::ifstream stat("/proc/stat");
    std::string name;
    stat >> name;
    for (double& tick : ticks) {
        stat >> tick;
    }
    const auto perSecond = static_cast<double>(sysconf(_SC_CLK_TCK));
    const double all = std::accumulate(ticks.begin(), ticks.end(), 0.0) / perSecond;
    return {all, all - (ticks[kIdle] + ticks[kDisk]) / perSecond,
            ProcessorSeconds(RUSAGE_SELF) + ProcessorSeconds(RUSAGE_CHILDREN)};
}

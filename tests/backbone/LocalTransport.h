#ifndef ZYL_TESTS_BACKBONE_LOCALTRANSPORT_H
#define ZYL_TESTS_BACKBONE_LOCALTRANSPORT_H

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>

#include "World.h"

/// The fixtures of the tests of what the local transport does when a peer, the system or a stranger fails it.
/// Participants are real processes.

class LocalTransport : public ::testing::Test {
  protected:
    explicit LocalTransport(std::unique_ptr<World> world = MakeLocalWorld()) : m_world(std::move(world)) {}

    std::unique_ptr<World> m_world;
    zyl::backbone::Settings& m_settings = m_world->settings;
};

/// What depends on how a link carries its messages.
struct Kind {
    const char* name;
    std::unique_ptr<World> (*make)();
};

class LocalLink : public LocalTransport, public ::testing::WithParamInterface<Kind> {
  protected:
    LocalLink() : LocalTransport(GetParam().make()) {}
};

inline auto AllLanes() {
    return ::testing::Values(Kind{"memory", MakeLocalWorld}, Kind{"socket", MakeSocketWorld});
}

inline std::string LaneName(const ::testing::TestParamInfo<Kind>& kind) {
    return kind.param.name;
}

/// More than any link holds.
inline const std::string& BigBody() {
    static const std::string body(std::size_t{64} << 20, 'B');
    return body;
}

/// The processor time of this process so far.
inline std::chrono::microseconds ProcessorTime() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

/// What a wait of some tenths of a second may take: a thousandth of it is usual, all of it a loop that spins.
constexpr std::chrono::milliseconds kHardlyAny{60};

inline long Lines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
}

#endif

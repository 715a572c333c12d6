#ifndef ZYL_TESTS_END_TO_END_SOAK_H
#define ZYL_TESTS_END_TO_END_SOAK_H

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <random>
#include <string>

#include "Process.h"
#include "ZYLMsgBBDisconnectHandler.h"
#include "ZYLMsgBBMessage.h"
#include "ZYLMsgBBMessageHandler.h"

/// Tells a function of each lost peer.
class Losses : public ZYLMsgBBDisconnectHandler {
  public:
    explicit Losses(std::function<void(int pid, const std::string& application)> react)
        : m_react(std::move(react)) {}
    void DetectDisconnection(int pid, const char* app, const char* /*host*/,
                             const char* /*user*/) const override {
        m_react(pid, app);
    }

  private:
    std::function<void(int, const std::string&)> m_react;
};

/// Tells a function of each string message.
class Texts : public ZYLMsgBBMessageHandler {
  public:
    explicit Texts(std::function<void(const std::string& sender, const std::string& text)> react)
        : m_react(std::move(react)) {}
    void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
        std::string text(static_cast<std::size_t>(message.RequiredBufferSize()), '\0');
        message.Stream(text.data(), message.RequiredBufferSize());
        m_react(id, text);
    }

  private:
    std::function<void(const std::string&, const std::string&)> m_react;
};

/// What the processes of a test count together; also what one of them counted that is gone.
struct Tally {
    std::atomic<std::uint64_t> messages = 0;
    std::atomic<std::uint64_t> files = 0;
    std::atomic<std::uint64_t> bytes = 0;
    std::atomic<std::uint64_t> errors = 0;
};

/// A test whose lanes are those of the parameter, "memory" or "socket".
class OnLane : public EndToEnd, public ::testing::WithParamInterface<const char*> {
  protected:
    OnLane() { setenv("ZYL_BACKBONE_LANE", GetParam(), 1); }
    ~OnLane() override {
        m_tally.~Tally();
        munmap(&m_tally, sizeof(Tally));
    }

    Tally& m_tally =
        *new (mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Tally;
};

/// Goes on in rounds for a time, and says at its end what was done.
class Soak : public OnLane {
  protected:
    Soak() {
        const char* seed = std::getenv("ZYL_SOAK_SEED");
        m_seed = seed != nullptr ? static_cast<unsigned>(std::stoul(seed)) : std::random_device{}();
        m_random.seed(m_seed);
        std::printf("ZYL_SOAK_SEED=%u\n", m_seed);
    }
    ~Soak() override {
        std::printf("%s: %d faults injected; verified: %llu messages, %llu files, %llu bytes\n", GetParam(),
                    m_faults, Count(m_tally.messages), Count(m_tally.files), Count(m_tally.bytes));
    }

    /// Whether there is time for another round, of which each may last as long as a whole test. A test lasts
    /// `standard` seconds, or as many as ZYL_SOAK_SECONDS says.
    bool HasTime(int standard) const {
        const char* seconds = std::getenv("ZYL_SOAK_SECONDS");
        RestartDeadline();
        return !HasFailure() && std::chrono::steady_clock::now() - m_start <
                                    std::chrono::seconds(seconds != nullptr ? std::stoi(seconds) : standard);
    }
    int Random(int least, int most) { return std::uniform_int_distribution(least, most)(m_random); }
    /// A fault comes at any moment: this is the one thing that is not waited for by an event.
    void PauseForUpTo(int microseconds) { usleep(static_cast<useconds_t>(Random(0, microseconds))); }

    int m_faults = 0;

  private:
    static unsigned long long Count(const std::atomic<std::uint64_t>& counter) { return counter; }

    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    unsigned m_seed;
    std::mt19937 m_random;
};

inline std::string LaneName(const ::testing::TestParamInfo<const char*>& lane) {
    return lane.param;
}

#endif

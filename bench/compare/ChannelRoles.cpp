#include "ChannelRoles.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <span>
#include <stdexcept>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

std::vector<char> MessageOf(std::size_t size) {
    return std::vector<char>(size, 'm');
}

std::uint64_t SumOf(std::span<const char> bytes) {
    std::uint64_t sum = 0;
    std::uint64_t word = 0;
    std::size_t offset = 0;
    for (; offset + sizeof word <= bytes.size(); offset += sizeof word) {
        std::memcpy(&word, bytes.data() + offset, sizeof word);
        sum += word;
    }
    for (; offset < bytes.size(); ++offset) {
        sum += static_cast<unsigned char>(bytes[offset]);
    }
    return sum;
}

/// Receives messages of one size, reads them, and knows what they have to add up to.
class Reader {
  public:
    Reader(Channel& channel, std::size_t size) : m_channel(channel), m_expected(SumOf(MessageOf(size))) {}

    template <class Then>
    void Receive(std::size_t count, Then then) {
        std::uint64_t wrong = 0;
        m_channel.Receive(count, [&](std::span<const char> body) {
            wrong += SumOf(body) != m_expected ? 1 : 0;
            then();
        });
        if (wrong != 0) {
            throw std::runtime_error("a message is not what was sent");
        }
    }
    void Receive(std::size_t count = 1) {
        Receive(count, [] {});
    }

  private:
    Channel& m_channel;
    std::uint64_t m_expected;
};

void Ping(Channel& channel, const RoleOptions& options) {
    const std::vector<char> message = MessageOf(options.setup.size);
    Reader reader(channel, options.setup.answer);
    std::vector<double> times(options.count);  // its pages are there before the clock runs
    const auto roundTrip = [&] {
        channel.Send(message);
        reader.Receive();
    };
    for (std::size_t trip = 0; trip < options.warmUp; ++trip) {
        roundTrip();
    }
    Clock::time_point last = Clock::now();
    for (double& time : times) {
        roundTrip();
        const Clock::time_point now = Clock::now();
        time = Seconds(now - last) * 1e9;
        last = now;
    }
    std::sort(times.begin(), times.end());
    Print("median", times[times.size() / 2]);
    Print("percentile99", times[times.size() * 99 / 100]);
    Print("percentile99.9", times[times.size() * 999 / 1000]);
}

void Pong(Channel& channel, const RoleOptions& options) {
    Echo(channel, options.setup, options.warmUp + options.count);
}

void Source(Channel& channel, const RoleOptions& options) {
    const std::vector<char> message = MessageOf(options.setup.size);
    Reader reader(channel, options.setup.answer);
    channel.Send(message);
    reader.Receive();
    const Clock::time_point start = Clock::now();
    for (std::size_t sent = 0; sent < options.count; ++sent) {
        channel.Send(message);
    }
    reader.Receive();
    Print("seconds", Seconds(Clock::now() - start));
}

void Sink(Channel& channel, const RoleOptions& options) {
    const std::vector<char> answer = MessageOf(options.setup.answer);
    Reader reader(channel, options.setup.size);
    for (const std::size_t count : {std::size_t{1}, options.count}) {
        reader.Receive(count);
        channel.Send(answer);
    }
}

struct ChannelRole {
    bool serves;
    void (*run)(Channel&, const RoleOptions&);
};

const std::map<std::string, ChannelRole> kRoles = {
    {"ping", {false, Ping}},
    {"pong", {true, Pong}},
    {"source", {false, Source}},
    {"sink", {true, Sink}},
};

}  // namespace

void Echo(Channel& channel, const Channel::Setup& setup, std::size_t count) {
    const std::vector<char> answer = MessageOf(setup.answer);
    Reader(channel, setup.size).Receive(count, [&] { channel.Send(answer); });
}

bool RunChannelRole(const std::string& role, RoleOptions& options,
                    std::unique_ptr<Channel> (*open)(const Channel::Setup&)) {
    const auto found = kRoles.find(role);
    if (found == kRoles.end()) {
        return false;
    }
    const auto& [serves, run] = found->second;
    options.setup.serves = serves;
    const std::unique_ptr<Channel> channel = open(options.setup);
    run(*channel, options);
    PrintPeakMemory();
    if (serves) {
        Linger();
    }
    return true;
}

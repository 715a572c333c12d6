#include "Scenarios.h"

#include <fmt/core.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "Crew.h"
#include "RunDirectory.h"
#include "ZYLFeaBackbone.h"

namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr int kMessageSize = 64;
constexpr std::size_t kRoundTrips = 20000;
/// A link is in use for a while before round trips on it are measured.
constexpr std::size_t kWarmUp = 30000;

constexpr const char* kHub = "hub";
constexpr const char* kPinger = "pinger";

/// The application that a process of a scenario is: the backbone's callbacks have no argument to find it by.
struct Application {
    const Member* member = nullptr;
    int communicator = 0;
    int condition = -1;
    std::size_t received = 0;
    std::size_t awaited = 0;
    std::string victim;
};
Application g_self;

std::string NameOf(std::size_t number) {
    return fmt::format("application-{}", number);
}

void Join(const Member& member, const std::string& name) {
    g_self.member = &member;
    RegisterCommunicator("scale", &g_self.communicator);
    DeclareApplicationId(g_self.communicator, name.c_str(), true);
}

void Send(const std::string& target, ZYLFeaBackbone_TypeCallback type) {
    SendRequest(
        g_self.communicator, target.c_str(),
        [](void* buffer, int size) { std::memset(buffer, 'm', static_cast<std::size_t>(size)); },
        [] { return kMessageSize; }, type);
}

/// Takes messages until the condition changes; -1 milliseconds: without bound.
void Take(int milliseconds = -1) {
    g_self.condition = -1;
    WaitingLoop(g_self.communicator, milliseconds, &g_self.condition);
}

/// The number-th of the processors that this process may use becomes its only one, if there are so many.
void RunOnProcessor(int number) {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    for (std::size_t processor = 0; processor < CPU_SETSIZE; ++processor) {
        if (CPU_ISSET(processor, &allowed) && number-- == 0) {
            CPU_ZERO(&allowed);
            CPU_SET(processor, &allowed);
            sched_setaffinity(0, sizeof allowed, &allowed);
        }
    }
}

void LimitDescriptors(std::size_t descriptors) {
    const rlimit limit{descriptors, descriptors};
    setrlimit(RLIMIT_NOFILE, &limit);
}

const char* Greeting() {
    return "greeting";
}
const char* Ping() {
    return "ping";
}

/// Counts the greetings of the idle ones, and answers pings.
void ServeAsHub(const Member& member, std::size_t idle) {
    RunOnProcessor(0);
    Join(member, kHub);
    g_self.awaited = idle;
    AssociateHandler(g_self.communicator, kHub, [](const char* type, const void*, int) {
        if (std::strcmp(type, Ping()) == 0) {
            Send(kPinger, Ping);
        } else if (++g_self.received == g_self.awaited) {
            g_self.member->Tell(Mark::What::kReady);
        }
    });
    Take();
}

void PingHub(const Member& member) {
    RunOnProcessor(1);
    Join(member, kPinger);
    AssociateHandler(g_self.communicator, kPinger,
                     [](const char*, const void*, int) { g_self.condition = 0; });
    const auto roundTrip = [] {
        Send(kHub, Ping);
        Take();
    };
    for (std::size_t trip = 0; trip < kWarmUp; ++trip) {
        roundTrip();
    }
    std::vector<double> times(kRoundTrips);
    for (double& time : times) {
        const Clock::time_point start = Clock::now();
        roundTrip();
        time = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    }
    std::sort(times.begin(), times.end());
    member.Tell(Mark::What::kDone, times[times.size() / 2]);
    member.Tell(Mark::What::kDone, times[times.size() * 99 / 100]);
}

void WatchAll(const Member& member, const std::string& victim) {
    const std::string name = NameOf(member.Number());
    Join(member, name);
    g_self.victim = victim;
    AssociateDisconnectHandler(g_self.communicator, name.c_str(),
                               [](int, const char* application, const char*, const char*) {
                                   if (application == g_self.victim) {
                                       g_self.member->Tell(Mark::What::kDone);
                                   }
                               });
    Take(0);
    member.Tell(Mark::What::kReady);
    Take();
}

void SendToAll(const Member& member, std::size_t applications, std::size_t descriptors) {
    LimitDescriptors(descriptors);
    const std::string name = NameOf(member.Number());
    Join(member, name);
    g_self.awaited = applications - 1;
    AssociateHandler(g_self.communicator, name.c_str(), [](const char*, const void*, int) {
        if (++g_self.received == g_self.awaited) {
            g_self.member->Tell(Mark::What::kDone);
        }
    });
    for (std::size_t step = 1; step < applications; ++step) {
        Send(NameOf((member.Number() + step) % applications), Greeting);
    }
    Take();
}

/// The time of the last of `count` marks; nothing when not all of them come.
std::optional<Clock::time_point> LastOf(const Crew& crew, std::size_t count, std::chrono::seconds limit,
                                        const char* what) {
    const std::vector<Mark> marks = crew.Await(count, limit);
    if (marks.size() < count) {
        fmt::print(stderr, "only {} of {} {} within {} s\n", marks.size(), count, what, limit.count());
        return std::nullopt;
    }
    return std::max_element(marks.begin(), marks.end(),
                            [](const Mark& one, const Mark& other) { return one.time < other.time; })
        ->time;
}

double SecondsBetween(Clock::time_point start, Clock::time_point end) {
    return std::chrono::duration<double>(end - start).count();
}

}  // namespace

RoundTrip RoundTripBesideIdleLinks(std::size_t idle, std::chrono::seconds limit) {
    const BackboneRun run;
    Crew hub(1, [&](const Member& member) { ServeAsHub(member, idle); });
    hub.Start();
    Crew others(idle, [](const Member& member) {
        Join(member, NameOf(member.Number()));
        Send(kHub, Greeting);
    });
    others.Start();
    if (idle > 0 && !LastOf(hub, 1, limit, "hubs were greeted by all")) {
        return {kNever, kNever};
    }
    Crew pinger(1, PingHub);
    pinger.Start();
    const std::vector<Mark> marks = pinger.Await(2, limit);
    return marks.size() == 2 ? RoundTrip{marks[0].figure, marks[1].figure} : RoundTrip{kNever, kNever};
}

Watching AllWatchOneIsKilled(std::size_t applications, std::chrono::seconds limit) {
    const BackboneRun run;
    const std::size_t victim = applications / 2;
    Crew crew(applications, [&](const Member& member) { WatchAll(member, NameOf(victim)); });
    const Clock::time_point start = crew.Start();
    const auto ready = LastOf(crew, applications, limit, "applications watched");
    if (!ready) {
        return {kNever, kNever};
    }
    const Clock::time_point killed = crew.Kill(victim);
    const auto reported = LastOf(crew, applications - 1, limit, "applications had the report");
    return {SecondsBetween(start, *ready), reported ? SecondsBetween(killed, *reported) * 1000 : kNever};
}

double AllToAll(std::size_t applications, std::size_t descriptors, std::chrono::seconds limit) {
    const BackboneRun run;
    Crew crew(applications, [&](const Member& member) { SendToAll(member, applications, descriptors); });
    const Clock::time_point start = crew.Start();
    const auto done = LastOf(crew, applications, limit, "applications had all messages");
    return done ? SecondsBetween(start, *done) : kNever;
}

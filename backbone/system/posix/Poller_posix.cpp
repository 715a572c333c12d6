#include "system/posix/Poller.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <optional>
#include <span>

#include "Diagnostics.h"
#include "platform/system/SystemError.h"

namespace zyl::backbone::system::posix {

namespace {

using std::chrono::nanoseconds;

/// More than is ever ready at once in a quiet system; the rest is asked for at once.
constexpr int kEventsAtOnce = 64;

constexpr std::uint32_t kAlways = EPOLLIN | EPOLLRDHUP | EPOLLET;

[[noreturn]] void Fail(const char* call, int line) {
    Fatal(platform::SystemError::Last(call).Text(), "backbone/system/posix/Poller_posix", line);
}

/// `entry` is null for the poller's own descriptor.
bool Control(int poller, int operation, int descriptor, std::uint32_t events, PollerEntry* entry) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = entry;
    return epoll_ctl(poller, operation, descriptor, &event) == 0;
}

/// -1: without bound. Rounded up, so that a wait never ends before its deadline.
int Milliseconds(std::optional<nanoseconds> limit) {
    return limit ? static_cast<int>(std::min<long long>((limit->count() + 999'999) / 1'000'000, INT_MAX))
                 : -1;
}

/// How many events there are; 0 also after a signal.
std::size_t WaitForEvents(int poller, std::span<epoll_event> events, std::optional<nanoseconds> limit) {
    static bool systemKnowsNanoseconds = true;
    const int most = static_cast<int>(events.size());
    int count = -1;
    if (systemKnowsNanoseconds) {
        const long long left = limit.value_or(nanoseconds(0)).count();
        const timespec time{static_cast<time_t>(left / 1'000'000'000),
                            static_cast<long>(left % 1'000'000'000)};
        count = epoll_pwait2(poller, events.data(), most, limit ? &time : nullptr, nullptr);
        systemKnowsNanoseconds = count >= 0 || errno != ENOSYS;
    }
    if (!systemKnowsNanoseconds) {
        count = epoll_wait(poller, events.data(), most, Milliseconds(limit));
    }
    return static_cast<std::size_t>(std::max(count, 0));
}

}  // namespace

Poller::Poller()
    : m_descriptor(epoll_create1(EPOLL_CLOEXEC)), m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    // Nobody reads the event's count: each write is an edge.
    if (!m_descriptor.IsOpen() || !m_wake.IsOpen() ||
        !Control(m_descriptor.Get(), EPOLL_CTL_ADD, m_wake.Get(), EPOLLIN | EPOLLET, nullptr)) {
        Fail("cannot open a poller", __LINE__);
    }
}

void Poller::Wait(Deadline deadline) {
    std::optional<nanoseconds> limit;
    if (deadline) {
        limit = std::max<nanoseconds>(*deadline - Clock::now(), nanoseconds(0));
    }
    std::array<epoll_event, kEventsAtOnce> events{};
    for (std::size_t count = events.size(); count == events.size(); limit = nanoseconds(0)) {
        count = WaitForEvents(m_descriptor.Get(), events, limit);
        for (const epoll_event& event : std::span(events).first(count)) {
            if (event.data.ptr != nullptr) {
                static_cast<PollerEntry*>(event.data.ptr)->Tell(event.events);
            }
        }
    }
}

void Poller::Wake() noexcept {
    const int before = errno;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_wake.Get(), &one, sizeof one);
    errno = before;
}

PollerEntry::PollerEntry(const Poller& poller, int descriptor, Watcher& watcher, bool forRoom)
    : m_poller(poller), m_descriptor(descriptor), m_watcher(watcher), m_forRoom(forRoom) {
    const std::uint32_t events = forRoom ? kAlways | EPOLLOUT : kAlways;
    if (!Control(m_poller.m_descriptor.Get(), EPOLL_CTL_ADD, m_descriptor, events, this)) {
        Fail("cannot watch a descriptor", __LINE__);
    }
}

PollerEntry::~PollerEntry() {
    Control(m_poller.m_descriptor.Get(), EPOLL_CTL_DEL, m_descriptor, 0, nullptr);
}

void PollerEntry::TellOfRoom() {
    if (!m_forRoom) {
        SetForRoom(true);
    }
}

void PollerEntry::SetForRoom(bool forRoom) {
    m_forRoom = forRoom;
    const std::uint32_t events = forRoom ? kAlways | EPOLLOUT : kAlways;
    if (!Control(m_poller.m_descriptor.Get(), EPOLL_CTL_MOD, m_descriptor, events, this)) {
        Fail("cannot watch a descriptor", __LINE__);
    }
}

void PollerEntry::Tell(std::uint32_t events) {
    const bool room = m_forRoom && (events & EPOLLOUT) != 0;
    if (room) {
        SetForRoom(false);
    }
    m_watcher.Ready({(events & EPOLLIN) != 0, room, (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0});
}

}  // namespace zyl::backbone::system::posix

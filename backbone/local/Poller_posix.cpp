#include "Poller.h"

#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>
#include <vector>

#include "Diagnostics.h"

namespace zyl::backbone::local {

namespace {

constexpr const char* kSourceFile = "backbone/local/Poller_posix";

/// More than is ever ready at once in a quiet system; the rest is asked for at once.
constexpr int kEventsAtOnce = 64;

constexpr std::uint32_t kAlways = EPOLLIN | EPOLLRDHUP | EPOLLET;

void Control(int poller, int operation, int descriptor, std::uint32_t events, Watched* watched) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = watched;
    if (epoll_ctl(poller, operation, descriptor, &event) != 0) {
        Fatal("cannot watch a descriptor: " + std::generic_category().message(errno), kSourceFile, __LINE__);
    }
}

int Timeout(std::optional<std::chrono::milliseconds> limit) {
    return limit ? static_cast<int>(std::min<long long>(limit->count(), INT_MAX)) : -1;
}

}  // namespace

Poller::Poller() : m_descriptor(epoll_create1(EPOLL_CLOEXEC)) {
    if (!m_descriptor.IsOpen()) {
        Fatal("cannot open a poller: " + std::generic_category().message(errno), kSourceFile, __LINE__);
    }
}

PollerEntry::PollerEntry(const Poller& poller, int descriptor, Watched& watched)
    : m_poller(poller), m_descriptor(descriptor), m_watched(watched) {
    Control(m_poller.m_descriptor.Get(), EPOLL_CTL_ADD, m_descriptor, kAlways, &m_watched);
}

PollerEntry::~PollerEntry() {
    epoll_ctl(m_poller.m_descriptor.Get(), EPOLL_CTL_DEL, m_descriptor, nullptr);
}

void PollerEntry::ForRoom(bool room) {
    const std::uint32_t events = room ? kAlways | EPOLLOUT : kAlways;
    Control(m_poller.m_descriptor.Get(), EPOLL_CTL_MOD, m_descriptor, events, &m_watched);
}

bool Poller::Wait(std::optional<std::chrono::milliseconds> limit) {
    std::array<epoll_event, kEventsAtOnce> events{};
    int count = epoll_wait(m_descriptor.Get(), events.data(), kEventsAtOnce, Timeout(limit));
    const bool someReady = count > 0;
    for (;;) {
        for (int index = 0; index < count; ++index) {
            const epoll_event& event = events[static_cast<std::size_t>(index)];
            static_cast<Watched*>(event.data.ptr)
                ->Ready({(event.events & EPOLLIN) != 0, (event.events & EPOLLOUT) != 0,
                         (event.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0});
        }
        if (count < kEventsAtOnce) {
            return someReady;
        }
        count = epoll_wait(m_descriptor.Get(), events.data(), kEventsAtOnce, 0);
    }
}

/// Not by a poller that watches the others: whatever it tells of one that is not waited for now would be
/// forgotten.
void Poller::WaitForAny(std::span<Poller* const> pollers, std::optional<std::chrono::milliseconds> limit) {
    std::vector<pollfd> readable;
    for (const Poller* poller : pollers) {
        readable.push_back({poller->m_descriptor.Get(), POLLIN, 0});
    }
    poll(readable.data(), readable.size(), Timeout(limit));
    for (std::size_t index = 0; index < readable.size(); ++index) {
        if (readable[index].revents != 0) {
            pollers[index]->Wait(std::chrono::milliseconds(0));
        }
    }
}

}  // namespace zyl::backbone::local

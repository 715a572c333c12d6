#include "Poller.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>

#include "../Diagnostics.h"

namespace zyl::backbone::local {

namespace {

constexpr const char* kSourceFile = "platform/backbone/local/Poller_posix";

/// More than is ever ready at once in a quiet system; the rest is told by the next wait.
constexpr int kEventsAtOnce = 64;

void Control(int poller, int operation, int descriptor, std::uint32_t events, Watched* watched) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = watched;
    if (epoll_ctl(poller, operation, descriptor, &event) != 0) {
        Fatal("cannot watch a descriptor: " + std::generic_category().message(errno), kSourceFile, __LINE__);
    }
}

}  // namespace

Poller::Poller() : m_descriptor(epoll_create1(EPOLL_CLOEXEC)) {
    if (!m_descriptor.IsOpen()) {
        Fatal("cannot open a poller: " + std::generic_category().message(errno), kSourceFile, __LINE__);
    }
}

void Poller::Watch(int descriptor, Watched& watched) {
    Control(m_descriptor.Get(), EPOLL_CTL_ADD, descriptor, EPOLLIN | EPOLLRDHUP | EPOLLET, &watched);
}

void Poller::WatchRoom(int descriptor, Watched& watched, bool room) {
    const std::uint32_t events = EPOLLIN | EPOLLRDHUP | EPOLLET | (room ? EPOLLOUT : 0U);
    Control(m_descriptor.Get(), EPOLL_CTL_MOD, descriptor, events, &watched);
}

bool Poller::Wait(std::optional<std::chrono::milliseconds> limit) {
    std::array<epoll_event, kEventsAtOnce> events{};
    const int timeout = limit ? static_cast<int>(std::min<long long>(limit->count(), INT_MAX)) : -1;
    const int count = epoll_wait(m_descriptor.Get(), events.data(), kEventsAtOnce, timeout);
    for (int index = 0; index < count; ++index) {
        const epoll_event& event = events[static_cast<std::size_t>(index)];
        static_cast<Watched*>(event.data.ptr)
            ->Ready({(event.events & EPOLLIN) != 0, (event.events & EPOLLOUT) != 0,
                     (event.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0});
    }
    return count > 0;
}

}  // namespace zyl::backbone::local

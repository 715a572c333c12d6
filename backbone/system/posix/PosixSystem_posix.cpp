#include "system/posix/PosixSystem.h"

#include <fmt/format.h>
#include <pthread.h>
#include <pwd.h>
#include <sched.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <vector>

#include "Diagnostics.h"
#include "platform/system/FileDescriptor.h"
#include "platform/system/SystemError.h"
#include "system/MakeSystem.h"
#include "system/posix/SharedMemory.h"
#include "system/posix/UnixNames.h"

namespace zyl::backbone::system {

std::unique_ptr<System> MakeSystem() {
    return std::make_unique<posix::PosixSystem>();
}

void OnForkInChild(void (*handler)()) {
    pthread_atfork(nullptr, nullptr, handler);
}

void LeaveToParent() {
    platform::FileDescriptor::CloseAllInChild();
}

namespace posix {

namespace {

Identity NewIdentity() {
    Identity identity;
    if (Retried([&] { return getrandom(&identity, sizeof identity, 0); }) != sizeof identity) {
        Fatal(platform::SystemError::Last("cannot draw an identity").Text(),
              "backbone/system/posix/PosixSystem_posix", __LINE__);
    }
    return identity;
}

std::string HostName() {
    std::array<char, 256> name{};
    gethostname(name.data(), name.size() - 1);
    return name.data();
}

/// "uid<number>" for a user without a name.
std::string UserName() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr ? found->pw_name : fmt::format("uid{}", geteuid());
}

}  // namespace

PosixSystem::PosixSystem() : m_self{NewIdentity(), getpid(), HostName(), UserName()} {}

Clock::time_point PosixSystem::RoughlyNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return Clock::time_point(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

int PosixSystem::Processor() {
    return sched_getcpu();
}

void PosixSystem::Pause() {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

std::unique_ptr<Names> PosixSystem::Join(const std::string& base, const std::string& domain) {
    return std::make_unique<UnixNames>(m_poller, m_spares, m_self, base, domain);
}

std::unique_ptr<Memory> PosixSystem::MakeMemory(std::size_t size) {
    return SharedMemory::Make(m_spares, size);
}

}  // namespace posix

}  // namespace zyl::backbone::system

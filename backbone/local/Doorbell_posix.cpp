#include "Doorbell.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "Diagnostics.h"
#include "Frame.h"

namespace zyl::backbone::local {

namespace {

constexpr const char* kSourceFile = "backbone/local/Doorbell_posix";

}  // namespace

void SpinPause() {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#endif
}

Doorbell::Doorbell()
    : m_bell(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_file(MakeSharedMemory(kPageSize)),
      m_mapping(m_file, kPageSize, 0) {
    if (!m_bell.IsOpen() || !m_mapping.IsMapped()) {
        Fatal("cannot make a doorbell: " + std::generic_category().message(errno), kSourceFile, __LINE__);
    }
}

void Doorbell::FallAsleep() {
    Page().asleep.store(1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
}

int Doorbell::PublishProcessor() {
    const int processor = sched_getcpu();
    if (Page().processor.load(std::memory_order_relaxed) != processor) {
        Page().processor.store(processor, std::memory_order_relaxed);
    }
    return processor;
}

PeerDoorbell::PeerDoorbell(FileDescriptor bell, const FileDescriptor& pageFile) : m_bell(std::move(bell)) {
    const int flags = fcntl(m_bell.Get(), F_GETFL);
    if (flags < 0 || (flags & O_NONBLOCK) == 0 || !IsSharedMemory(pageFile, kPageSize)) {
        throw BadFrame("the peer's doorbell is none");
    }
    m_mapping = Mapping(pageFile, kPageSize, 0);
    if (!m_mapping.IsMapped()) {
        throw BadFrame("the peer's doorbell cannot be mapped");
    }
}

void PeerDoorbell::Ring() {
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (Page().asleep.load(std::memory_order_relaxed) != 0 &&
        Page().asleep.exchange(0, std::memory_order_relaxed) != 0) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t rung = write(m_bell.Get(), &one, sizeof one);
    }
}

}  // namespace zyl::backbone::local

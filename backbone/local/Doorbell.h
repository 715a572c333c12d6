#ifndef ZYL_BACKBONE_LOCAL_DOORBELL_H
#define ZYL_BACKBONE_LOCAL_DOORBELL_H

#include <atomic>
#include <cstdint>

#include "FileDescriptor.h"
#include "SharedMemory.h"

/// How a process that sleeps is woken by one that has put something into shared memory for it. Every process
/// has one bell, and gives it to its peers: a descriptor that ends a sleep, and a page that tells whether
/// there is one to end.
///
/// The sleeper sets its flag and then looks for news once more; who has news publishes it and then looks at
/// the flag. So one of the two always sees the other, and a bell is rung for a sleeper only.

namespace zyl::backbone::local {

/// The page. Whoever maps it may write anything into it; nothing in it is trusted with more than a wake-up.
struct DoorbellPage {
    alignas(64) std::atomic<std::uint32_t> asleep;
    alignas(64) std::atomic<std::int32_t> processor;
    alignas(64) std::atomic<std::uint64_t> heldUp;
};

/// Lets a loop that waits for another processor breathe.
void SpinPause();

/// This process's bell.
class Doorbell {
  public:
    /// Without descriptors or memory for it this is a fatal error: nobody could reach this process.
    Doorbell();

    /// Before a sleep: sets the flag. What is published by now, or rings later.
    void FallAsleep();
    void WakeUp() { Page().asleep.store(0, std::memory_order_relaxed); }
    /// Lets the peers know on which processor this thread runs, and returns it.
    int PublishProcessor();

    /// See Transport::SayHeldUp.
    void SayHeldUp(std::uint64_t token) { Page().heldUp.store(token, std::memory_order_relaxed); }

    int Bell() const { return m_bell.Get(); }
    int PageFile() const { return m_file.Get(); }

  private:
    DoorbellPage& Page() { return *reinterpret_cast<DoorbellPage*>(m_mapping.Head()); }

    FileDescriptor m_bell;
    FileDescriptor m_file;
    Mapping m_mapping;
};

/// A peer's bell. Throws BadFrame when the descriptors that came are none.
class PeerDoorbell {
  public:
    PeerDoorbell(FileDescriptor bell, const FileDescriptor& pageFile);

    /// Call after publishing news: wakes the peer if it sleeps.
    void Ring();
    /// The processor on which the peer was last seen.
    int Processor() const { return Page().processor.load(std::memory_order_relaxed); }
    /// What the peer last gave to SayHeldUp.
    std::uint64_t HeldUp() const { return Page().heldUp.load(std::memory_order_relaxed); }

  private:
    DoorbellPage& Page() const { return *reinterpret_cast<DoorbellPage*>(m_mapping.Head()); }

    FileDescriptor m_bell;
    Mapping m_mapping;
};

}  // namespace zyl::backbone::local

#endif

#ifndef ZYL_TESTS_BACKBONE_MEMORYTRANSPORT_H
#define ZYL_TESTS_BACKBONE_MEMORYTRANSPORT_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "transport/Transport.h"

/// A transport within one process: each thread that takes part is a "process" of its own with a transport
/// made from the same hub. It says what the switchboard may rely on in the fewest lines, and has no system
/// call that could hide a fault.

class MemoryHub {
  public:
    /// Bytes that a process may have waiting before its senders are held up.
    static constexpr std::size_t kCapacity = 256 * 1024;

    /// What a process has in a domain: its applications and what has arrived for them.
    struct Box {
        int pid = 0;
        bool alive = true;
        std::map<std::string, std::pair<int, bool>> applications;  // name to number and announced
        std::deque<zyl::backbone::Event> queue;
        std::size_t bytes = 0;
        std::vector<bool> delivered;
    };

    std::mutex mutex;
    std::condition_variable stirred;
    std::uint64_t generation = 0;
    std::map<std::string, std::vector<std::shared_ptr<Box>>> domains;
    int lastPid = 0;
    std::map<int, std::uint64_t> heldUp;  // what each process has last said

    /// Call with the mutex held.
    void Stir() {
        ++generation;
        stirred.notify_all();
    }
};

std::unique_ptr<zyl::backbone::Transport> MakeMemoryTransport(MemoryHub& hub);

#endif

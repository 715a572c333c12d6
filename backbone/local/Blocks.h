#ifndef ZYL_BACKBONE_LOCAL_BLOCKS_H
#define ZYL_BACKBONE_LOCAL_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "system/System.h"

/// The sender's side of long messages. One that is too long for a lane's ring is written into a block of
/// shared memory of its own, and handed out where it lies. A block that the receiver has dealt with is used
/// again: its pages are there already, which costs most of a long message's time otherwise.

namespace zyl::backbone::local {

/// What free blocks of all links of this process take, and how much they may.
struct KeptBlocks {
    std::size_t limit = 0;
    std::size_t bytes = 0;
};

/// A block is new until its memory was handed over, and free then; with a message it is busy until the
/// receiver has dealt with that. One that the receiver keeps is its own from then on.
class Blocks {
  public:
    struct Block {
        enum class State { kNew, kFree, kBusy };
        std::uint32_t number = 0;
        std::shared_ptr<system::Memory> memory;
        State state = State::kNew;
    };

    /// Both outlive this object. At most `most` blocks are under way to the receiver at once.
    Blocks(system::System& system, KeptBlocks& kept, std::size_t most)
        : m_system(system), m_kept(kept), m_most(most) {}
    ~Blocks();
    Blocks(const Blocks&) = delete;
    Blocks& operator=(const Blocks&) = delete;

    /// A block, new or free, with at least `size` bytes; null while too many are under way; nothing where
    /// there is no memory for one. The numbers of those that were given up for it are appended to `dropped`.
    std::optional<Block*> Reserve(std::size_t size, std::vector<std::uint32_t>& dropped);
    Block& At(std::uint32_t number);
    /// The receiver has its memory.
    void HandedOver(Block& block);
    /// It is on its way, with a message.
    void Use(Block& block);
    /// The receiver has dealt with it. True: it is given up, as enough are kept. Throws BadFrame when it was
    /// not under way, like the next one.
    bool Free(std::uint32_t number);
    /// The receiver keeps it.
    void Keep(std::uint32_t number);

  private:
    std::vector<Block>::iterator Busy(std::uint32_t number);
    void Drop(std::vector<Block>::iterator block);

    system::System& m_system;
    KeptBlocks& m_kept;
    std::size_t m_most;
    std::vector<Block> m_blocks;
    std::uint32_t m_lastNumber = 0;
};

}  // namespace zyl::backbone::local

#endif

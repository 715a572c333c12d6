#ifndef ZYL_BACKBONE_LOCAL_SHAREDMEMORY_H
#define ZYL_BACKBONE_LOCAL_SHAREDMEMORY_H

#include <cstddef>
#include <span>

#include "FileDescriptor.h"

namespace zyl::backbone::local {

/// The unit in which memory is shared and mapped.
constexpr std::size_t kPageSize = 4096;

/// An anonymous memory file of `size` bytes, sealed: nobody can shrink or grow it any more, so a mapping of
/// it never faults. Not open when there is no memory or descriptor to be had.
FileDescriptor MakeSharedMemory(std::size_t size);

/// Whether `descriptor`, which came from a peer, is such a file of `size` bytes.
bool IsSharedMemory(const FileDescriptor& descriptor, std::size_t size);

/// A mapping of shared memory: a head, and behind it a tail that is mapped twice in a row, so that what runs
/// over the tail's end goes on at its beginning without a seam. Sizes are multiples of kPageSize. Lives as
/// long as this object.
class Mapping {
  public:
    Mapping() = default;
    /// Maps `head` + `tail` bytes of the file; not mapped when there is no room for it, or no file, whose
    /// reason is left in errno then.
    Mapping(const FileDescriptor& file, std::size_t head, std::size_t tail);
    Mapping(Mapping&& other) noexcept;
    Mapping& operator=(Mapping&& other) noexcept;
    ~Mapping();

    bool IsMapped() const { return m_begin != nullptr; }
    char* Head() const { return m_begin; }
    char* Tail() const { return m_begin + m_head; }

    /// The same memory mapped once more; not mapped when there is no room for it.
    Mapping Duplicate() const;
    /// Replaces the pages of `bytes` by private ones with the same content: what others write no longer
    /// shows. False when there is no memory for it; the pages are unchanged then.
    bool MakePrivate(std::span<const char> bytes);

  private:
    bool Reserve(std::size_t head, std::size_t tail);
    void Unmap();

    char* m_begin = nullptr;
    std::size_t m_head = 0;
    std::size_t m_tail = 0;
};

}  // namespace zyl::backbone::local

#endif

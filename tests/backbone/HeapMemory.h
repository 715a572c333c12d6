#ifndef ZYL_TESTS_BACKBONE_HEAPMEMORY_H
#define ZYL_TESTS_BACKBONE_HEAPMEMORY_H

#include <cstddef>
#include <new>

#include "system/System.h"

/// Memory that is shared within one process, which is all that a test of both ends of a lane needs.
class HeapMemory final : public zyl::backbone::system::Memory {
  public:
    explicit HeapMemory(std::size_t size) : m_bytes(new (kPage) char[size]()), m_size(size) {}
    ~HeapMemory() override { operator delete[](m_bytes, kPage); }
    HeapMemory(const HeapMemory&) = delete;
    HeapMemory& operator=(const HeapMemory&) = delete;
    std::span<char> Bytes() const override { return {m_bytes, m_size}; }
    void Prepare(std::size_t /*offset*/, std::size_t /*size*/) override {}

  private:
    static constexpr std::align_val_t kPage{4096};
    char* m_bytes;
    std::size_t m_size;
};

#endif

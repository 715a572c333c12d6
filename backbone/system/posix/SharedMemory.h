#ifndef ZYL_BACKBONE_SYSTEM_POSIX_SHAREDMEMORY_H
#define ZYL_BACKBONE_SYSTEM_POSIX_SHAREDMEMORY_H

#include <memory>
#include <string>

#include "system/System.h"
#include "system/posix/SpareDescriptors.h"

namespace zyl::backbone::system::posix {

/// A mapped anonymous memory file. Its size is sealed, so that no access to it fails because the other
/// process has made it smaller.
class SharedMemory final : public Memory {
  public:
    /// Null when there is no memory or no descriptor to be had.
    static std::unique_ptr<SharedMemory> Make(SpareDescriptors& spares, std::size_t size);

    /// One that came from another process: either it, or why it is none that can be used.
    struct Received {
        std::unique_ptr<SharedMemory> memory;
        std::string problem;
    };
    static Received Map(const FileDescriptor& file);

    ~SharedMemory() override;

    std::span<char> Bytes() const override { return m_bytes; }
    void Prepare(std::size_t offset, std::size_t size) override;

    /// What is handed over; -1 once HandedOver was called, and for memory that came from another process.
    int Descriptor() const { return m_file.Get(); }
    void HandedOver() { m_file.Close(); }

  private:
    explicit SharedMemory(std::span<char> bytes, FileDescriptor file = {});

    std::span<char> m_bytes;
    FileDescriptor m_file;
};

}  // namespace zyl::backbone::system::posix

#endif

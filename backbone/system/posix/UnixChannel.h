#ifndef ZYL_BACKBONE_SYSTEM_POSIX_UNIXCHANNEL_H
#define ZYL_BACKBONE_SYSTEM_POSIX_UNIXCHANNEL_H

#include <optional>
#include <vector>

#include "system/System.h"
#include "system/posix/Poller.h"
#include "system/posix/SpareDescriptors.h"

namespace zyl::backbone::system::posix {

/// A channel over a Unix stream socket; memory travels as a descriptor.
class UnixChannel final : public Channel {
  public:
    /// `socket` is connected and does not block; the other two outlive the channel.
    UnixChannel(FileDescriptor socket, const Poller& poller, SpareDescriptors& spares);

    void Watch(Watcher& watcher) override;
    Moved Send(std::span<const char> bytes) override;
    Moved SendWithMemory(std::span<const char> bytes, Memory& memory) override;
    Moved Receive(std::span<char> room) override;
    std::size_t Waiting() const override { return m_arrivals.size(); }
    Arrival TakeMemory() override;
    bool HasEnded() override;

  private:
    void Keep(std::span<const FileDescriptor> descriptors, bool someLost);
    Moved Sent(std::ptrdiff_t count);

    SpareDescriptors& m_spares;
    const Poller& m_poller;
    FileDescriptor m_socket;
    std::optional<PollerEntry> m_entry;
    bool m_wantsRoom = false;
    std::vector<Arrival> m_arrivals;
};

}  // namespace zyl::backbone::system::posix

#endif

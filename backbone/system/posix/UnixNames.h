#ifndef ZYL_BACKBONE_SYSTEM_POSIX_UNIXNAMES_H
#define ZYL_BACKBONE_SYSTEM_POSIX_UNIXNAMES_H

#include <map>
#include <string>

#include "system/System.h"
#include "system/posix/DomainDirectory.h"
#include "system/posix/ListeningSocket.h"
#include "system/posix/LockFile.h"
#include "system/posix/Poller.h"

namespace zyl::backbone::system::posix {

/// The names of a domain as files in its directory; see DomainDirectory.h and LockFile.h.
class UnixNames final : public Names {
  public:
    /// All but the strings outlive the object.
    UnixNames(const Poller& poller, SpareDescriptors& spares, const Self& self, const std::string& base,
              const std::string& domain);
    ~UnixNames() override;

    Claimed Claim(const std::string& name, bool announced) override;
    void MarkWatcher(const std::string& name) override;
    std::vector<Entry> List() override;
    std::optional<Entry> Find(const std::string& name) override;
    Holding IsHeld(const Entry& entry) override;
    Connection Connect(const Entry& entry) override;
    void Watch(Watcher& watcher) override { m_socket.Watch(watcher); }
    Acceptance Accept() override { return m_socket.Accept(); }
    std::string Place() const override { return m_directory.Path(); }

  private:
    void BeMet();
    LockFile OpenToClaim(const std::string& file);
    std::optional<Entry> ReadEntry(const std::string& file);
    Connection Connected(FileDescriptor socket, const std::string& name);
    Connection NoSocket();
    bool Renew();

    const Poller& m_poller;
    SpareDescriptors& m_spares;
    const Self& m_self;
    DomainDirectory m_directory;
    ListeningSocket m_socket;
    std::map<std::string, LockFile> m_held;
    bool m_saidDeleted = false;
    bool m_saidNoSocket = false;
};

}  // namespace zyl::backbone::system::posix

#endif

#ifndef ZYL_BACKBONE_SYSTEM_POSIX_LISTENINGSOCKET_H
#define ZYL_BACKBONE_SYSTEM_POSIX_LISTENINGSOCKET_H

#include <optional>
#include <string>

#include "system/System.h"
#include "system/posix/DomainDirectory.h"
#include "system/posix/Poller.h"

namespace zyl::backbone::system::posix {

/// The file name of the socket on which a process is met.
std::string SocketFileOf(const Identity& identity);

/// Who has connected a socket, or listened for it, as the kernel tells it.
struct SocketPeer {
    int pid = 0;  ///< 0: none that this process can see
    /// The user's number, if it is another one than this process's, or cannot be seen.
    std::optional<unsigned> strangeUser;
};
SocketPeer PeerOf(int socket);

/// The socket on which this process is met in a domain. Its end removes the file.
class ListeningSocket {
  public:
    /// All outlive the object.
    ListeningSocket(const DomainDirectory& directory, const Poller& poller, SpareDescriptors& spares,
                    const Identity& identity);
    ~ListeningSocket() { Close(); }
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    /// Is told when somebody waits to be accepted. Called while it is not open.
    void Watch(Watcher& watcher) { m_watcher = &watcher; }

    /// False, and errno set: it cannot be made, and ENOENT when the directory is deleted.
    bool Open();
    bool IsOpen() const { return m_socket.IsOpen(); }
    void Close();

    Names::Acceptance Accept();

  private:
    bool Bind();
    bool SomebodyWaits() const;
    Names::Acceptance Shortage() const;

    const DomainDirectory& m_directory;
    const Poller& m_poller;
    SpareDescriptors& m_spares;
    std::string m_file;
    std::string m_fileBefore;
    Watcher* m_watcher = nullptr;
    FileDescriptor m_socket;
    std::optional<PollerEntry> m_entry;
};

}  // namespace zyl::backbone::system::posix

#endif

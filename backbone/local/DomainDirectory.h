#ifndef ZYL_BACKBONE_LOCAL_DOMAINDIRECTORY_H
#define ZYL_BACKBONE_LOCAL_DOMAINDIRECTORY_H

#include <optional>
#include <string>
#include <vector>

#include "FileDescriptor.h"

/// A domain on disk: one directory that only its owner may enter. Every application E (its name in a safe
/// form) has
///
///   l.E   lock file, locked by the living holder, so a dead one is recognised at once: its pid and real name
///   a.E   the socket of an announced application, or
///   h.E   the socket of a passing helper
///   t.E   the socket before it accepts connections
///   w.E   empty: the application wants to hear of every newcomer
///
/// What belongs to a name is made and removed under its lock, and the lock file is removed last. What a dead
/// holder left is removed by the next process that joins the domain, or takes the name.

namespace zyl::backbone::local {

/// The safe form of a name: letters, digits and '-' stand for themselves, other bytes become %XX; a name that
/// would be longer than a socket address allows becomes its beginning, '~' and a hash. It never contains '/'
/// or '.'.
std::string SafeName(const std::string& name);

class DomainDirectory;

/// A name held by this process: its lock, and its listening socket. Its end gives the name back.
class Claim {
  public:
    Claim(const DomainDirectory& directory, std::string safeName, FileDescriptor lock, FileDescriptor socket);
    Claim(Claim&&) = default;
    ~Claim();

    int Socket() const { return m_socket.Get(); }

  private:
    const DomainDirectory* m_directory;
    std::string m_safeName;
    FileDescriptor m_lock;
    FileDescriptor m_socket;
};

/// A connection that this process has opened.
struct Connected {
    FileDescriptor socket;
    int pid = 0;
    bool announced = false;
};

class DomainDirectory {
  public:
    /// Opens, or makes, the directory of `domain` under `base` (empty: $XDG_RUNTIME_DIR/zyl-backbone, else
    /// /tmp/zyl-backbone-<uid>). Base and domain must belong to this user and be closed to all others, and
    /// may not be symbolic links; anything else is a fatal error that says which, and what to do. Removes
    /// what processes that were killed have left in it.
    DomainDirectory(const std::string& base, const std::string& domain);
    /// Removes the directory if nobody holds a name in it.
    ~DomainDirectory();
    DomainDirectory(const DomainDirectory&) = delete;
    DomainDirectory& operator=(const DomainDirectory&) = delete;

    const std::string& Path() const { return m_path; }

    /// Takes the name and listens for it. Throws NameTaken.
    Claim Take(const std::string& name, bool announced);
    /// Connects to the application, without waiting for it to accept. Not open when it is not there.
    Connected Connect(const std::string& name);
    /// The process that holds the name, or left it without giving it back and nobody has tidied up since; 0:
    /// there is none; nothing: that cannot be seen.
    std::optional<int> Holder(const std::string& name) const;
    /// From now on Watchers lists the application, which this process holds.
    void MarkWatcher(const std::string& name) const;
    /// The real names of all announced applications, and of all that want to hear of newcomers.
    std::vector<std::string> Announced() const { return Names('a'); }
    std::vector<std::string> Watchers() const { return Names('w'); }

  private:
    friend class Claim;

    /// The safe names, or the real ones, for which there is a file of the kind.
    std::vector<std::string> Files(char kind) const;
    std::vector<std::string> Names(char kind) const;
    void RemoveLeftovers() const;
    /// For the holder of the lock.
    void Clear(const std::string& safeName) const;
    void Vacate(const std::string& safeName) const;
    FileDescriptor Lock(const std::string& safeName);
    FileDescriptor Listen(const std::string& safeName, char kind) const;
    std::optional<std::string> RealName(const std::string& safeName) const;
    void Remove(const std::string& file) const;

    void Open();
    bool Renew();

    std::string m_base;
    std::string m_name;
    std::string m_path;
    FileDescriptor m_descriptor;
};

}  // namespace zyl::backbone::local

#endif

#ifndef ZYL_BACKBONE_SYSTEM_POSIX_DOMAINDIRECTORY_H
#define ZYL_BACKBONE_SYSTEM_POSIX_DOMAINDIRECTORY_H

#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <vector>

#include "system/posix/SpareDescriptors.h"

/// A domain on disk: one directory that only its owner may enter.
///
///   l.<safe name>   the lock file of a name; see LockFile.h
///   s.<identity>    the socket on which a process is met, for all its names; made before it takes one
///   t.<identity>    the same before it accepts connections
///
/// A process that leaves removes its lock files and then its socket, so what is left of one that was killed
/// always includes a socket that nobody listens on. The next process that joins removes that.

namespace zyl::backbone::system::posix {

class DomainDirectory {
  public:
    /// Opens, or makes, the directory of `domain` under `base` (empty: $XDG_RUNTIME_DIR/zyl-backbone, else
    /// /tmp/zyl-backbone-<uid>). Base and domain must belong to this user and be closed to all others, and
    /// may not be symbolic links; anything else is a fatal error that says which, and what to do.
    DomainDirectory(SpareDescriptors& spares, const std::string& base, const std::string& domain);
    /// Removes the directory if nothing is in it.
    ~DomainDirectory();
    DomainDirectory(const DomainDirectory&) = delete;
    DomainDirectory& operator=(const DomainDirectory&) = delete;

    const std::string& Path() const { return m_path; }

    /// Whether it was deleted, if only to be made anew by somebody else.
    bool IsDeleted() const;
    /// Opens the one that stands at this place now, made if there is none.
    void Reopen();

    /// The names of all its files; empty and errno set when it cannot be read.
    std::vector<std::string> Files() const;
    /// A file that is closed again before the caller returns, who calls SpareDescriptors::Refill then.
    FileDescriptor OpenForAMoment(const std::string& file, int flags) const;
    FileDescriptor OpenToKeep(const std::string& file, int flags) const;
    void Remove(const std::string& file) const;
    bool Rename(const std::string& from, const std::string& to) const;
    /// Where a socket of this name is bound or connected to.
    sockaddr_un AddressOf(const std::string& file) const;
    /// Whether this process has the turn to tidy up: of a crowd that joins at once only one has it. It ends
    /// with the descriptor.
    FileDescriptor TurnToTidy() const;

    /// Ends the process with a line that names the directory, the reason and errno, and says what to do.
    [[noreturn]] void RefuseForError(const std::string& reason) const;

  private:
    SpareDescriptors& m_spares;
    std::string m_base;
    std::string m_name;
    std::string m_path;
    FileDescriptor m_descriptor;
};

}  // namespace zyl::backbone::system::posix

#endif

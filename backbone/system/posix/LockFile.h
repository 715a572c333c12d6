#ifndef ZYL_BACKBONE_SYSTEM_POSIX_LOCKFILE_H
#define ZYL_BACKBONE_SYSTEM_POSIX_LOCKFILE_H

#include <optional>
#include <string>
#include <utility>

#include "platform/system/FileDescriptor.h"
#include "system/System.h"

/// The lock file of a name. Its holder keeps it open, and two of its bytes locked, from the claim to its end:
///
///   byte 0                   the right to the name; whoever removes what a dead holder left has it for a moment
///   a byte far behind,       the holder's life: nobody else locks it, so looking at it tells whether this very
///   set by the identity      holder lives, whatever is done to the file meanwhile
///
/// Neither byte says anything by its content, which is text:
///
///   line 1   "w" when the holder wants to hear of every newcomer, else "-"
///   line 2   HashText of what follows: a text that is just being written does not fit
///   line 3   order, identity (32 hexadecimal digits), pid, "a" for an announced application or "h" for a passing
///            helper; one blank between them
///   line 4   host
///   line 5.. the name, up to the end of the file
///
/// A name is written while its life is locked already: whoever reads it finds its holder alive.

namespace zyl::backbone::system::posix {

class LockFile {
  public:
    explicit LockFile(platform::FileDescriptor file) : m_file(std::move(file)) {}

    bool IsOpen() const { return m_file.IsOpen(); }
    /// Whether the file has been removed since it was opened.
    bool IsRemoved() const;

    /// Takes the right to the name, until this object ends. False when somebody has it, or errno is another
    /// one than EAGAIN.
    bool TakeRight() const;
    /// Takes it for a holder.
    bool TakeFor(const Identity& holder) const;
    /// Whether `holder` has it; nothing where that cannot be seen.
    std::optional<bool> IsHeldBy(const Identity& holder) const;

    /// Nothing where no whole entry stands.
    std::optional<Entry> Read() const;
    /// False and errno set when it cannot be written.
    bool Write(const Entry& entry) const;
    bool MarkWatcher() const;

  private:
    platform::FileDescriptor m_file;
};

/// 32 hexadecimal digits.
std::string TextOf(const Identity& identity);

}  // namespace zyl::backbone::system::posix

#endif

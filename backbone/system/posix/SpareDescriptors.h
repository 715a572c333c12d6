#ifndef ZYL_BACKBONE_SYSTEM_POSIX_SPAREDESCRIPTORS_H
#define ZYL_BACKBONE_SYSTEM_POSIX_SPAREDESCRIPTORS_H

#include <array>
#include <cerrno>
#include <cstddef>

#include "platform/system/FileDescriptor.h"
#include "platform/system/Retried.h"

namespace zyl::backbone::system::posix {

using platform::FileDescriptor;
using platform::Retried;

/// Places for descriptors that this process keeps for the time when it gets no others. The last one is only
/// for what is closed again within the same call, so that such a call always has a place; the other one may
/// be used up, and is taken back when there are free ones again.
class SpareDescriptors {
  public:
    /// Too few descriptors for this are a fatal error.
    SpareDescriptors();

    /// What `open`, a system call, makes: not open and errno set where it fails, also with a spare. The
    /// caller closes it before it returns, and calls Refill.
    template <class Open>
    FileDescriptor ForAMoment(Open open) {
        return Opened(0, open);
    }
    /// The same for what stays open.
    template <class Open>
    FileDescriptor ToKeep(Open open) {
        return Opened(1, open);
    }

    /// Makes one place, for the moment until Refill. False when there is none to be made; errno says why.
    bool GiveUpOne();
    /// Takes back what was given up. False when that is not possible now; errno says why.
    bool Refill();

  private:
    template <class Open>
    FileDescriptor Opened(std::size_t toBeLeft, Open open) {
        FileDescriptor made(Retried(open));
        if (!made.IsOpen() && errno == EMFILE && m_count > toBeLeft) {
            m_spares[--m_count].Close();
            made = FileDescriptor(Retried(open));
        }
        return made;
    }

    /// What the spares are copies of: a copy costs next to nothing.
    FileDescriptor m_original;
    std::array<FileDescriptor, 2> m_spares;
    std::size_t m_count = 0;
};

}  // namespace zyl::backbone::system::posix

#endif

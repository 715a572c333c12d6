#ifndef ZYL_BACKBONE_SYSTEM_POSIX_LEFTOVERS_H
#define ZYL_BACKBONE_SYSTEM_POSIX_LEFTOVERS_H

#include "system/posix/DomainDirectory.h"

namespace zyl::backbone::system::posix {

/// Removes what processes that were killed have left in the directory, unless another process is about it.
void RemoveLeftovers(const DomainDirectory& directory);

}  // namespace zyl::backbone::system::posix

#endif

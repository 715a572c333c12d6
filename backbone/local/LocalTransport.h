#ifndef ZYL_BACKBONE_LOCAL_LOCALTRANSPORT_H
#define ZYL_BACKBONE_LOCAL_LOCALTRANSPORT_H

#include <memory>

#include "transport/Settings.h"
#include "transport/Transport.h"

namespace zyl::backbone {

/// The transport between the processes of one user on one machine: no server, no configuration.
///
/// An application is a listening Unix stream socket in its domain's directory (local/DomainDirectory.h). Who
/// sends to it connects to it; who wants to hear of its end connects to it as well, and a newcomer connects
/// to everybody who wants to hear of newcomers. So a process's end is an end of file on every link to or from
/// it, which the kernel gives at once, however the process ended. What it had written before stays readable.
std::unique_ptr<Transport> MakeLocalTransport(const Settings& settings);

}  // namespace zyl::backbone

#endif

#ifndef ZYL_BACKBONE_TRANSPORT_TRANSPORTS_H
#define ZYL_BACKBONE_TRANSPORT_TRANSPORTS_H

#include <memory>

#include "system/System.h"
#include "transport/Transport.h"

namespace zyl::backbone {

/// The transport that ZYL_BACKBONE names, with the settings of its own from the environment. An unknown one
/// is a fatal error that lists those there are. `system` outlives the transport.
std::unique_ptr<Transport> MakeTransport(system::System& system);

}  // namespace zyl::backbone

#endif

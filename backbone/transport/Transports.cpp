#include "Transports.h"

#include <fmt/format.h>

#include <string>

#include "Diagnostics.h"
#include "Environment.h"
#include "local/LocalTransport.h"

namespace zyl::backbone {

namespace {

constexpr const char* kSourceFile = "backbone/transport/Transports";

}  // namespace

std::unique_ptr<Transport> MakeTransport(system::System& system) {
    const std::string name = environment::Text("ZYL_BACKBONE");
    if (name.empty() || name == "local") {
        return local::MakeLocalTransport(system, local::LocalSettings::FromEnvironment());
    }
    Fatal(fmt::format("ZYL_BACKBONE is {}; the one transport of this library is 'local'", Quoted(name)),
          kSourceFile, __LINE__);
}

}  // namespace zyl::backbone

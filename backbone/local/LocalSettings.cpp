#include <fmt/format.h>

#include "Diagnostics.h"
#include "LocalTransport.h"
#include "transport/Environment.h"

namespace zyl::backbone::local {

namespace {

constexpr const char* kSourceFile = "backbone/local/LocalSettings";

}  // namespace

LocalSettings LocalSettings::FromEnvironment() {
    LocalSettings settings;
    settings.directory = environment::Text("ZYL_BACKBONE_DIR");
    const std::string lane = environment::Text("ZYL_BACKBONE_LANE");
    if (lane == "socket") {
        settings.lanes = false;
    } else if (!lane.empty() && lane != "memory") {
        Fatal(fmt::format("ZYL_BACKBONE_LANE is {}; it must be 'memory' or 'socket'", Quoted(lane)),
              kSourceFile, __LINE__);
    }
    return settings;
}

}  // namespace zyl::backbone::local

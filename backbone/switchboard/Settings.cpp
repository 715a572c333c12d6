#include "Settings.h"

#include "transport/Environment.h"

namespace zyl::backbone {

Settings Settings::FromEnvironment() {
    Settings settings;
    settings.connectTimeout = environment::Seconds("ZYL_BACKBONE_CONNECT_TIMEOUT", settings.connectTimeout);
    return settings;
}

}  // namespace zyl::backbone

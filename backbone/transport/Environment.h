#ifndef ZYL_BACKBONE_TRANSPORT_ENVIRONMENT_H
#define ZYL_BACKBONE_TRANSPORT_ENVIRONMENT_H

#include <chrono>
#include <string>

/// The settings of the backbone are environment variables with the prefix ZYL_BACKBONE_; docs/backbone.md
/// lists them. They are read once, on the thread that first uses the backbone.

namespace zyl::backbone::environment {

/// The variable's value; empty where it is not set.
std::string Text(const char* variable);

/// A number of seconds from 0 to a year; `standard` where the variable is not set. Anything else is a fatal
/// error that names the variable.
std::chrono::milliseconds Seconds(const char* variable, std::chrono::milliseconds standard);

}  // namespace zyl::backbone::environment

#endif

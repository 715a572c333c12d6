#include "transport/Settings.h"

#include <charconv>
#include <cstdlib>

#include "Diagnostics.h"

namespace zyl::backbone {

namespace {

constexpr const char* kSourceFile = "backbone/transport/Settings";

/// A year: beyond any wait that is meant, and far from overflow in milliseconds.
constexpr double kLongestTimeout = 365.0 * 24 * 3600;

const char* Variable(const char* name) {
    const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): the backbone has one thread
    return value != nullptr ? value : "";
}

std::chrono::milliseconds Seconds(const char* name, std::chrono::milliseconds standard) {
    const std::string text = Variable(name);
    if (text.empty()) {
        return standard;
    }
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool valid = error == std::errc() && end == text.data() + text.size() && seconds >= 0 &&
                       seconds <= kLongestTimeout;
    if (!valid) {
        Fatal(
            std::string(name) + " is " + Quoted(text) + "; it must be a number of seconds from 0 to 31536000",
            kSourceFile, __LINE__);
    }
    return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

}  // namespace

Settings Settings::FromEnvironment() {
    Settings settings;
    const std::string transport = Variable("ZYL_BACKBONE");
    if (!transport.empty() && transport != "local") {
        Fatal("ZYL_BACKBONE is " + Quoted(transport) + "; the one transport of this library is 'local'",
              kSourceFile, __LINE__);
    }
    settings.directory = Variable("ZYL_BACKBONE_DIR");
    if (!settings.directory.empty() && settings.directory.front() != '/') {
        Fatal("ZYL_BACKBONE_DIR is " + QuotedPath(settings.directory) + "; it must be an absolute path",
              kSourceFile, __LINE__);
    }
    const std::string lane = Variable("ZYL_BACKBONE_LANE");
    if (lane == "socket") {
        settings.lane = Lane::kSocket;
    } else if (!lane.empty() && lane != "memory") {
        Fatal("ZYL_BACKBONE_LANE is " + Quoted(lane) + "; it must be 'memory' or 'socket'", kSourceFile,
              __LINE__);
    }
    settings.connectTimeout = Seconds("ZYL_BACKBONE_CONNECT_TIMEOUT", settings.connectTimeout);
    return settings;
}

}  // namespace zyl::backbone

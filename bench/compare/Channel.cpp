#include "Channel.h"

#include <fmt/core.h>

#include <stdexcept>

namespace {

struct Kind {
    const char* name;
    std::unique_ptr<Channel> (*open)(const Channel::Setup&);
};

const Kind kKinds[] = {
    {"zyl", OpenZylChannel},         {"unix socket", OpenSocketChannel},
#ifdef ZYL_BENCH_ZEROMQ
    {"ZeroMQ PAIR", OpenZeroMqPair}, {"ZeroMQ ROUTER", OpenZeroMqRouter},
#endif
#ifdef ZYL_BENCH_NNG
    {"nng pair", OpenNngChannel},
#endif
};

}  // namespace

std::unique_ptr<Channel> Channel::Open(const Setup& setup) {
    if (setup.kind == "zyl record") {
        return OpenZylChannel(setup);
    }
    for (const Kind& kind : kKinds) {
        if (setup.kind == kind.name) {
            return kind.open(setup);
        }
    }
    throw std::runtime_error(fmt::format("there is no channel of kind {}", setup.kind));
}

std::vector<std::string> Channel::Kinds() {
    std::vector<std::string> names;
    for (const Kind& kind : kKinds) {
        names.emplace_back(kind.name);
    }
    return names;
}

std::vector<std::string> Channel::MissingKinds() {
    std::vector<std::string> names;
#ifndef ZYL_BENCH_ZEROMQ
    names.emplace_back("ZeroMQ");
#endif
#ifndef ZYL_BENCH_NNG
    names.emplace_back("nng");
#endif
    return names;
}

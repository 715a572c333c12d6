#ifndef ZYL_BENCH_PAIR_H
#define ZYL_BENCH_PAIR_H

#include <cstddef>
#include <string>
#include <vector>

#include "Child.h"

/// A measurement between two processes: what both of them are told.
struct Pairing {
    std::string kind;
    std::size_t size = 64;    ///< of a message
    std::size_t answer = 64;  ///< of what comes back
    std::size_t count = 0;
    std::size_t warmUp = 1000;
    int serverProcessor = -1;
    int clientProcessor = -1;
    int identifier = -1;
};

/// Every kind of channel that RunPair can run: this project first, then the peers that are installed.
std::vector<std::string> Contenders();
/// The peers that are not installed.
std::vector<std::string> MissingContenders();

/// Runs two roles of ChannelRoles.h against each other and gives the client's figures.
Figures RunPair(const std::string& serverRole, const std::string& clientRole, const Pairing& pairing);

#endif

#include "Pair.h"

#include <filesystem>

#include "Channel.h"
#include "RunDirectory.h"

namespace {

/// OpenMPI starts its processes itself, so its channel is in a program of its own beside this one.
constexpr const char* kOpenMpiProgram = "compare_openmpi";

/// Large messages pass with one copy, by a call of the system that reads from the other process...
constexpr const char* kOpenMpi = "OpenMPI";
/// ... or with two, through shared memory.
constexpr const char* kOpenMpiTwoCopies = "OpenMPI, two copies";

bool IsOpenMpi(const Pairing& pairing) {
    return pairing.kind == kOpenMpi || pairing.kind == kOpenMpiTwoCopies;
}

std::vector<std::string> RoleArguments(const std::string& role, const Pairing& pairing,
                                       const std::string& directory, const std::string& self,
                                       const std::string& peer, int processor) {
    return {"role",         role,
            "--kind",       pairing.kind,
            "--directory",  directory,
            "--self",       self,
            "--peer",       peer,
            "--size",       std::to_string(pairing.size),
            "--answer",     std::to_string(pairing.answer),
            "--count",      std::to_string(pairing.count),
            "--warm-up",    std::to_string(pairing.warmUp),
            "--processor",  std::to_string(processor),
            "--identifier", std::to_string(pairing.identifier)};
}

void Append(std::vector<std::string>& command, const std::vector<std::string>& more) {
    command.insert(command.end(), more.begin(), more.end());
}

/// The server comes first: it is the one that the launcher passes the end of the standard input to.
std::vector<std::string> MpirunCommand(const Pairing& pairing, const std::vector<std::string>& server,
                                       const std::vector<std::string>& client) {
    const std::string program =
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / kOpenMpiProgram;
    std::vector<std::string> command{"mpirun", "--allow-run-as-root", "--oversubscribe", "--bind-to",
                                     "none",  // the roles choose their processors
                                     "--quiet"};
    if (pairing.kind == kOpenMpiTwoCopies) {
        Append(command, {"--mca", "btl_vader_single_copy_mechanism", "none"});
    }
    if (pairing.serverProcessor >= 0 && pairing.serverProcessor == pairing.clientProcessor) {
        Append(command, {"--mca", "mpi_yield_when_idle", "1"});  // else each waits for the other's time slice
    }
    Append(command, {"-np", "1", program});
    Append(command, server);
    Append(command, {":", "-np", "1", program});
    Append(command, client);
    return command;
}

}  // namespace

std::vector<std::string> Contenders() {
    std::vector<std::string> kinds = Channel::Kinds();
#ifdef ZYL_BENCH_OPENMPI
    kinds.emplace_back(kOpenMpi);
    kinds.emplace_back(kOpenMpiTwoCopies);
#endif
    return kinds;
}

std::vector<std::string> MissingContenders() {
    std::vector<std::string> kinds = Channel::MissingKinds();
#ifndef ZYL_BENCH_OPENMPI
    kinds.emplace_back(kOpenMpi);
#endif
    return kinds;
}

Figures RunPair(const std::string& serverRole, const std::string& clientRole, const Pairing& pairing) {
    const BackboneRun run;
    const std::vector<std::string> forServer =
        RoleArguments(serverRole, pairing, run.Path(), "server", "client", pairing.serverProcessor);
    const std::vector<std::string> forClient =
        RoleArguments(clientRole, pairing, run.Path(), "client", "server", pairing.clientProcessor);
    if (IsOpenMpi(pairing)) {
        return Child(MpirunCommand(pairing, forServer, forClient)).Finish();
    }
    Child server = Child::InRole(forServer);
    Child client = Child::InRole(forClient);
    Figures figures = client.Finish();
    server.Finish();
    return figures;
}

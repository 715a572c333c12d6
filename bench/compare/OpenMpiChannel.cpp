#include <fmt/core.h>
#include <mpi.h>

#include <stdexcept>

#include "ChannelRoles.h"
#include "RoleCommand.h"
#include "RunReporting.h"

/// OpenMPI as a peer of the comparison: a program that `mpirun` starts twice, first as the role that serves.

namespace {

/// The plain calls between two ranks. An error ends both processes: that is how OpenMPI comes.
class OpenMpiChannel final : public Channel {
  public:
    explicit OpenMpiChannel(const Setup& setup) : m_buffer(setup.IncomingSize()) {
        MPI_Init(nullptr, nullptr);
        int self = 0;
        MPI_Comm_rank(MPI_COMM_WORLD, &self);
        m_peer = 1 - self;
    }
    ~OpenMpiChannel() override { MPI_Finalize(); }

    void Send(const std::vector<char>& message) override {
        MPI_Send(message.data(), static_cast<int>(message.size()), MPI_BYTE, m_peer, 0, MPI_COMM_WORLD);
    }

    void Receive(std::size_t count, const Each& each) override {
        for (; count > 0; --count) {
            MPI_Status status;
            MPI_Recv(m_buffer.data(), static_cast<int>(m_buffer.size()), MPI_BYTE, m_peer, 0, MPI_COMM_WORLD,
                     &status);
            int size = 0;
            MPI_Get_count(&status, MPI_BYTE, &size);
            each({m_buffer.data(), static_cast<std::size_t>(size)});
        }
    }

  private:
    int m_peer = 0;
    std::vector<char> m_buffer;
};

std::unique_ptr<Channel> Open(const Channel::Setup& setup) {
    return std::make_unique<OpenMpiChannel>(setup);
}

int Run(int argc, char** argv) {
    CLI::App program("One of the two processes of a measurement with OpenMPI; started by compare.");
    AddRoleCommand(program, [](const std::string& role, RoleOptions& options) {
        if (!RunChannelRole(role, options, Open)) {
            throw std::invalid_argument(fmt::format("there is no role {} with OpenMPI", role));
        }
    });
    CLI11_PARSE(program, argc, argv);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return RunReporting("compare_openmpi", Run, argc, argv);
}

#include <fmt/core.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "Channel.h"

namespace {

std::system_error SystemError(const std::string& what) {
    return {errno, std::generic_category(), what};
}

/// The plain loop over a stream socket: one write and one read for each message, whose size both ends know.
class SocketChannel final : public Channel {
  public:
    explicit SocketChannel(const Setup& setup) : m_buffer(setup.IncomingSize()) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = fmt::format("{}/socket", setup.directory);
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        m_socket = setup.serves ? Accept(address) : Connect(address);
    }
    ~SocketChannel() override { close(m_socket); }

    void Send(const std::vector<char>& message) override {
        for (std::size_t sent = 0; sent < message.size();) {
            const ssize_t count = write(m_socket, message.data() + sent, message.size() - sent);
            if (count < 0) {
                throw SystemError("write");
            }
            sent += static_cast<std::size_t>(count);
        }
    }

    void Receive(std::size_t count, const Each& each) override {
        for (; count > 0; --count) {
            ReceiveOne();
            each(m_buffer);
        }
    }

  private:
    static int Accept(const sockaddr_un& address) {
        const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(listener, 1) != 0) {
            throw SystemError("bind");
        }
        const int accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        close(listener);
        return accepted;
    }

    static int Connect(const sockaddr_un& address) {
        const int connected = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        while (connect(connected, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            if (errno != ENOENT && errno != ECONNREFUSED) {
                throw SystemError("connect");
            }
            usleep(1000);  // the other end is starting
        }
        return connected;
    }

    void ReceiveOne() {
        for (std::size_t received = 0; received < m_buffer.size();) {
            const ssize_t count = read(m_socket, m_buffer.data() + received, m_buffer.size() - received);
            if (count <= 0) {
                throw SystemError("read");
            }
            received += static_cast<std::size_t>(count);
        }
    }

    int m_socket = -1;
    std::vector<char> m_buffer;
};

}  // namespace

std::unique_ptr<Channel> OpenSocketChannel(const Channel::Setup& setup) {
    return std::make_unique<SocketChannel>(setup);
}

#include <fmt/core.h>
#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>

#include <stdexcept>

#include "Channel.h"

namespace {

void Check(int result, const char* what) {
    if (result != 0) {
        throw std::runtime_error(fmt::format("nng {}: {}", what, nng_strerror(result)));
    }
}

class NngChannel final : public Channel {
  public:
    explicit NngChannel(const Setup& setup) : m_buffer(setup.IncomingSize()) {
        Check(nng_pair0_open(&m_socket), "open");
        Check(nng_socket_set_size(m_socket, NNG_OPT_RECVMAXSZ, 0), "option");
        const std::string address = fmt::format("ipc://{}/nng", setup.directory);
        Check(setup.serves ? nng_listen(m_socket, address.c_str(), nullptr, 0)
                           : nng_dial(m_socket, address.c_str(), nullptr, NNG_FLAG_NONBLOCK),
              "address");
    }
    ~NngChannel() override { nng_close(m_socket); }

    void Send(const std::vector<char>& message) override {
        // The copy that nng takes; it does not change the bytes.
        Check(nng_send(m_socket, const_cast<char*>(message.data()), message.size(), 0), "send");
    }

    void Receive(std::size_t count, const Each& each) override {
        for (; count > 0; --count) {
            std::size_t size = m_buffer.size();
            Check(nng_recv(m_socket, m_buffer.data(), &size, 0), "receive");
            each({m_buffer.data(), size});
        }
    }

  private:
    nng_socket m_socket{};
    std::vector<char> m_buffer;
};

}  // namespace

std::unique_ptr<Channel> OpenNngChannel(const Channel::Setup& setup) {
    return std::make_unique<NngChannel>(setup);
}

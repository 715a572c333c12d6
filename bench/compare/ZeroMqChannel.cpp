#include <fmt/core.h>
#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "Channel.h"

namespace {

void Check(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(fmt::format("ZeroMQ {}: {}", what, zmq_strerror(errno)));
    }
}

/// A socket of its own context, with the options it comes with.
class ZeroMqChannel : public Channel {
  public:
    ZeroMqChannel(const Setup& setup, int type)
        : m_context(zmq_ctx_new()),
          m_socket(zmq_socket(m_context, type)),
          m_buffer(std::max(setup.IncomingSize(), setup.peer.size())) {}
    ~ZeroMqChannel() override {
        zmq_close(m_socket);
        zmq_ctx_term(m_context);
    }

  protected:
    void Meet(const Setup& setup) {
        const std::string address = fmt::format("ipc://{}/zeromq", setup.directory);
        Check((setup.serves ? zmq_bind : zmq_connect)(m_socket, address.c_str()) == 0, "address");
    }
    std::span<const char> ReceiveFrame() {
        const int size = zmq_recv(m_socket, m_buffer.data(), m_buffer.size(), 0);
        Check(size >= 0, "receive");
        return {m_buffer.data(), static_cast<std::size_t>(size)};
    }

    void* m_context;
    void* m_socket;
    std::vector<char> m_buffer;
};

class Pair final : public ZeroMqChannel {
  public:
    explicit Pair(const Setup& setup) : ZeroMqChannel(setup, ZMQ_PAIR) { Meet(setup); }
    void Send(const std::vector<char>& message) override {
        Check(zmq_send(m_socket, message.data(), message.size(), 0) >= 0, "send");
    }
    void Receive(std::size_t count, const Each& each) override {
        for (; count > 0; --count) {
            each(ReceiveFrame());
        }
    }
};

/// Named ends: each message carries the name of the one it is for, and comes with the sender's.
class Router final : public ZeroMqChannel {
  public:
    explicit Router(const Setup& setup) : ZeroMqChannel(setup, ZMQ_ROUTER), m_peer(setup.peer) {
        const int mandatory = 1;  // a name that is not there yet is an error, not a loss
        zmq_setsockopt(m_socket, ZMQ_ROUTER_MANDATORY, &mandatory, sizeof mandatory);
        zmq_setsockopt(m_socket, ZMQ_ROUTING_ID, setup.self.data(), setup.self.size());
        Meet(setup);
    }
    void Send(const std::vector<char>& message) override {
        while (zmq_send(m_socket, m_peer.data(), m_peer.size(), ZMQ_SNDMORE) < 0) {
            Check(errno == EHOSTUNREACH, "send");
            usleep(1000);  // the other end is starting
        }
        Check(zmq_send(m_socket, message.data(), message.size(), 0) >= 0, "send");
    }
    void Receive(std::size_t count, const Each& each) override {
        for (; count > 0; --count) {
            ReceiveFrame();  // the sender's name
            each(ReceiveFrame());
        }
    }

  private:
    std::string m_peer;
};

}  // namespace

std::unique_ptr<Channel> OpenZeroMqPair(const Channel::Setup& setup) {
    return std::make_unique<Pair>(setup);
}

std::unique_ptr<Channel> OpenZeroMqRouter(const Channel::Setup& setup) {
    return std::make_unique<Router>(setup);
}

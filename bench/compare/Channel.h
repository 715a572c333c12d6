#ifndef ZYL_BENCH_CHANNEL_H
#define ZYL_BENCH_CHANNEL_H

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// One end of a path for whole messages between two processes: the common face of what is compared.
class Channel {
  public:
    struct Setup {
        std::string kind;
        std::string directory;  ///< private to the run; both ends meet here
        std::string self;
        std::string peer;
        bool serves = false;     ///< the end that is found by the other one
        std::size_t size = 0;    ///< of every message that goes to the end that serves
        std::size_t answer = 0;  ///< of every message that comes back
        int identifier = -1;     ///< length of this project's message identifier, where it is not `self`

        std::size_t IncomingSize() const { return serves ? size : answer; }
    };
    /// Is given each message that comes; the bytes are valid during the call only.
    using Each = std::function<void(std::span<const char> body)>;

    static std::unique_ptr<Channel> Open(const Setup& setup);

    /// This project first, then the peers that are installed and can be opened here.
    static std::vector<std::string> Kinds();
    /// The peers that are not installed.
    static std::vector<std::string> MissingKinds();

    virtual ~Channel() = default;
    virtual void Send(const std::vector<char>& message) = 0;
    /// Returns when `count` messages have come; `each` is called for every one, and may send.
    virtual void Receive(std::size_t count, const Each& each) = 0;
};

std::unique_ptr<Channel> OpenZylChannel(const Channel::Setup& setup);
std::unique_ptr<Channel> OpenSocketChannel(const Channel::Setup& setup);
std::unique_ptr<Channel> OpenZeroMqPair(const Channel::Setup& setup);
std::unique_ptr<Channel> OpenZeroMqRouter(const Channel::Setup& setup);
std::unique_ptr<Channel> OpenNngChannel(const Channel::Setup& setup);

#endif

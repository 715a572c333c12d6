#ifndef ZYL_TESTS_PEER_H
#define ZYL_TESTS_PEER_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Process.h"

/// This process in the domain "job", over the plain functions. There is one at a time, for the backbone's
/// callbacks carry no context. Every body tells its sender and its number, and every message that comes is
/// held against that; what comes first from a sender may have any number.
class Participant {
  public:
    Participant();
    void Declare(const std::string& name) const;
    void Receive(const std::string& name) const;
    void Watch(const std::string& name) const;
    /// Sends messages of `size` bytes, or of as many as it takes to number them; without any byte where it is 0.
    void Send(const std::string& target, int count, std::size_t size);
    /// Runs the waiting loop until so many messages and losses have come in all, for a minute at most.
    void Await(int messages, std::size_t losses);
    /// What has come: "3 messages, NAME lost after 2".
    std::string Account() const;

    int Domain() const { return m_domain; }
    /// Called for each message, inside the callback.
    std::function<void()> onMessage = [] {};

  private:
    void Hear(const std::string& type, const std::string& body);
    void Lose(int pid, const std::string& application, const std::string& host, const std::string& user);

    int m_domain = 0;
    int m_messages = 0;
    int m_stirred = 1;
    std::vector<std::string> m_events;           ///< losses, and messages that are not as they must be
    std::map<std::string, int> m_sent, m_heard;  ///< numbers, by who sends to whom
};

/// A process that does as a participant what it is told by the orders `declare NAME`, `receive NAME`,
/// `watch NAME`, `send TARGET COUNT SIZE`, `await MESSAGES LOSSES`, `memory BYTES` (it may have so much more than
/// it has), `leave` and `crash`.
class Peer : public Process {
  public:
    Peer();
    /// Has it leave, if it is still there.
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    void Begin(const std::string& order);
    /// Its account once it has done the last order.
    std::string Account();

  private:
    int m_unanswered = 0;
};

/// What peers do one after another. Without an account, any one will do; an order with "&" at its end goes on
/// beside the next steps; no order waits for the end of that, and `leave` and `crash` for the process's.
struct Step {
    std::string peer, order, account{};
};
void Play(std::map<std::string, Peer>& peers, const std::vector<Step>& steps);
void Play(const std::vector<Step>& steps);

#endif

#include "Peer.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <sstream>
#include <utility>

#include "ZYLFeaBackbone.h"

namespace {

Participant* s_me = nullptr;
const std::string* s_type = nullptr;
const std::string* s_body = nullptr;

/// A body of `size` bytes, or as long as what it begins with.
std::string Body(const std::string& stream, int number, std::size_t size) {
    std::string body = fmt::format("{} {} ", stream, number);
    body.reserve(size);
    for (std::size_t index = body.size(); index < size; ++index) {
        body += static_cast<char>(index * 7 + index / 251 + static_cast<std::size_t>(number));
    }
    return body;
}

/// Lets this process have no more memory than it has now and `more` bytes.
void LimitMemoryTo(rlim_t more) {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t size = pages * static_cast<rlim_t>(getpagesize()) + more;
    const rlimit limit{size, size};
    setrlimit(RLIMIT_AS, &limit);
}

template <class Value>
Value Next(std::istream& words) {
    Value value{};
    words >> value;
    return value;
}

void Obey(Participant& me, std::istream& words) {
    const auto order = Next<std::string>(words);
    if (order == "declare") {
        me.Declare(Next<std::string>(words));
    } else if (order == "receive") {
        me.Receive(Next<std::string>(words));
    } else if (order == "watch") {
        me.Watch(Next<std::string>(words));
    } else if (order == "send") {
        const auto target = Next<std::string>(words);
        const auto count = Next<int>(words);
        me.Send(target, count, Next<std::size_t>(words));
    } else if (order == "await") {
        const auto messages = Next<int>(words);
        me.Await(messages, Next<std::size_t>(words));
    } else if (order == "memory") {
        LimitMemoryTo(Next<rlim_t>(words));
    } else if (order == "leave") {
        std::exit(0);
    } else {
        raise(SIGKILL);
    }
}

int ObeyAll() {
    Participant me;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        Obey(me, words);
        Tell(fmt::format("> {}", me.Account()));
    }
    return 0;
}

}  // namespace

Participant::Participant() {
    s_me = this;
    RegisterCommunicator("job", &m_domain);
}

void Participant::Declare(const std::string& name) const {
    DeclareApplicationId(m_domain, name.c_str(), true);
}

void Participant::Receive(const std::string& name) const {
    AssociateHandler(m_domain, name.c_str(), [](const char* type, const void* bytes, int size) {
        s_me->Hear(type, {static_cast<const char*>(bytes), static_cast<std::size_t>(size)});
    });
}

void Participant::Watch(const std::string& name) const {
    AssociateDisconnectHandler(m_domain, name.c_str(),
                               [](int pid, const char* application, const char* host, const char* user) {
                                   s_me->Lose(pid, application, host, user);
                               });
}

void Participant::Send(const std::string& target, int count, std::size_t size) {
    const std::string stream = fmt::format("{}-{:x}", getpid(), std::hash<std::string>{}(target));
    for (int sent = 0; sent < count; ++sent) {
        std::string type = "empty";
        std::string body;
        if (size > 0) {
            const int number = ++m_sent[stream];
            type = fmt::format("t{}", number % 3);
            body = Body(stream, number, size);
        }
        s_type = &type;
        s_body = &body;
        SendRequest(
            m_domain, target.c_str(),
            [](void* room, int) { s_body->copy(static_cast<char*>(room), s_body->size()); },
            [] { return static_cast<int>(s_body->size()); }, [] { return s_type->c_str(); });
    }
}

void Participant::Hear(const std::string& type, const std::string& body) {
    ++m_messages;
    ++m_stirred;
    if (!body.empty() || type != "empty") {
        const std::string stream = body.substr(0, body.find(' '));
        const int number = std::atoi(body.c_str() + std::min(body.size(), stream.size()));
        const int last = std::exchange(m_heard[stream], number);
        if ((last != 0 && number != last + 1) || type != fmt::format("t{}", number % 3) ||
            body != Body(stream, number, body.size())) {
            m_events.push_back(fmt::format("message {} is wrong", m_messages));
        }
    }
    onMessage();
}

void Participant::Lose(int pid, const std::string& application, const std::string& host,
                       const std::string& user) {
    ++m_stirred;
    const bool isWhole = pid >= 0 && !host.empty() && !user.empty();
    m_events.push_back(
        fmt::format("{} lost{} after {}", application, isWhole ? "" : " strangely", m_messages));
}

void Participant::Await(int messages, std::size_t losses) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while ((m_messages < messages || m_events.size() < losses) && std::chrono::steady_clock::now() < end) {
        WaitingLoop(m_domain, 1000, &m_stirred);
    }
}

std::string Participant::Account() const {
    std::string account = fmt::format("{} messages", m_messages);
    for (const std::string& event : m_events) {
        account += ", " + event;
    }
    return account;
}

Peer::Peer() : Process(ObeyAll) {}

Peer::~Peer() {
    if (IsThere()) {
        Say("leave");
        EXPECT_EQ(Wait(), "status 0") << Output();
    }
}

void Peer::Begin(const std::string& order) {
    Say(order);
    ++m_unanswered;
}

std::string Peer::Account() {
    std::string account;
    for (; m_unanswered > 0; --m_unanswered) {
        account = AwaitLine("> ");
    }
    return account.substr(std::min<std::size_t>(account.size(), 2));
}

void Play(std::map<std::string, Peer>& peers, const std::vector<Step>& steps) {
    for (const auto& [name, order, account] : steps) {
        SCOPED_TRACE(fmt::format("{}: {}", name, order));
        Peer& peer = peers[name];
        if (!order.empty()) {
            peer.Begin(order);
        }
        if (order == "leave" || order == "crash") {
            EXPECT_EQ(peer.Wait(), order == "leave" ? "status 0" : "signal 9") << peer.Output();
            peers.erase(name);
        } else if (!order.ends_with('&')) {
            const std::string said = peer.Account();
            EXPECT_EQ(said, account.empty() ? said : account);
        }
    }
}

void Play(const std::vector<Step>& steps) {
    std::map<std::string, Peer> peers;
    Play(peers, steps);
}

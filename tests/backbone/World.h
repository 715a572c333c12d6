#ifndef ZYL_TESTS_BACKBONE_WORLD_H
#define ZYL_TESTS_BACKBONE_WORLD_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"
#include "local/LocalTransport.h"
#include "switchboard/Switchboard.h"

/// A world of real processes that exchange messages, for tests that are written once and run on every
/// transport and lane.

/// Something that one participant waits for and another one gives, outside the backbone.
class Signal {
  public:
    Signal();
    ~Signal();
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;
    void Give();
    void Await();

  private:
    struct Shared;
    Shared* m_shared;
};

/// A number that all participants see.
class Shared {
  public:
    Shared();
    ~Shared();
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    void Set(long value);
    long Get() const;

  private:
    void* m_page;
};

struct Received {
    std::string type;
    std::string body;
};

/// One process's view of the backbone, with the callbacks recording what comes.
class Participant {
  public:
    explicit Participant(std::unique_ptr<zyl::backbone::Transport> transport,
                         const zyl::backbone::Settings& settings);

    zyl::backbone::Switchboard board;
    int domain;

    std::vector<Received> received;
    std::vector<std::string> lost;
    /// Called for each message, inside the callback, after it was recorded.
    std::function<void(const Received&)> onMessage;
    /// Not to be recorded: for tests with many bytes, which look at them in onMessage.
    bool discard = false;

    void Declare(const std::string& name, bool announce = true) {
        board.DeclareApplicationId(domain, name, announce);
    }
    void Receive(const std::string& name);
    void Watch(const std::string& name);
    void Send(const std::string& target, const std::string& type, const std::string& body);
    /// Runs the waiting loop until `condition` holds; fails the test after a minute.
    void WaitUntil(const std::function<bool()>& condition);
    /// Delivers what has come.
    void Look();
    /// Ends the participant without a farewell.
    [[noreturn]] static void Crash();

    void Stir() { ++m_stirred; }

  private:
    int m_stirred = 1;
};

using Role = std::function<void(Participant&)>;

/// Makes the participants' processes, and lets roles play.
class World {
  public:
    explicit World(bool lanes);
    /// Plays all roles at once and returns when the last one has ended. A role's failed assertion fails the
    /// test.
    void Play(const std::vector<Role>& roles) const;

    zyl::backbone::Settings settings;
    zyl::backbone::local::LocalSettings local;

  private:
    TemporaryDirectory m_directory;
};

#endif

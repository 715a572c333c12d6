#include "Program.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include "Arena.h"
#include "Diagnostics.h"
#include "Liar.h"
#include "Oracle.h"
#include "QORText.h"
#include "SimulatedSystem.h"
#include "local/LocalTransport.h"
#include "switchboard/Switchboard.h"

namespace simulated {

namespace {

using std::chrono::milliseconds;

constexpr int kEvery = -1;  // all domains
constexpr int kDomains = 2;
constexpr std::size_t kMostApplications = 8;
/// A forked child closes its copies soon.
constexpr milliseconds kChild{300};

class Player;

/// What the players of one world share.
struct Stage {
    Stage(const Plan& plan_, Choices& choices, World::Director& director, bool tells)
        : plan(plan_), world(plan.weather, choices, director, tells), oracle(plan) {}
    const Plan& plan;
    World world;
    Oracle oracle;
    /// By the numbers of their processes, and on the stacks of these; null: not there yet, or dead.
    std::array<Player*, Fiber::kMost> players{};
    std::vector<const Process*> processes;

    const Application& Of(int application) const {
        return plan.applications[static_cast<std::size_t>(application)];
    }
    Player*& PlayerOf(const Process& process) { return players.at(static_cast<std::size_t>(process.number)); }
};

Stage* g_stage = nullptr;

Player& Current() {
    return *g_stage->PlayerOf(World::Current().Me());
}

zyl::backbone::local::LocalSettings LocalSettingsOf(const Plan& plan) {
    zyl::backbone::local::LocalSettings settings;
    settings.lanes = plan.lanes;
    settings.limits.lane = {plan.ring, plan.ring / 8};
    settings.limits.keptBlocks = 2 * plan.ring;
    settings.limits.pace = {plan.pace, plan.pace, plan.pace, plan.pace};
    return settings;
}

/// One life of an actor: plays its steps over a switchboard of its own, and then loops as long as the world
/// lasts.
class Player {
  public:
    explicit Player(Process& process)
        : m_process(process),
          m_system(process),
          m_board(zyl::backbone::local::MakeLocalTransport(m_system, LocalSettingsOf(g_stage->plan)),
                  {g_stage->plan.connectTimeout, g_stage->plan.Budget()}) {}

    void Play() {
        const auto& lives = g_stage->plan.actors[static_cast<std::size_t>(m_process.actor)];
        for (const Step& step : lives[static_cast<std::size_t>(m_process.life)]) {
            Catching([&] { Do(step); });
            m_world.Deed();
        }
        const std::vector<Application>& applications = g_stage->plan.applications;
        for (std::size_t index = 0; index < applications.size(); ++index) {
            if (applications[index].actor == m_process.actor) {
                Do({Step::What::kReceive, static_cast<int>(index)});
            }
        }
        m_closing = true;
        for (;;) {
            Catching([&] { Loop(kEvery, 0, milliseconds(-1)); });
        }
    }
    Clock::time_point LoopsSince() const { return m_loopsSince; }
    void Signal() { ++m_condition; }
    int Depth() const { return m_depth; }
    /// Waits for what comes to the domain.
    bool Awaits(int domain) const {
        return m_depth > 0 && m_sending < 0 && (m_domain == kEvery || m_domain == domain);
    }
    /// Not yet in its last loop, or held up in it, or deaf to a signal.
    bool IsBusy() const { return !m_closing || m_sending >= 0 || (m_depth > 0 && m_condition != m_atCall); }

    void Receive(int application, const char* type, const char* body, int size) {
        const int domain = g_stage->Of(application).domain;
        m_world.Tell("receives {} of {} bytes", type, size);
        CheckInside(domain);
        if (*type == kLie || *type == '\0') {
            return;
        }
        const Oracle::Message message = m_oracle.Received(m_process, application, type, body, size);
        if (m_enough != 0 && ++m_received >= m_enough) {
            ++m_condition;
        }
        switch (message.reaction) {
            case Reaction::kNothing:
                return;
            case Reaction::kAnswer:
                Send({Step::What::kSend, m_oracle.FirstOf(message.sender), message.size});
                break;
            case Reaction::kRelay:
                Send({Step::What::kSend, message.other, message.size});
                break;
            case Reaction::kWait:
                Loop(domain, 1, milliseconds(message.size % 3 == 0 ? 2500 : message.size % 40));
                break;
            case Reaction::kThrow:
                throw Thrown();
        }
        m_oracle.CheckBody(message, body);
    }
    void Lose(int application, int pid, const char* peer, const char* host) {
        m_world.Tell("is told for {} of the loss of {} at {}", g_stage->Of(application).name, peer,
                     pid == 0 ? "no host" : host);
        CheckInside(g_stage->Of(application).domain);
        m_oracle.ToldOfLoss(m_process, application, pid, peer, host);
        const std::uint32_t reaction = m_world.Draw(Kind::kRare, 8, 2);
        if (reaction == 1) {
            Loop(g_stage->Of(application).domain, 1, milliseconds(20));
        } else if (reaction == 2) {
            throw Thrown();
        }
    }

  private:
    /// What a handler throws on purpose.
    struct Thrown {};

    template <class Action>
    void Catching(const Action& action) {
        try {
            action();
        } catch (const Thrown&) {
            m_depth = 0;
        }
    }

    void Do(const Step& step);

    void Declare(const Step& step, const Application& application, int communicator) {
        m_oracle.Note(Oracle::What::kDeclares, m_process, step.application);
        m_board.DeclareApplicationId(communicator, application.name, application.announced);
        m_oracle.Note(Oracle::What::kDeclared, m_process, step.application);
    }

    int Communicator(int domain) {
        int& communicator = m_communicators.at(static_cast<std::size_t>(domain));
        if (communicator == 0) {
            communicator = m_board.RegisterCommunicator(fmt::format("d{}", domain));
        }
        return communicator;
    }

    void Send(const Step& step) {
        const Application& target = g_stage->Of(step.application);
        const int communicator = Communicator(target.domain);
        const int message = m_sending = m_oracle.BeginSend(m_process, step);
        m_type = fmt::format("m{}", message);
        m_world.Tell("begins to send {} of {} bytes to {}", m_type, step.size, target.name);
        m_board.SendRequest(
            communicator, target.name,
            [](void* room, int size) {
                g_stage->oracle.Streamed(Current().m_sending, static_cast<char*>(room), size);
            },
            [] { return g_stage->oracle.Sent(Current().m_sending).size; },
            [] { return Current().m_type.c_str(); });
        m_sending = -1;
        m_oracle.EndSend(m_process, message);
        m_world.Tell("has sent m{}{}", message, m_oracle.Sent(message).dropped ? ", which is dropped" : "");
    }

    void Loop(int domain, int count, milliseconds limit) {
        const std::tuple outer(m_domain, m_enough, m_atCall);
        const Clock::time_point start = m_world.Now();
        const auto number = static_cast<int>(limit.count());
        m_world.Tell("loops for {} ms or {} messages", number, count);
        m_domain = domain;
        m_loopsSince = start;
        m_enough = count > 0 ? m_received + count : 0;
        m_atCall = m_condition;
        ++m_depth;
        if (domain == kEvery) {
            m_board.WaitingLoop(&m_condition, number);
        } else {
            m_board.WaitingLoop(Communicator(domain), number, &m_condition);
        }
        --m_depth;
        if (m_condition == m_atCall && (number < 0 || m_world.Now() - start < limit)) {
            m_world.Fail(fmt::format("a loop of {} ends too early", m_process.name));
        }
        std::tie(m_domain, m_enough, m_atCall) = outer;
    }

    /// Callbacks run inside of a loop for their domain only, and not while a message is sent.
    void CheckInside(int domain) {
        m_world.Deed();
        if (m_depth == 0 || m_sending >= 0 || (m_domain != kEvery && m_domain != domain)) {
            m_world.Fail(fmt::format("a callback of {} runs outside of its loops", m_process.name));
        }
    }

    Process& m_process;
    World& m_world = g_stage->world;
    Oracle& m_oracle = g_stage->oracle;
    SimulatedSystem m_system;
    zyl::backbone::Switchboard m_board;
    std::array<int, kDomains> m_communicators{};
    std::string m_type;
    int m_sending = -1;  // a message
    int m_condition = 1;
    int m_atCall = 1;
    int m_received = 0;
    int m_enough = 0;  // so many received messages end the loop
    int m_domain = 0;  // of the loop
    Clock::time_point m_loopsSince{};
    int m_depth = 0;  // of loops
    bool m_closing = false;
};

struct Callbacks {
    ZYLFeaBackbone_ReceiveCallback receive;
    ZYLFeaBackbone_DisconnectCallback lose;
};

/// The callbacks of each application.
template <int... kApplications>
constexpr std::array<Callbacks, sizeof...(kApplications)> CallbacksOf(
    std::integer_sequence<int, kApplications...> /*all*/) {
    return {Callbacks{[](const char* type, const void* body, int size) {
                          Current().Receive(kApplications, type, static_cast<const char*>(body), size);
                      },
                      [](int pid, const char* peer, const char* host, const char* /*user*/) {
                          Current().Lose(kApplications, pid, peer, host);
                      }}...};
}

constexpr auto kCallbacks = CallbacksOf(std::make_integer_sequence<int, kMostApplications>());

void Player::Do(const Step& step) {
    const Application& application = g_stage->Of(step.application);
    const int communicator = Communicator(application.domain);
    const Callbacks& callbacks = kCallbacks.at(static_cast<std::size_t>(step.application));
    switch (step.what) {
        case Step::What::kDeclare:
            Declare(step, application, communicator);
            break;
        case Step::What::kReceive:
            Declare(step, application, communicator);
            m_oracle.Note(Oracle::What::kHandles, m_process, step.application);
            m_board.AssociateHandler(communicator, application.name, callbacks.receive);
            break;
        case Step::What::kWatch:
            Declare(step, application, communicator);
            m_board.AssociateDisconnectHandler(communicator, application.name, callbacks.lose);
            m_oracle.Note(Oracle::What::kWatches, m_process, step.application);
            break;
        case Step::What::kSend:
            for (int sent = 0; sent == 0 || sent < step.count; ++sent) {
                Send(step);
            }
            break;
        case Step::What::kLoop:
            Loop(application.domain, step.count, step.time);
            break;
        case Step::What::kLoopAll:
            Loop(kEvery, step.count, step.time);
            break;
        case Step::What::kWork:
            m_world.Work(step.time);
            break;
        case Step::What::kFork:
            m_world.Fork(std::min(step.time, kChild));
            break;
        case Step::What::kLeave:
            m_world.Tell("leaves");
            m_oracle.Ended(m_process);
            m_board.Leave();
            m_world.Exit();
        case Step::What::kVanish:
            m_world.Exit();
    }
}

class Program final : public World::Director {
  public:
    Program(const Plan& plan, Choices& choices, bool tells) : m_stage(plan, choices, *this, tells) {
        g_stage = &m_stage;
    }

    std::string Run() {
        for (std::size_t actor = 0; actor < m_stage.plan.actors.size(); ++actor) {
            Start(static_cast<int>(actor), 0);
        }
        if (m_stage.plan.lies > 0) {
            const auto actor = static_cast<int>(m_stage.plan.actors.size());
            m_stage.oracle.Started(m_stage.world.Start(actor, 0, &Program::Cheat, {}));
        }
        return m_stage.world.Run();
    }
    std::uint64_t Calls() const { return m_stage.world.Calls(); }

    void Ended(Process& process) override {
        m_stage.oracle.Ended(process);
        m_stage.PlayerOf(process) = nullptr;
    }
    void Buried(Process& process) override {
        m_stage.oracle.Buried(process);
        if (!m_stage.oracle.IsLiar(process.number)) {
            Start(process.actor, process.life + 1);
        }
    }
    void Signal(Process& process) override {
        if (Player* const player = m_stage.PlayerOf(process)) {
            player->Signal();
        }
    }
    void Waits(const Process& process) override {
        if (const Player* const player = m_stage.PlayerOf(process)) {
            m_stage.oracle.CheckMemory(process, player->Depth());
        }
    }
    Opinion Judge() override {
        for (const Process* process : m_stage.processes) {
            const Player* const player = m_stage.PlayerOf(*process);
            for (int domain = 0; domain < kDomains && player != nullptr; ++domain) {
                if (player->Awaits(domain) && m_stage.world.Now() >= process->stoppedUntil) {
                    if (std::string late = m_stage.oracle.Late(*process, domain, player->LoopsSince());
                        !late.empty()) {
                        return {late, true, true};
                    }
                }
            }
            if (process->state != Process::State::kDead && (player == nullptr || player->IsBusy())) {
                return {process->name + " does not get on", true};
            }
        }
        return {m_stage.oracle.Open(), false};
    }

  private:
    void Start(int actor, int life) {
        if (static_cast<std::size_t>(life) < m_stage.plan.actors[static_cast<std::size_t>(actor)].size()) {
            Process& process = m_stage.world.Start(actor, life, &Program::Live, m_stage.plan.blows);
            m_stage.processes.push_back(&process);
            m_stage.oracle.Started(process);
        }
    }
    static void Live(void* argument) {
        auto& process = *static_cast<Process*>(argument);
        try {
            Player player(process);
            g_stage->PlayerOf(process) = &player;
            player.Play();
        } catch (const std::exception& error) {
            World::Current().Fail(fmt::format("{} lets an exception out: {}", process.name, error.what()));
        }
    }

    static void Cheat(void* argument) { Lie(*static_cast<Process*>(argument), "d0", g_stage->plan.lies); }

    Stage m_stage;
};

}  // namespace

Played Play(const Plan& plan, Choices& choices, bool tells) {
    std::array<char, 1024> wrong{};  // outlives the arena
    std::uint64_t calls = 0;
    arena::Begin();
    {
        Program program(plan, choices, tells);
        program.Run().copy(wrong.data(), wrong.size() - 1);
        calls = program.Calls();
    }
    arena::End();
    return {wrong.data(), calls};
}

}  // namespace simulated

namespace zyl::backbone {

void Report(const std::string& text) {
    simulated::World& world = simulated::World::Current();
    world.Tell("reports: {}", text);
    simulated::g_stage->oracle.Line(world.Me(), text);
}

void Fatal(const std::string& text, const char* /*file*/, int /*line*/) {
    simulated::World& world = simulated::World::Current();
    world.Fail(fmt::format("{} ends itself: {}", world.Me().name, text));
}

std::string Quoted(const std::string& name) {
    return QORText::Quoted(name);
}

std::string QuotedPath(const std::string& path) {
    return QORText::Quoted(path, path.size());
}

}  // namespace zyl::backbone

#include "World.h"

#include <gtest/gtest.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "system/MakeSystem.h"

using namespace zyl::backbone;

namespace {

/// The process's; the callbacks of the backbone carry no context.
Participant* s_participant = nullptr;
const std::string* s_body = nullptr;
const char* s_type = nullptr;

void* SharedPage() {
    return mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
}

void RecordMessage(const char* type, const void* buffer, int size) {
    const Received message{type, {static_cast<const char*>(buffer), static_cast<std::size_t>(size)}};
    Participant& me = *s_participant;
    me.Stir();
    if (!me.discard) {
        me.received.push_back(message);
    }
    if (me.onMessage) {
        me.onMessage(message);
    }
    EXPECT_EQ(message.body,
              std::string_view(static_cast<const char*>(buffer), static_cast<std::size_t>(size)))
        << "the bytes stay as they are until the handler returns";
    EXPECT_EQ(message.type, type);
}

void RecordLoss(int pid, const char* application, const char* host, const char* user) {
    EXPECT_GE(pid, 0);
    EXPECT_STRNE(host, "");
    EXPECT_STRNE(user, "");
    s_participant->Stir();
    s_participant->lost.emplace_back(application);
}

}  // namespace

struct Signal::Shared {
    sem_t semaphore;
};

Signal::Signal() : m_shared(new (SharedPage()) Shared()) {
    sem_init(&m_shared->semaphore, 1, 0);
}

Signal::~Signal() {
    munmap(m_shared, 4096);
}

void Signal::Give() {
    sem_post(&m_shared->semaphore);
}

void Signal::Await() {
    while (sem_wait(&m_shared->semaphore) != 0) {
    }
}

Shared::Shared() : m_page(new (SharedPage()) std::atomic<long>(0)) {}

Shared::~Shared() {
    munmap(m_page, 4096);
}

void Shared::Set(long value) {
    static_cast<std::atomic<long>*>(m_page)->store(value);
}

long Shared::Get() const {
    return static_cast<const std::atomic<long>*>(m_page)->load();
}

Participant::Participant(std::unique_ptr<Transport> transport, const Settings& settings)
    : board(std::move(transport), settings), domain(board.RegisterCommunicator("job")) {}

void Participant::Receive(const std::string& name) {
    board.AssociateHandler(domain, name, RecordMessage);
}

void Participant::Watch(const std::string& name) {
    board.AssociateDisconnectHandler(domain, name, RecordLoss);
}

void Participant::Send(const std::string& target, const std::string& type, const std::string& body) {
    s_body = &body;
    s_type = type.c_str();
    board.SendRequest(
        domain, target,
        [](void* buffer, int size) {
            s_body->copy(static_cast<char*>(buffer), static_cast<std::size_t>(size));
        },
        [] { return static_cast<int>(s_body->size()); }, [] { return s_type; });
}

void Participant::WaitUntil(const std::function<bool()>& condition) {
    const auto end = Clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        ASSERT_LT(Clock::now(), end) << "waited in vain";
        board.WaitingLoop(domain, 1000, &m_stirred);
    }
}

void Participant::Look() {
    int never = 1;
    board.WaitingLoop(domain, 0, &never);
}

void Participant::Crash() {
    raise(SIGKILL);
    std::abort();
}

World::World(bool lanes) {
    local.directory = m_directory.Path().string();
    local.lanes = lanes;
}

void World::Play(const std::vector<Role>& roles) const {
    std::fflush(nullptr);
    std::vector<pid_t> children;
    for (const Role& role : roles) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            {
                const std::unique_ptr<system::System> system = system::MakeSystem();
                Participant participant(local::MakeLocalTransport(*system, local), settings);
                s_participant = &participant;
                role(participant);
            }
            std::fflush(nullptr);
            _exit(::testing::Test::HasFailure() ? 1 : 0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        const bool crashedOnPurpose = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        EXPECT_TRUE(crashedOnPurpose || status == 0) << "a participant ended with status " << status;
    }
}

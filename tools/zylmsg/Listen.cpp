#include <cstdio>

#include "Commands.h"
#include "EnvelopeLine.h"
#include "ZYLFeaBackbone.h"

namespace {

/// The backbone's callback carries no object along.
struct Listening {
    int left = 0;
    int endingCondition = -1;
    int status = kDone;
};
Listening g_listening;

void Receive(const char* type, const void* buffer, int size) {
    const std::string line =
        EnvelopeLine(type, {static_cast<const char*>(buffer), static_cast<std::size_t>(size)}) + '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
    if (!WriteOut()) {
        g_listening.status = kFailed;
    }
    if (--g_listening.left == 0 || g_listening.status != kDone) {
        g_listening.endingCondition = 0;
    }
}

}  // namespace

/// It is a full application for as long as it runs: who waits for an answer of it hears of its end. It takes
/// the messages from the backbone itself, for the callback manager ends a process that gets a message of a
/// type it has not registered, or one that is malformed.
int Listen(const Identity& identity, int count) {
    g_listening.left = count;
    int communicator = 0;
    {
        const JoiningGuard guard;
        RegisterCommunicator(identity.domain.c_str(), &communicator);
        AssociateHandler(communicator, identity.name.c_str(), Receive);
    }
    WaitingLoop(communicator, -1, &g_listening.endingCondition);
    return g_listening.status;
}

#include <cstdio>
#include <string>

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
        EnvelopeLine(type, {static_cast<const char*>(buffer), static_cast<std::size_t>(size)});
    std::puts(line.c_str());
    if (!WriteOut()) {
        g_listening.status = kFailed;
    }
    if (--g_listening.left == 0 || g_listening.status != kDone) {
        g_listening.endingCondition = 0;
    }
}

}  // namespace

/// `listen` is an announced application, so peers that wait for its answer are told of its end. It
/// receives from the backbone directly, because the callback manager ends the process on a message that is
/// malformed or of an unregistered type.
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

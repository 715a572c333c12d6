#include "FakeBackbone.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

namespace {

void Wait(int* endingCondition, int limit) {
    auto& script = FakeBackbone::Get().script;
    const int before = *endingCondition;
    while (before != 0 && *endingCondition == before) {
        if (script.empty() && limit == 0) {
            return;
        }
        if (script.empty()) {
            fprintf(stderr, "FakeBackbone: a wait has nothing left to run\n");
            abort();
        }
        const auto action = script.front();
        script.pop_front();
        action();
    }
}

void Record(const std::string& call) {
    FakeBackbone::Get().calls.push_back(call);
}

}  // namespace

FakeBackbone& FakeBackbone::Get() {
    static FakeBackbone backbone;
    return backbone;
}

void RegisterCommunicator(const char* name, int* communicator) {
    Record(fmt::format("RegisterCommunicator({})", name));
    *communicator = FakeBackbone::Get().nextCommunicator++;
}

void DeclareApplicationId(int communicator, const char* applicationId, bool announce) {
    Record(fmt::format("DeclareApplicationId({}, {}, {})", communicator, applicationId, announce));
}

void AssociateHandler(int communicator, const char* application, ZYLFeaBackbone_ReceiveCallback callback) {
    Record(fmt::format("AssociateHandler({}, {})", communicator, application));
    FakeBackbone::Get().receive = callback;
}

void AssociateDisconnectHandler(int communicator, const char* application,
                                ZYLFeaBackbone_DisconnectCallback callback) {
    Record(fmt::format("AssociateDisconnectHandler({}, {})", communicator, application));
    FakeBackbone::Get().disconnect = callback;
}

void SendRequest(int communicator, const char* target, ZYLFeaBackbone_StreamCallback stream,
                 ZYLFeaBackbone_SizeCallback size, ZYLFeaBackbone_TypeCallback type) {
    if (!FakeBackbone::Get().isAnybodyThere) {
        return;
    }
    FakeBackbone::Message message{communicator, target, type(),
                                  std::string(static_cast<size_t>(size()), '?')};
    stream(message.bytes.data(), static_cast<int>(message.bytes.size()));
    FakeBackbone::Get().sent.push_back(message);
    if (FakeBackbone::Get().onSend) {
        FakeBackbone::Get().onSend(message);
    }
}

void WaitingLoop(int communicator, int limit, int* endingCondition) {
    Record(fmt::format("WaitingLoop({}, {})", communicator, limit));
    Wait(endingCondition, limit);
}

void BBSysLoopWait(int* endingCondition, int limit) {
    Record(fmt::format("BBSysLoopWait({})", limit));
    Wait(endingCondition, limit);
}

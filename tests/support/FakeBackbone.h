#ifndef ZYL_TESTS_FAKEBACKBONE_H
#define ZYL_TESTS_FAKEBACKBONE_H

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "ZYLFeaBackbone.h"

/// A backbone within the test program: the program's own definitions of the backbone's functions win over
/// those of the shared library. It records every call, and a wait runs the scripted actions until its
/// condition changes. A wait that has nothing left to run ends the program.
struct FakeBackbone {
    struct Message {
        int communicator;
        std::string target, type, bytes;
        bool operator==(const Message&) const = default;
    };

    /// The one backbone of the program.
    static FakeBackbone& Get();

    std::vector<std::string> calls;                    ///< every call but sends, as "Name(argument, ...)"
    ZYLFeaBackbone_ReceiveCallback receive = nullptr;  ///< the last one associated
    ZYLFeaBackbone_DisconnectCallback disconnect = nullptr;  ///< the last one associated
    std::vector<Message> sent;
    std::function<void(const Message&)> onSend;  ///< called after a message was recorded, where it is set
    bool isAnybodyThere = true;                  ///< else every message is dropped and waits of 0 ms end
    std::deque<std::function<void()>> script;    ///< what waits run, from the front
    int nextCommunicator = 1;
};

#endif

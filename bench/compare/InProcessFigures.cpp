#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Figures.h"
#include "PlainRecord.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessage.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "cow_BtreeInstantiations.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Keeps the compiler from leaving out what `object` is made by.
void Use(const void* object) {
    asm volatile("" : : "r"(object) : "memory");
}

/// What is called over and over, under the name it has in the results.
struct Contender {
    std::string name;
    std::function<void(std::size_t calls)> callAll;
};

template <class Call>
Contender Calling(const std::string& name, Call call) {
    return {name, [call](std::size_t calls) mutable {
                for (; calls > 0; --calls) {
                    call();
                }
            }};
}

/// Nanoseconds of one call: the best of many short windows, in which the contenders take turns. Whatever else
/// the machine does only adds.
void Time(const Measurement& measurement, const std::string& figure, std::size_t calls,
          const std::vector<Contender>& contenders) {
    constexpr std::size_t kWindows = 100;
    const std::size_t window = measurement.Count(calls) / kWindows + 1;
    std::vector<double> best(contenders.size(), HUGE_VAL);
    for (std::size_t turn = 0; turn < kWindows; ++turn) {
        for (std::size_t index = 0; index < contenders.size(); ++index) {
            const Clock::time_point start = Clock::now();
            contenders[index].callAll(window);
            const std::chrono::duration<double, std::nano> taken = Clock::now() - start;
            best[index] = std::min(best[index], taken.count() / static_cast<double>(window));
        }
    }
    for (std::size_t index = 0; index < contenders.size(); ++index) {
        measurement.results.Add(figure, "ns", contenders[index].name, best[index]);
    }
}

/// The same content twice: as this project's record and as the hand-written one.
struct Twins {
    Twins(bool named, const std::vector<char>& chunk) {
        ZYLMsgFileTransferData& data = message.Data();
        ZYLString* const names[] = {
            &data.m_sourceApplication, &data.m_sourceBaseDir, &data.m_sourceJobDir, &data.m_sourceFileName,
            &data.m_targetApplication, &data.m_targetBaseDir, &data.m_targetJobDir, &data.m_targetFileName};
        for (std::size_t index = 0; named && index < kTransferNames.size(); ++index) {
            *names[index] = ZYLString::BuildFromUTF8(kTransferNames[index]);
            plain.names[index] = kTransferNames[index];
        }
        data.m_chunkSize = plain.chunkSize = static_cast<int>(chunk.size());
        data.m_chunk = plain.chunk = chunk.data();
    }

    ZYLMsgFileTransferType message;
    PlainRecord plain;
};

void CompareRecords(const Measurement& measurement, const std::string& what, const Twins& twins,
                    std::size_t calls) {
    std::vector<char> body(twins.plain.Size());
    const auto encode = [&] {
        twins.message.Stream(body.data(), twins.message.RequiredBufferSize());
        Use(body.data());
    };
    const auto encodeByHand = [&] {
        const std::size_t size = twins.plain.Size();
        Use(&size);
        twins.plain.Write(body.data());
        Use(body.data());
    };
    const auto decode = [&] {
        const std::unique_ptr<ZYLMsgBBMessage> copy(twins.message.Clone());
        copy->Unstream(body.data(), static_cast<int>(body.size()));
        Use(copy.get());
    };
    const auto decodeByHand = [&] {
        const auto copy = std::make_unique<PlainRecord>();
        copy->Read(body.data(), body.size());
        Use(copy.get());
    };
    Time(measurement, fmt::format("encoding {}", what), calls,
         {Calling("zyl", encode), Calling("by hand", encodeByHand)});
    Time(measurement, fmt::format("decoding {}", what), calls,
         {Calling("zyl", decode), Calling("by hand", decodeByHand)});
}

class EmptyMessage final : public ZYLMsgBBMessage {
  public:
    explicit EmptyMessage(const char* type) : ZYLMsgBBMessage(ZYLString::BuildFromUTF8(type)) {}
    int RequiredBufferSize() const override { return 0; }
    void Stream(void* /*buffer*/, int /*size*/) const override {}
    void Unstream(const void* /*buffer*/, int /*size*/) override {}
    EmptyMessage* Clone() const override { return new EmptyMessage(Type()); }
};

class IgnoringHandler final : public ZYLMsgBBMessageHandler {
  public:
    void HandleMessage(const ZYLMsgBBMessage& message, const char* /*id*/) override { Use(&message); }
};

std::vector<std::string> TypeNames(std::size_t count) {
    std::vector<std::string> names;
    for (std::size_t number = 0; number < count; ++number) {
        names.push_back(fmt::format("BenchmarkMessageType{}", number));
    }
    return names;
}

void Receive(const std::string& type) {
    static const char emptyIdentifier[4] = {};
    ZYLMsgBBCallbackManager::HandleMessage(type.c_str(), emptyIdentifier, sizeof emptyIdentifier);
}

void DispatchAmong(std::size_t types, const Measurement& measurement) {
    const ZYLMsgBBCallbackManager emptiesTheRegistriesAtItsEnd;
    const std::vector<std::string> names = TypeNames(types);
    for (const std::string& name : names) {
        ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new EmptyMessage(name.c_str()),
                                                          new IgnoringHandler);
    }
    constexpr std::size_t kCalls = 2000000;
    const std::string contender = fmt::format("{} types", types);
    Time(measurement, "dispatch of an empty message, the same type again", kCalls,
         {Calling(contender, [&] { Receive(names[types / 2]); })});
    constexpr std::size_t kStride = 7919;  // a prime: every type gets its turn, neighbours far apart
    std::size_t next = 0;
    Time(measurement, "dispatch of an empty message, all types in turn", kCalls, {Calling(contender, [&] {
             Receive(names[next]);
             next = (next + kStride) % types;
         })});
}

}  // namespace

void Records(const Measurement& measurement) {
    const std::vector<char> chunk(65536, 'c');
    CompareRecords(measurement, "a file-transfer request (eight names)", Twins(true, {}), 500000);
    CompareRecords(measurement, "a file-transfer chunk of 64 KiB", Twins(false, chunk), 20000);
}

void Dispatch(const Measurement& measurement) {
    for (const std::size_t types : {10000U, 1000U, 100U, 10U, 1U}) {
        DispatchAmong(types, measurement);
    }
}

void TreeMapCopies(const Measurement& measurement) {
    using TreeMap = cow_Btree<cow_String, ZYLMsgBBMessage*>;
    TreeMap large;
    TreeMap small;
    std::map<std::string, ZYLMsgBBMessage*> standard;
    for (const std::string& name : TypeNames(10000)) {
        large.InsertUnlessMember(cow_String(name.c_str()), nullptr);
        standard.emplace(name, nullptr);
    }
    for (const std::string& name : TypeNames(10)) {
        small.InsertUnlessMember(cow_String(name.c_str()), nullptr);
    }
    const auto copyOf = [](const auto& map) {
        return [&map] {
            const auto copy(map);
            Use(&copy);
        };
    };
    Time(measurement, "copy of a tree map", 100000,
         {Calling("10000 entries", copyOf(large)), Calling("10 entries", copyOf(small))});
    Time(measurement, "copy of a tree map", 1, {Calling("std::map, 10000 entries", copyOf(standard))});
}

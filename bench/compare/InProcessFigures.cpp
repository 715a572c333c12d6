#include <algorithm>
#include <array>
#include <chrono>
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

/// Nanoseconds of one call: the best of some runs, for in one process everything else only adds.
double TimeEach(std::size_t calls, const std::function<void()>& callAll) {
    constexpr int kRuns = 5;
    double best = 0;
    for (int run = 0; run < kRuns; ++run) {
        const Clock::time_point start = Clock::now();
        callAll();
        const double each = std::chrono::duration<double, std::nano>(Clock::now() - start).count() /
                            static_cast<double>(calls);
        best = run == 0 ? each : std::min(best, each);
    }
    return best;
}

template <class Call>
double TimeEach(std::size_t calls, Call call) {
    return TimeEach(calls, std::function<void()>([&] {
                        for (std::size_t done = 0; done < calls; ++done) {
                            call();
                        }
                    }));
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
    measurement.results.Add("encoding " + what, "ns", "zyl", TimeEach(calls, [&] {
                                twins.message.Stream(body.data(), twins.message.RequiredBufferSize());
                                Use(body.data());
                            }));
    measurement.results.Add("encoding " + what, "ns", "by hand", TimeEach(calls, [&] {
                                const std::size_t size = twins.plain.Size();
                                Use(&size);
                                twins.plain.Write(body.data());
                                Use(body.data());
                            }));
    measurement.results.Add("decoding " + what, "ns", "zyl", TimeEach(calls, [&] {
                                const std::unique_ptr<ZYLMsgBBMessage> copy(twins.message.Clone());
                                copy->Unstream(body.data(), static_cast<int>(body.size()));
                                Use(copy.get());
                            }));
    measurement.results.Add("decoding " + what, "ns", "by hand", TimeEach(calls, [&] {
                                const auto copy = std::make_unique<PlainRecord>();
                                copy->Read(body.data(), body.size());
                                Use(copy.get());
                            }));
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
        names.push_back("BenchmarkMessageType" + std::to_string(number));
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
    const std::size_t calls = measurement.Count(200000);
    const std::string contender = std::to_string(types) + " types";
    measurement.results.Add("dispatch of an empty message, the same type again", "ns", contender,
                            TimeEach(calls, [&] { Receive(names[types / 2]); }));
    constexpr std::size_t kStride = 7919;  // a prime: every type gets its turn, neighbours far apart
    std::size_t next = 0;
    measurement.results.Add("dispatch of an empty message, all types in turn", "ns", contender,
                            TimeEach(calls, [&] {
                                Receive(names[next]);
                                next = (next + kStride) % types;
                            }));
}

}  // namespace

void Records(const Measurement& measurement) {
    const std::vector<char> chunk(65536, 'c');
    CompareRecords(measurement, "a file-transfer request (eight names)", Twins(true, {}),
                   measurement.Count(200000));
    CompareRecords(measurement, "a file-transfer chunk of 64 KiB", Twins(false, chunk),
                   measurement.Count(20000));
}

void Dispatch(const Measurement& measurement) {
    for (const std::size_t types : {10000U, 1000U, 100U, 10U, 1U}) {
        DispatchAmong(types, measurement);
    }
}

void TreeMapCopies(const Measurement& measurement) {
    using TreeMap = cow_Btree<cow_String, ZYLMsgBBMessage*>;
    const std::size_t calls = measurement.Count(100000);
    std::map<std::string, ZYLMsgBBMessage*> standard;
    for (const std::size_t entries : {std::size_t{10000}, std::size_t{10}}) {
        TreeMap map;
        for (const std::string& name : TypeNames(entries)) {
            map.InsertUnlessMember(cow_String(name.c_str()), nullptr);
            standard.emplace(name, nullptr);
        }
        measurement.results.Add("copy of a tree map", "ns", std::to_string(entries) + " entries",
                                TimeEach(calls, [&] {
                                    const TreeMap copy(map);
                                    Use(&copy);
                                }));
    }
    measurement.results.Add("copy of a tree map", "ns", "std::map, 10000 entries",
                            TimeEach(measurement.Count(40), [&] {
                                const auto copy(standard);
                                Use(&copy);
                            }));
}

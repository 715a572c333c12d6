#include <benchmark/benchmark.h>
#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "PlainRecord.h"
#include "ZYLMsgAnalysisMessageType.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgProcessControlType.h"
#include "ZYLMsgProcessControlTypeFactory.h"
#include "ZYLMsgStringType.h"

namespace {

/// A type of its own for each number, with an empty body.
class EmptyMessage : public ZYLMsgBBMessage {
  public:
    explicit EmptyMessage(int number) : ZYLMsgBBMessage(ZYLString::BuildFromUTF8(Name(number).c_str())) {}
    explicit EmptyMessage(const char* type) : ZYLMsgBBMessage(ZYLString::BuildFromUTF8(type)) {}
    int RequiredBufferSize() const override { return 0; }
    void Stream(void* /*buffer*/, int /*size*/) const override {}
    void Unstream(const void* /*buffer*/, int /*size*/) override {}
    EmptyMessage* Clone() const override { return new EmptyMessage(Type()); }

    static std::string Name(int number) { return fmt::format("BenchmarkMessageType{}", number); }
};

class IgnoringHandler : public ZYLMsgBBMessageHandler {
  public:
    void HandleMessage(const ZYLMsgBBMessage& message, const char* /*id*/) override {
        benchmark::DoNotOptimize(&message);
    }
};

/// The registry with as many types as a benchmark asks for; it goes with this object.
class Registry {
  public:
    explicit Registry(int types) {
        for (int number = 0; number < types; ++number) {
            ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new EmptyMessage(number), new IgnoringHandler);
        }
    }

  private:
    ZYLMsgBBCallbackManager m_emptiesTheRegistriesAtItsEnd;
};

constexpr char kEnvelopeWithoutIdentifier[4] = {};

void Dispatch(const std::string& type) {
    ZYLMsgBBCallbackManager::HandleMessage(type.c_str(), kEnvelopeWithoutIdentifier,
                                           sizeof kEnvelopeWithoutIdentifier);
}

void DispatchOneType(benchmark::State& state) {
    const int types = static_cast<int>(state.range(0));
    const Registry registry(types);
    const std::string type = EmptyMessage::Name(types / 2);
    for (auto _ : state) {
        Dispatch(type);
    }
}
BENCHMARK(DispatchOneType)->Arg(1)->Arg(100)->Arg(10000);

/// A different type each time: nothing that was found out for the last message helps with the next one.
void DispatchTypesInTurn(benchmark::State& state) {
    const int types = static_cast<int>(state.range(0));
    const Registry registry(types);
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(types));
    for (int number = 0; number < types; ++number) {
        names.push_back(EmptyMessage::Name(number));
    }
    constexpr std::size_t kStride = 7919;  // a prime, so that every type gets its turn, neighbours far apart
    std::size_t next = 0;
    for (auto _ : state) {
        Dispatch(names[next]);
        next = (next + kStride) % names.size();
    }
}
BENCHMARK(DispatchTypesInTurn)->Arg(1)->Arg(100)->Arg(10000);

std::unique_ptr<ZYLMsgBBMessage> StringMessage(int size) {
    static std::vector<char> bytes;
    bytes.assign(static_cast<std::size_t>(size), 'x');
    auto message = std::make_unique<ZYLMsgStringType>();
    message->SetData(bytes.data(), size);
    return message;
}

std::unique_ptr<ZYLMsgBBMessage> AnalysisMessage(int size) {
    const std::string document = fmt::format("<Progress>{:{}}</Progress>", "", size);
    return std::make_unique<ZYLMsgAnalysisMessageType>(ZYLString::BuildFromUTF8(document.c_str()));
}

/// A transfer of eight names, with a chunk of `size` bytes.
std::unique_ptr<ZYLMsgBBMessage> FileTransferMessage(int size) {
    static std::vector<char> chunk;
    chunk.assign(static_cast<std::size_t>(size), 'x');
    auto message = std::make_unique<ZYLMsgFileTransferType>();
    ZYLMsgFileTransferData& data = message->Data();
    data.m_dataType = FILE_TRANSFER_CHUNK;
    ZYLString* const names[] = {&data.m_sourceApplication, &data.m_sourceBaseDir,     &data.m_sourceJobDir,
                                &data.m_sourceFileName,    &data.m_targetApplication, &data.m_targetBaseDir,
                                &data.m_targetJobDir,      &data.m_targetFileName};
    for (std::size_t index = 0; index < kTransferNames.size(); ++index) {
        *names[index] = ZYLString::BuildFromUTF8(kTransferNames[index]);
    }
    data.m_chunkId = 1;
    data.m_chunkSize = size;
    data.m_chunk = chunk.data();
    return message;
}

void Encode(benchmark::State& state, const ZYLMsgBBMessage& message) {
    std::vector<char> body(static_cast<std::size_t>(message.RequiredBufferSize()));
    for (auto _ : state) {
        message.Stream(body.data(), message.RequiredBufferSize());
        benchmark::DoNotOptimize(body.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(body.size()));
}

/// As for every incoming message: into a clone of an empty prototype, which then goes.
void Decode(benchmark::State& state, const ZYLMsgBBMessage& message, const ZYLMsgBBMessage& prototype) {
    std::vector<char> body(static_cast<std::size_t>(message.RequiredBufferSize()));
    message.Stream(body.data(), message.RequiredBufferSize());
    for (auto _ : state) {
        const std::unique_ptr<ZYLMsgBBMessage> clone(prototype.Clone());
        clone->Unstream(body.data(), static_cast<int>(body.size()));
        benchmark::DoNotOptimize(clone.get());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(body.size()));
}

PlainRecord MakePlainRecord(benchmark::State& state, const std::vector<char>& chunk) {
    PlainRecord record;
    std::copy(kTransferNames.begin(), kTransferNames.end(), record.names.begin());
    record.chunkSize = static_cast<int>(state.range(0));
    record.chunk = chunk.data();
    return record;
}

void EncodePlainRecord(benchmark::State& state) {
    const std::vector<char> chunk(static_cast<std::size_t>(state.range(0)), 'x');
    const PlainRecord record = MakePlainRecord(state, chunk);
    std::vector<char> body(record.Size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(record.Size());
        record.Write(body.data());
        benchmark::DoNotOptimize(body.data());
    }
}
BENCHMARK(EncodePlainRecord)->Arg(0)->Arg(64)->Arg(65536);

void DecodePlainRecord(benchmark::State& state) {
    const std::vector<char> chunk(static_cast<std::size_t>(state.range(0)), 'x');
    const PlainRecord record = MakePlainRecord(state, chunk);
    std::vector<char> body(record.Size());
    record.Write(body.data());
    for (auto _ : state) {
        const auto copy = std::make_unique<PlainRecord>();
        copy->Read(body.data(), body.size());
        benchmark::DoNotOptimize(copy.get());
    }
}
BENCHMARK(DecodePlainRecord)->Arg(0)->Arg(64)->Arg(65536);

template <class Message>
void EncodeAndDecode(const std::string& name, std::unique_ptr<ZYLMsgBBMessage> (*make)(int), int size) {
    const std::string label = fmt::format("{}/{}", name, size);
    benchmark::RegisterBenchmark(fmt::format("Encode{}", label).c_str(),
                                 [=](benchmark::State& state) { Encode(state, *make(size)); });
    benchmark::RegisterBenchmark(fmt::format("Decode{}", label).c_str(),
                                 [=](benchmark::State& state) { Decode(state, *make(size), Message()); });
}

void EncodeKill(benchmark::State& state) {
    Encode(state, *ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg());
}
BENCHMARK(EncodeKill);

void DecodeKill(benchmark::State& state) {
    Decode(state, *ZYLMsgProcessControlTypeFactory::CreateSoftKillMsg(), ZYLMsgProcessControlType());
}
BENCHMARK(DecodeKill);

[[maybe_unused]] const bool g_registered = [] {
    for (const int size : {0, 64, 65536}) {
        EncodeAndDecode<ZYLMsgStringType>("String", StringMessage, size);
        EncodeAndDecode<ZYLMsgAnalysisMessageType>("Analysis", AnalysisMessage, size);
        EncodeAndDecode<ZYLMsgFileTransferType>("FileTransfer", FileTransferMessage, size);
    }
    return true;
}();

}  // namespace

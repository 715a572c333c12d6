#include <benchmark/benchmark.h>
#include <fmt/core.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "cow_BtreeInstantiations.h"

/// The tree map of the registries beside std::map, with the same keys and values.

namespace {

using TreeMap = cow_Btree<cow_String, ZYLMsgBBMessage*>;
using StandardMap = std::map<std::string, ZYLMsgBBMessage*>;

const std::vector<std::string>& Names(std::size_t count) {
    static std::vector<std::string> names;
    names.clear();
    for (std::size_t index = 0; index < count; ++index) {
        names.push_back(fmt::format("BenchmarkMessageType{}", index * 7919 % count));
    }
    return names;
}

void Insert(TreeMap& map, const std::string& key) {
    map.InsertUnlessMember(cow_String(key.c_str()), nullptr);
}
void Insert(StandardMap& map, const std::string& key) {
    map.emplace(key, nullptr);
}
bool Remove(TreeMap& map, const std::string& key) {
    return map.Remove(cow_String(key.c_str()));
}
bool Remove(StandardMap& map, const std::string& key) {
    return map.erase(key) != 0;
}
bool Has(const TreeMap& map, const std::string& key) {
    return map.IsMember(cow_String(key.c_str()));
}
bool Has(const StandardMap& map, const std::string& key) {
    return map.find(key) != map.end();
}
std::size_t Walk(const TreeMap& map) {
    std::size_t count = 0;
    cow_BtreeIterator<cow_String, ZYLMsgBBMessage*> entry(map);
    for (entry.First(); !entry.IsDone(); entry.Next()) {
        benchmark::DoNotOptimize(entry.CurrentKey());
        ++count;
    }
    return count;
}
std::size_t Walk(const StandardMap& map) {
    std::size_t count = 0;
    for (const auto& entry : map) {
        benchmark::DoNotOptimize(entry.first);
        ++count;
    }
    return count;
}

template <class Map>
Map Filled(const std::vector<std::string>& names) {
    Map map;
    for (const std::string& name : names) {
        Insert(map, name);
    }
    return map;
}

template <class Map>
void Build(benchmark::State& state) {
    const std::vector<std::string>& names = Names(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(Filled<Map>(names));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void Find(benchmark::State& state) {
    const std::vector<std::string>& names = Names(static_cast<std::size_t>(state.range(0)));
    const Map map = Filled<Map>(names);
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Has(map, names[next]));
        next = next + 1 < names.size() ? next + 1 : 0;
    }
}

template <class Map>
void Copy(benchmark::State& state) {
    const Map map = Filled<Map>(Names(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        const Map copy(map);
        benchmark::DoNotOptimize(&copy);
    }
}

/// A copy of which one entry is then removed: the tree map copies the path to it, the standard map
/// everything.
template <class Map>
void CopyAndChange(benchmark::State& state) {
    const std::vector<std::string>& names = Names(static_cast<std::size_t>(state.range(0)));
    const Map map = Filled<Map>(names);
    for (auto _ : state) {
        Map copy(map);
        benchmark::DoNotOptimize(Remove(copy, names[names.size() / 2]));
    }
}

template <class Map>
void WalkAll(benchmark::State& state) {
    const Map map = Filled<Map>(Names(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        benchmark::DoNotOptimize(Walk(map));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define ZYL_BENCHMARK_BOTH(function)                                       \
    BENCHMARK_TEMPLATE(function, TreeMap)->Arg(10)->Arg(1000)->Arg(10000); \
    BENCHMARK_TEMPLATE(function, StandardMap)->Arg(10)->Arg(1000)->Arg(10000)

ZYL_BENCHMARK_BOTH(Build);
ZYL_BENCHMARK_BOTH(Find);
ZYL_BENCHMARK_BOTH(Copy);
ZYL_BENCHMARK_BOTH(CopyAndChange);
ZYL_BENCHMARK_BOTH(WalkAll);

}  // namespace

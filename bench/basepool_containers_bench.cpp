// Hash map throughput beside std::unordered_map as the baseline measured in the same run:
// insert N keys, look every key up, remove half. Key sets are fixed per size (seeded) so
// both containers see the same work.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "basepool/cbmap.h"

namespace {

std::vector<unsigned int> randomKeys(size_t n) {
    std::mt19937 rng(42);
    std::vector<unsigned int> keys(n);
    for (auto& k : keys) k = rng();
    return keys;
}

std::vector<CStringA> stringKeys(size_t n) {
    std::vector<CStringA> keys;
    keys.reserve(n);
    for (size_t i = 0; i < n; ++i) keys.push_back(CbFormatA("material_%zu_%zx", i, i * 2654435761u));
    return keys;
}

struct SStdStringHash {
    size_t operator()(const CStringA& s) const { return std::hash<std::string>{}(s); }
};

template <class Map, class Keys> void insertLookupRemove(benchmark::State& state, const Keys& keys) {
    for (auto _ : state) {
        Map map;
        for (size_t i = 0; i < keys.size(); ++i) map[keys[i]] = static_cast<unsigned int>(i);
        unsigned int sum = 0;
        for (const auto& k : keys) sum += map[k];
        for (size_t i = 0; i < keys.size(); i += 2) {
            if constexpr (requires { map.RemoveKey(keys[i]); }) map.RemoveKey(keys[i]);
            else map.erase(keys[i]);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(keys.size()));
}

void BM_CbMapU32(benchmark::State& state) {
    insertLookupRemove<CbMap<unsigned int, unsigned int>>(state, randomKeys(static_cast<size_t>(state.range(0))));
}
void BM_StdUnorderedMapU32(benchmark::State& state) {
    insertLookupRemove<std::unordered_map<unsigned int, unsigned int>>(state,
                                                                       randomKeys(static_cast<size_t>(state.range(0))));
}
void BM_CbMapString(benchmark::State& state) {
    insertLookupRemove<CbMap<CStringA, unsigned int>>(state, stringKeys(static_cast<size_t>(state.range(0))));
}
void BM_StdUnorderedMapString(benchmark::State& state) {
    insertLookupRemove<std::unordered_map<CStringA, unsigned int, SStdStringHash>>(
        state, stringKeys(static_cast<size_t>(state.range(0))));
}

} // namespace

BENCHMARK(BM_CbMapU32)->Arg(1000)->Arg(1000000);
BENCHMARK(BM_StdUnorderedMapU32)->Arg(1000)->Arg(1000000);
BENCHMARK(BM_CbMapString)->Arg(1000)->Arg(100000);
BENCHMARK(BM_StdUnorderedMapString)->Arg(1000)->Arg(100000);
BENCHMARK_MAIN();

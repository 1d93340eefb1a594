// Base coders: range coder symbols per second on a CLERS-like string, float coders values
// per second on smooth data (lossless and on a grid), both directions, with their size.
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <random>

#include "vnbase/vnfloatcoder.h"
#include "vnbase/vnrangecoder.h"

namespace {

std::vector<uint32_t> clersLike(size_t n) {
    // C half the time, R a third, the rest shared: the mix of a closed scanned mesh.
    std::mt19937 rng(1);
    std::discrete_distribution<uint32_t> d({50, 5, 5, 35, 5});
    std::vector<uint32_t> s(n);
    for (auto& x : s) x = d(rng);
    return s;
}

void BM_RangeCoderEncode(benchmark::State& state) {
    const auto symbols = clersLike(static_cast<size_t>(state.range(0)));
    size_t bytes = 0;
    for (auto _ : state) {
        CbStreamWriteBinaryMemory sink;
        VnCompressRangeCoder coder(sink, 5, static_cast<unsigned long>(symbols.size() / 4));
        for (uint32_t s : symbols) coder.WriteSymbol(s);
        coder.Finish();
        bytes = sink.GetSize();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(symbols.size()));
    state.counters["bits_per_symbol"] = 8.0 * double(bytes) / double(symbols.size());
}
BENCHMARK(BM_RangeCoderEncode)->Arg(1 << 22)->Unit(benchmark::kMillisecond);

void BM_RangeCoderDecode(benchmark::State& state) {
    const auto symbols = clersLike(static_cast<size_t>(state.range(0)));
    CbStreamWriteBinaryMemory sink;
    {
        VnCompressRangeCoder coder(sink, 5, static_cast<unsigned long>(symbols.size() / 4));
        for (uint32_t s : symbols) coder.WriteSymbol(s);
    }
    uint64_t check = 0;
    for (auto _ : state) {
        CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
        VnDecompressRangeCoder coder(source, 5);
        for (size_t i = 0; i < symbols.size(); ++i) check += coder.ReadSymbol();
    }
    benchmark::DoNotOptimize(check);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(symbols.size()));
}
BENCHMARK(BM_RangeCoderDecode)->Arg(1 << 22)->Unit(benchmark::kMillisecond);

// A smooth signal with small noise, predicted by its previous value.
std::vector<float> smooth(size_t n, const VnFloatingPointQuantization* grid) {
    std::mt19937 rng(2);
    std::normal_distribution<float> noise(0.f, 0.002f);
    std::vector<float> v(n);
    for (size_t i = 0; i < n; ++i) {
        float x = std::sin(float(i) * 0.001f) + noise(rng);
        v[i] = grid ? grid->Unmap(grid->Map(x)) : x;
    }
    return v;
}

void floatEncode(benchmark::State& state, bool quantized) {
    VnFloatingPointQuantizationUniform grid(-2.f, 2.f, 4096.f);
    const auto values = smooth(1 << 21, quantized ? &grid : nullptr);
    size_t bytes = 0;
    for (auto _ : state) {
        CbStreamWriteBinaryMemory sink;
        std::unique_ptr<VnStreamWriteCompressedFloatingPoint> w =
            quantized ? std::make_unique<VnStreamWriteCompressedFloatingPoint>(sink, grid, false, 1000)
                      : std::make_unique<VnStreamWriteCompressedFloatingPoint>(sink, static_cast<unsigned>(values.size()));
        float previous = 0.f;
        for (float v : values) {
            w->WriteValue(v, previous);
            previous = v;
        }
        w->Flush();
        bytes = sink.GetSize();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(values.size()));
    state.counters["bits_per_value"] = 8.0 * double(bytes) / double(values.size());
}

void floatDecode(benchmark::State& state, bool quantized) {
    VnFloatingPointQuantizationUniform grid(-2.f, 2.f, 4096.f);
    const auto values = smooth(1 << 21, quantized ? &grid : nullptr);
    CbStreamWriteBinaryMemory sink;
    {
        std::unique_ptr<VnStreamWriteCompressedFloatingPoint> w =
            quantized ? std::make_unique<VnStreamWriteCompressedFloatingPoint>(sink, grid, false, 1000)
                      : std::make_unique<VnStreamWriteCompressedFloatingPoint>(sink, static_cast<unsigned>(values.size()));
        float previous = 0.f;
        for (float v : values) {
            w->WriteValue(v, previous);
            previous = v;
        }
    }
    for (auto _ : state) {
        CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
        std::unique_ptr<VnStreamReadCompressedFloatingPoint> r =
            quantized ? std::make_unique<VnStreamReadCompressedFloatingPoint>(source, grid, false)
                      : std::make_unique<VnStreamReadCompressedFloatingPoint>(source);
        float previous = 0.f;
        for (size_t i = 0; i < values.size(); ++i) previous = r->ReadValue(previous);
        if (previous != values.back()) state.SkipWithError("decoded values differ");
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(values.size()));
}

void BM_FloatEncodeLossless(benchmark::State& s) { floatEncode(s, false); }
void BM_FloatDecodeLossless(benchmark::State& s) { floatDecode(s, false); }
void BM_FloatEncodeQuantized(benchmark::State& s) { floatEncode(s, true); }
void BM_FloatDecodeQuantized(benchmark::State& s) { floatDecode(s, true); }
BENCHMARK(BM_FloatEncodeLossless)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FloatDecodeLossless)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FloatEncodeQuantized)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FloatDecodeQuantized)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

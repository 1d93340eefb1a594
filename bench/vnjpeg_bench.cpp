// JPEG encoding throughput and thumbnail rendering time.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "vn3dbase/ctriangulation.h"
#include "vnio/vnjpegwriter.h"
#include "vnio/vnthumbnail.h"

namespace {

// A photograph-like colour image: smooth gradients with a little grain, so that the
// encoder neither idles on flat blocks nor chokes on pure noise.
CbArray<unsigned char> photoLikeImage(uint32_t w, uint32_t h) {
    CbArray<unsigned char> px;
    px.SetSize(static_cast<int>(size_t(w) * h * 3));
    uint32_t state = 1;
    size_t i = 0;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c) {
                state = state * 1664525u + 1013904223u;
                const double v = 128 + 80 * std::sin(0.004 * x + c) * std::cos(0.003 * y - c) + double(state >> 28);
                px[static_cast<int>(i++)] = static_cast<unsigned char>(v);
            }
    return px;
}

void BM_EncodeColour(benchmark::State& state) {
    const uint32_t side = static_cast<uint32_t>(state.range(0));
    const CbArray<unsigned char> px = photoLikeImage(side, side);
    VnJPEGWriter writer(px, side, side);
    writer.SetQuality(0.9f);
    size_t encoded = 0;
    for (auto _ : state) {
        CbStreamWriteBinaryMemory stream;
        writer.Serialize(stream);
        encoded = stream.GetSize();
        benchmark::DoNotOptimize(encoded);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * px.GetSize());
    state.counters["bits_per_pixel"] = 8.0 * double(encoded) / (double(side) * side);
}
BENCHMARK(BM_EncodeColour)->Arg(4096)->Unit(benchmark::kMillisecond);

// A closed UV sphere of rings x segments quads, split into triangles.
Geometry::CTriangulation sphere(uint32_t rings, uint32_t segments) {
    const float pi = 3.14159265358979f;
    std::vector<CbVector3f> positions;
    positions.push_back({0, 0, 1});
    for (uint32_t r = 1; r < rings; ++r) {
        const float theta = pi * float(r) / float(rings);
        for (uint32_t s = 0; s < segments; ++s) {
            const float phi = 2 * pi * float(s) / float(segments);
            positions.push_back({std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), std::cos(theta)});
        }
    }
    const uint32_t south = static_cast<uint32_t>(positions.size());
    positions.push_back({0, 0, -1});
    auto ring = [&](uint32_t r, uint32_t s) { return 1 + (r - 1) * segments + (s % segments); };
    std::vector<Geometry::STriangleCorners> corners;
    for (uint32_t s = 0; s < segments; ++s) corners.push_back({0, ring(1, s), ring(1, s + 1)});
    for (uint32_t r = 1; r + 1 < rings; ++r)
        for (uint32_t s = 0; s < segments; ++s) {
            corners.push_back({ring(r, s), ring(r + 1, s), ring(r + 1, s + 1)});
            corners.push_back({ring(r, s), ring(r + 1, s + 1), ring(r, s + 1)});
        }
    for (uint32_t s = 0; s < segments; ++s) corners.push_back({ring(rings - 1, s), south, ring(rings - 1, s + 1)});
    const auto v = static_cast<uint32_t>(positions.size()), t = static_cast<uint32_t>(corners.size());
    return Geometry::CTriangulation(v, t, Geometry::SMemoryBlock<CbVector3f>(std::move(positions)),
                                    Geometry::SMemoryBlock<Geometry::STriangleCorners>(std::move(corners)));
}

void BM_Thumbnail(benchmark::State& state) {
    // 1000 x 1000 gives 1,998,000 triangles.
    static const Geometry::CTriangulation mesh = sphere(1000, 1000);
    const uint32_t side = static_cast<uint32_t>(state.range(0));
    CbArray<unsigned char> bgr;
    for (auto _ : state) {
        VnThumbnail::Render(mesh, side, side, VnThumbnail::eViewIso, bgr);
        benchmark::DoNotOptimize(bgr.GetData());
    }
    state.counters["triangles"] = mesh.GetTriangleCount();
    state.counters["Mtri_per_s"] =
        benchmark::Counter(double(mesh.GetTriangleCount()) * double(state.iterations()) / 1e6, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Thumbnail)->Arg(512)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

// OFF load and write of a ~2M-triangle mesh, each beside a baseline from the same run:
//   OffFromCharsScan  read the file into memory and std::from_chars every number of it
//   OffLoad           VnOFF::Read (parsing, mesh building, adjacency, vertex-triangle relation)
//   OffWrite          VnOFF::Write, bytes per second
// OffLoad also reports the peak resident memory the load added, as a multiple of the final
// mesh's geometry (12 bytes per vertex + 12 per triangle) and of its whole footprint
// (geometry plus adjacency and vertex-triangle relation).
#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "basepool/cbstring.h"
#include "vn3dbase/ctriangulation.h"
#include "vnio/vnoff.h"

namespace {

using Geometry::CTriangulation;

constexpr unsigned kGrid = 1000; // 1000 x 1000 quads: 1,002,001 vertices, 2,000,000 triangles

CTriangulation makeMesh() {
    std::vector<CbVector3f> positions;
    positions.reserve(size_t(kGrid + 1) * (kGrid + 1));
    for (unsigned j = 0; j <= kGrid; ++j)
        for (unsigned i = 0; i <= kGrid; ++i)
            positions.push_back({float(i) * 0.0123456f - 6.1f, float(j) * 0.0234567f + 1.5f,
                                 float((i * 7919u + j * 104729u) % 1000u) * 0.001f});
    std::vector<Geometry::STriangleCorners> corners;
    corners.reserve(size_t(kGrid) * kGrid * 2);
    for (unsigned j = 0; j < kGrid; ++j)
        for (unsigned i = 0; i < kGrid; ++i) {
            uint32_t a = j * (kGrid + 1) + i, b = a + 1, c = a + kGrid + 1, d = c + 1;
            corners.push_back({a, b, d});
            corners.push_back({a, d, c});
        }
    CTriangulation m;
    m.AppendVertices(positions.data(), uint32_t(positions.size()));
    m.AppendTriangles(corners.data(), uint32_t(corners.size()));
    return m;
}

const std::string& filePath() {
    static const std::string path = [] {
        std::string p = "/tmp/vnoff_bench_" + std::to_string(::getpid()) + ".off";
        VnOFF::Write(CbUtf8ToWide(p).c_str(), makeMesh());
        return p;
    }();
    return path;
}

struct SCleanup {
    ~SCleanup() { std::remove(filePath().c_str()); }
};

long statusKiB(const char* key) {
    std::ifstream in("/proc/self/status");
    std::string line;
    const size_t n = std::strlen(key);
    while (std::getline(in, line))
        if (line.compare(0, n, key) == 0) return std::stol(line.substr(n));
    return 0;
}

// Resets the peak resident size to the current one (Linux 4.0 and later).
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

void OffFromCharsScan(benchmark::State& state) {
    const std::string& path = filePath();
    std::vector<char> buffer;
    for (auto _ : state) {
        FILE* f = std::fopen(path.c_str(), "rb");
        std::fseek(f, 0, SEEK_END);
        buffer.resize(size_t(std::ftell(f)));
        std::fseek(f, 0, SEEK_SET);
        size_t got = std::fread(buffer.data(), 1, buffer.size(), f);
        std::fclose(f);
        const char* p = buffer.data() + 4; // past "OFF\n"
        const char* e = buffer.data() + got;
        auto skip = [&] { while (p < e && (*p == ' ' || *p == '\n')) ++p; };
        uint32_t counts[3];
        for (uint32_t& c : counts) {
            skip();
            p = std::from_chars(p, e, c).ptr;
        }
        double sum = 0;
        for (uint64_t i = 0; i < uint64_t(counts[0]) * 3; ++i) {
            skip();
            float v;
            p = std::from_chars(p, e, v).ptr;
            sum += v;
        }
        uint64_t isum = 0;
        for (uint64_t i = 0; i < uint64_t(counts[1]) * 4; ++i) {
            skip();
            uint32_t v;
            p = std::from_chars(p, e, v).ptr;
            isum += v;
        }
        benchmark::DoNotOptimize(sum);
        benchmark::DoNotOptimize(isum);
        state.SetBytesProcessed(state.bytes_processed() + int64_t(got));
    }
}

void OffLoad(benchmark::State& state) {
    const CStringW path = CbUtf8ToWide(filePath());
    double peakOverGeometry = 0, peakOverFootprint = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<CTriangulation> mesh = std::make_unique<CTriangulation>();
        resetPeak();
        const long before = statusKiB("VmRSS:");
        state.ResumeTiming();
        VnOFF::Read(path.c_str(), *mesh);
        state.PauseTiming();
        const double added = double(statusKiB("VmHWM:") - before) * 1024.0;
        const double v = mesh->GetVertexCount(), t = mesh->GetTriangleCount();
        const double geometry = 12 * v + 12 * t;
        const double footprint = geometry + 12 * t /*adjacency*/ + 4 * v + 12 * t /*vertex-triangle relation*/;
        peakOverGeometry = added / geometry;
        peakOverFootprint = added / footprint;
        mesh.reset();
        state.ResumeTiming();
    }
    state.counters["peak_over_geometry"] = peakOverGeometry;
    state.counters["peak_over_final_mesh"] = peakOverFootprint;
}

void OffWrite(benchmark::State& state) {
    static const CTriangulation mesh = makeMesh();
    const std::string path = filePath() + ".out";
    const CStringW wpath = CbUtf8ToWide(path);
    int64_t written = 0;
    for (auto _ : state) {
        VnOFF::Write(wpath.c_str(), mesh);
        state.PauseTiming();
        FILE* f = std::fopen(path.c_str(), "rb");
        std::fseek(f, 0, SEEK_END);
        written += std::ftell(f);
        std::fclose(f);
        state.ResumeTiming();
    }
    std::remove(path.c_str());
    state.SetBytesProcessed(written);
}

} // namespace

BENCHMARK(OffFromCharsScan)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OffLoad)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OffWrite)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    SCleanup cleanup;
    filePath();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

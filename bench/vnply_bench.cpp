// PLY load and write of a 2M-triangle mesh with vertex normals and RGBA colours, binary and
// ASCII, each beside a baseline from the same run:
//   PlyBinaryReadFile      read the binary file into memory (the floor for a binary load)
//   PlyBinaryDecode        the codec alone: header, requests, body into typed buffers
//   PlyBinaryLoad          VnPLY::Read: decode plus mesh building, adjacency, vertex-triangle
//                          relation and facet normals
//   PlyAsciiFromCharsScan  read the ASCII file and std::from_chars every number of its body
//   PlyAsciiDecode / PlyAsciiLoad   as above for the ASCII file
//   PlyBinaryWrite / PlyAsciiWrite  VnPLY::Write to a file, bytes per second
// The load benchmarks report the peak resident memory they added over the final mesh's
// footprint (positions, normals, colours, corners, facet normals, adjacency, relation).
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
#include "detail/plycodec.h"
#include "vn3dbase/cattributehandle.h"
#include "vnbase/vncolor.h"
#include "vnbase/vnstreamfile.h"
#include "vnio/vnply.h"

namespace {

using namespace Geometry;
using VnPlyCodec::EType;

constexpr unsigned kGrid = 1000; // 1000 x 1000 quads: 1,002,001 vertices, 2,000,000 triangles

CTriangulation makeMesh() {
    std::vector<CbVector3f> positions;
    positions.reserve(size_t(kGrid + 1) * (kGrid + 1));
    for (unsigned j = 0; j <= kGrid; ++j)
        for (unsigned i = 0; i <= kGrid; ++i)
            positions.push_back({float(i) * 0.0123456f - 6.1f, float(j) * 0.0234567f + 1.5f,
                                 float((i * 7919u + j * 104729u) % 1000u) * 0.001f});
    std::vector<STriangleCorners> corners;
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
    auto n = GetOrCreateAttribute<CVertexRef, CbVector3f>(m, "normal");
    auto c = GetOrCreateAttribute<CVertexRef, VnColorRGBA>(m, "color");
    for (CVertexRef v : m.Vertices()) {
        const CbVector3f& p = m.GetPosition(v);
        float len = std::sqrt(p.Dot(p)) + 1e-3f;
        n[v] = CbVector3f(p.x / len, p.y / len, p.z / len);
        c[v] = VnColorRGBA(uint8_t(v.Index()), uint8_t(v.Index() >> 3), uint8_t(v.Index() >> 7), 255);
    }
    return m;
}

const CTriangulation& mesh() {
    static const CTriangulation m = makeMesh();
    return m;
}

std::string tempName(const char* suffix) { return "/tmp/vnply_bench_" + std::to_string(::getpid()) + suffix; }

const std::string& binaryPath() {
    static const std::string p = [] {
        std::string path = tempName(".bin.ply");
        VnPLY::Write(CbUtf8ToWide(path).c_str(), mesh(), VnPLY::eOutputFormatBinary);
        return path;
    }();
    return p;
}

const std::string& asciiPath() {
    static const std::string p = [] {
        std::string path = tempName(".txt.ply");
        VnPLY::Write(CbUtf8ToWide(path).c_str(), mesh(), VnPLY::eOutputFormatASCII);
        return path;
    }();
    return p;
}

struct SCleanup {
    ~SCleanup() {
        std::remove(binaryPath().c_str());
        std::remove(asciiPath().c_str());
    }
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

size_t readWhole(const std::string& path, std::vector<char>& buffer) {
    FILE* f = std::fopen(path.c_str(), "rb");
    std::fseek(f, 0, SEEK_END);
    buffer.resize(size_t(std::ftell(f)));
    std::fseek(f, 0, SEEK_SET);
    size_t got = std::fread(buffer.data(), 1, buffer.size(), f);
    std::fclose(f);
    return got;
}

int64_t fileSize(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    std::fseek(f, 0, SEEK_END);
    int64_t n = std::ftell(f);
    std::fclose(f);
    return n;
}

void PlyBinaryReadFile(benchmark::State& state) {
    std::vector<char> buffer;
    for (auto _ : state) {
        std::vector<char>().swap(buffer); // fresh pages each time, as a loader would get
        size_t got = readWhole(binaryPath(), buffer);
        benchmark::DoNotOptimize(buffer.data());
        state.SetBytesProcessed(state.bytes_processed() + int64_t(got));
    }
}

void PlyAsciiFromCharsScan(benchmark::State& state) {
    std::vector<char> buffer;
    for (auto _ : state) {
        std::vector<char>().swap(buffer);
        size_t got = readWhole(asciiPath(), buffer);
        const char* p = buffer.data() + std::string_view(buffer.data(), got).find("end_header\n") + 11;
        const char* e = buffer.data() + got;
        double sum = 0;
        uint64_t isum = 0;
        const uint64_t v = mesh().GetVertexCount(), t = mesh().GetTriangleCount();
        auto skip = [&] {
            while (p < e && (*p == ' ' || *p == '\n')) ++p;
        };
        for (uint64_t i = 0; i < v; ++i) {
            for (int k = 0; k < 6; ++k) {
                skip();
                float f;
                p = std::from_chars(p, e, f).ptr;
                sum += f;
            }
            for (int k = 0; k < 4; ++k) {
                skip();
                uint32_t u;
                p = std::from_chars(p, e, u).ptr;
                isum += u;
            }
        }
        for (uint64_t i = 0; i < t * 4; ++i) {
            skip();
            uint32_t u;
            p = std::from_chars(p, e, u).ptr;
            isum += u;
        }
        benchmark::DoNotOptimize(sum);
        benchmark::DoNotOptimize(isum);
        state.SetBytesProcessed(state.bytes_processed() + int64_t(got));
    }
}

void decode(benchmark::State& state, const std::string& path) {
    const CStringW wpath = CbUtf8ToWide(path);
    for (auto _ : state) {
        VnStreamReadBinaryFile file(wpath.c_str());
        VnPlyCodec::CReader r(file);
        auto xyz = r.Request("vertex", {"x", "y", "z"}, EType::eFloat32);
        auto n = r.Request("vertex", {"nx", "ny", "nz"}, EType::eFloat32);
        auto c = r.Request("vertex", {"red", "green", "blue", "alpha"}, EType::eUInt8);
        auto f = r.Request("face", {"vertex_indices"}, EType::eUInt32, 3);
        r.Read();
        benchmark::DoNotOptimize(f->bytes.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * fileSize(path));
}

void PlyBinaryDecode(benchmark::State& state) { decode(state, binaryPath()); }
void PlyAsciiDecode(benchmark::State& state) { decode(state, asciiPath()); }

void load(benchmark::State& state, const std::string& path) {
    const CStringW wpath = CbUtf8ToWide(path);
    double peakOverMesh = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<CTriangulation> m;
        resetPeak();
        const long before = statusKiB("VmRSS:");
        state.ResumeTiming();
        m = std::make_unique<CTriangulation>(VnPLY::Read(wpath.c_str()));
        state.PauseTiming();
        const double added = double(statusKiB("VmHWM:") - before) * 1024.0;
        const double v = m->GetVertexCount(), t = m->GetTriangleCount();
        // positions, normals, colours; corners, facet normals, adjacency; relation
        const double footprint = (12 + 12 + 4) * v + (12 + 12 + 12) * t + 4 * v + 12 * t;
        peakOverMesh = added / footprint;
        m.reset();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * fileSize(path));
    state.counters["peak_over_final_mesh"] = peakOverMesh;
}

void PlyBinaryLoad(benchmark::State& state) { load(state, binaryPath()); }
void PlyAsciiLoad(benchmark::State& state) { load(state, asciiPath()); }

void write(benchmark::State& state, VnPLY::EOutputFormat format) {
    const std::string path = tempName(format == VnPLY::eOutputFormatBinary ? ".out.bin.ply" : ".out.txt.ply");
    const CStringW wpath = CbUtf8ToWide(path);
    for (auto _ : state) VnPLY::Write(wpath.c_str(), mesh(), format);
    state.SetBytesProcessed(int64_t(state.iterations()) * fileSize(path));
    std::remove(path.c_str());
}

void PlyBinaryWrite(benchmark::State& state) { write(state, VnPLY::eOutputFormatBinary); }
void PlyAsciiWrite(benchmark::State& state) { write(state, VnPLY::eOutputFormatASCII); }

} // namespace

BENCHMARK(PlyBinaryReadFile)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PlyBinaryDecode)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PlyBinaryLoad)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PlyAsciiFromCharsScan)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PlyAsciiDecode)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PlyAsciiLoad)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PlyBinaryWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PlyAsciiWrite)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    SCleanup cleanup;
    binaryPath();
    asciiPath();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

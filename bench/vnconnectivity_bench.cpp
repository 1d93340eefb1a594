// Connectivity coder and the whole compressed stream, single-threaded and in memory:
//   ConnectivityEncode   the CLERS traversal with holes and handles (no stream, no positions)
//   ConnectivityDecode   Wrap&Zip decoding of the same symbols and side tables
//   StreamWrite / StreamRead   the lossless compressed stream of the mesh (connectivity,
//                        range-coded symbols, side blocks, positions), both directions
// Meshes: a closed 2M-triangle sphere built in code, and the public meshes of the shared
// data folder when present. Counters: triangles per second, connectivity bits per
// triangle (symbols and side blocks as stored), the order-0 entropy of the symbol string
// in bits per triangle, and position bits per vertex.
#include <benchmark/benchmark.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "basepool/cbstreambinary.h"
#include "benchutil.h"
#include "detail/vnconnectivity.h"
#include "vnio/vnply.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

namespace {

using namespace Geometry;

const CTriangulation* loadMesh(const std::string& name) {
    static std::map<std::string, std::unique_ptr<CTriangulation>> cache;
    auto it = cache.find(name);
    if (it != cache.end()) return it->second.get();
    std::unique_ptr<CTriangulation> mesh;
    if (name == "sphere2M") {
        mesh = std::make_unique<CTriangulation>(VnBench::MakeSphere(1000, 1000));
    } else {
        const std::string path = std::string(VNIO_SHARED_DATA_DIR) + "/ply/" + name;
        if (std::filesystem::exists(path)) {
            try {
                mesh = std::make_unique<CTriangulation>(VnPLY::Read(VnBench::Wide(path)));
            } catch (...) {
            }
        }
    }
    return (cache[name] = std::move(mesh)).get();
}

double symbolEntropyBits(const VnConnectivity::SEncodedMesh& coded) {
    double counts[5] = {0, 0, 0, 0, 0}, total = 0;
    for (const auto& c : coded.components)
        for (uint8_t s : c.symbols) {
            counts[s > 4 ? 4 : s] += 1;
            total += 1;
        }
    double bits = 0;
    for (double n : counts)
        if (n > 0) bits -= n * std::log2(n / total);
    return bits;
}

void ConnectivityEncode(benchmark::State& state, const std::string& name) {
    const CTriangulation* mesh = loadMesh(name);
    if (!mesh) return state.SkipWithError("mesh not available");
    VnConnectivity::SEncodedMesh coded;
    for (auto _ : state) {
        if (!VnConnectivity::EncodeMesh(*mesh, coded)) return state.SkipWithError("mesh refused by the coder");
        benchmark::DoNotOptimize(coded.components.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * mesh->GetTriangleCount());
    state.counters["Mtri/s"] = benchmark::Counter(double(state.iterations()) * mesh->GetTriangleCount() / 1e6, benchmark::Counter::kIsRate);
    state.counters["entropy_bpt"] = symbolEntropyBits(coded) / mesh->GetTriangleCount();
    state.counters["components"] = double(coded.components.size());
    size_t handles = 0, holes = 0;
    for (const auto& c : coded.components) {
        handles += c.handleCount;
        holes += c.holeSizes.size() - 1 + (c.holeSizes[0] > 2);
    }
    state.counters["handles"] = double(handles);
    state.counters["holes"] = double(holes);
}

void ConnectivityDecode(benchmark::State& state, const std::string& name) {
    const CTriangulation* mesh = loadMesh(name);
    if (!mesh) return state.SkipWithError("mesh not available");
    VnConnectivity::SEncodedMesh coded;
    if (!VnConnectivity::EncodeMesh(*mesh, coded)) return state.SkipWithError("mesh refused by the coder");
    // The symbols as the reader holds them after restoring the split kinds.
    std::vector<std::vector<uint8_t>> symbols;
    for (const auto& c : coded.components) symbols.push_back(c.symbols);
    VnConnectivity::SDecodedComponent out;
    for (auto _ : state) {
        for (size_t i = 0; i < coded.components.size(); ++i) {
            const auto& c = coded.components[i];
            VnConnectivity::DecodeComponent(symbols[i], c.holeSizes, c.handleOffsets, c.vertexCount, out, "bench", "decode");
            benchmark::DoNotOptimize(out.triangles.data());
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * mesh->GetTriangleCount());
    state.counters["Mtri/s"] = benchmark::Counter(double(state.iterations()) * mesh->GetTriangleCount() / 1e6, benchmark::Counter::kIsRate);
}

void StreamWrite(benchmark::State& state, const std::string& name) {
    const CTriangulation* mesh = loadMesh(name);
    if (!mesh) return state.SkipWithError("mesh not available");
    size_t bytes = 0;
    uint64_t positionBytes = 0;
    bool coded = false;
    for (auto _ : state) {
        CbStreamWriteBinaryMemory out;
        VnStreamWriteCompressedTriangulation writer(out, VnStreamCompressedTriangulationBase::eLossless, 0.f);
        writer << *mesh;
        bytes = out.GetSize();
        positionBytes = writer.GetPositionBytes();
        coded = writer.IsConsistent();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * mesh->GetTriangleCount());
    state.counters["Mtri/s"] = benchmark::Counter(double(state.iterations()) * mesh->GetTriangleCount() / 1e6, benchmark::Counter::kIsRate);
    state.counters["bytes"] = double(bytes);
    state.counters["compressed"] = coded;
    state.counters["pos_bpv"] = 8.0 * double(positionBytes) / mesh->GetVertexCount();
}

void StreamRead(benchmark::State& state, const std::string& name) {
    const CTriangulation* mesh = loadMesh(name);
    if (!mesh) return state.SkipWithError("mesh not available");
    CbStreamWriteBinaryMemory out;
    VnStreamWriteCompressedTriangulation writer(out, VnStreamCompressedTriangulationBase::eLossless, 0.f);
    writer << *mesh;
    if (!writer.IsConsistent()) return state.SkipWithError("mesh stored uncompressed");
    const std::vector<uint8_t> bytes = out.TakeData();
    VnStreamReadCompressedTriangulation::SRecordInfo info;
    for (auto _ : state) {
        CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
        VnStreamReadCompressedTriangulation reader(in);
        CTriangulation back;
        reader >> back;
        info = reader.GetRecordInfo();
        benchmark::DoNotOptimize(back.GetCornerArray());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * mesh->GetTriangleCount());
    state.counters["Mtri/s"] = benchmark::Counter(double(state.iterations()) * mesh->GetTriangleCount() / 1e6, benchmark::Counter::kIsRate);
    state.counters["conn_bpt"] = 8.0 * double(info.connectivityBytes) / mesh->GetTriangleCount();
    state.counters["pos_bpv"] = 8.0 * double(info.positionBytes) / mesh->GetVertexCount();
}

const int registered = [] {
    for (const char* name : {"sphere2M", "Armadillo.ply", "bun_zipper.ply", "hammer_loop2.ply", "cycloidal.ply", "drill_shaft_zip.ply"}) {
        const std::string n(name);
        benchmark::RegisterBenchmark(("ConnectivityEncode/" + n).c_str(), ConnectivityEncode, n)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("ConnectivityDecode/" + n).c_str(), ConnectivityDecode, n)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("StreamWrite/" + n).c_str(), StreamWrite, n)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("StreamRead/" + n).c_str(), StreamRead, n)->Unit(benchmark::kMillisecond);
    }
    return 0;
}();

} // namespace

BENCHMARK_MAIN();

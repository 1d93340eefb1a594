// Attribute section of the compressed stream on a scanned mesh (a large sphere when the
// shared data is missing): vertex normals (typed, three floats) and vertex colours (raw),
// each alone. Reports bits per value and MB/s of raw attribute bytes for the attribute
// section only (the geometry is timed apart and left out).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>

#include "benchutil.h"
#include "vn3dbase/cattributehandle.h"
#include "vn3dbase/vnmptriangulationnormals.h"
#include "vnbase/vncolor.h"
#include "vnio/vnply.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

using namespace Geometry;

namespace {

using Clock = std::chrono::steady_clock;

class TimedWriter : public VnStreamWriteCompressedTriangulation {
public:
    TimedWriter(::CbStreamWriteBinary& s) : VnStreamWriteCompressedTriangulation(s, eLossless, 0.f) {}
    double seconds = 0;

protected:
    void compressAttributes() override {
        const auto t0 = Clock::now();
        VnStreamWriteCompressedTriangulation::compressAttributes();
        seconds += std::chrono::duration<double>(Clock::now() - t0).count();
    }
};

class TimedReader : public VnStreamReadCompressedTriangulation {
public:
    explicit TimedReader(::CbStreamReadBinary& s) : VnStreamReadCompressedTriangulation(s) {}
    double seconds = 0;

protected:
    void decompressAttributesVersion3(CTriangulation& mesh) override {
        const auto t0 = Clock::now();
        VnStreamReadCompressedTriangulation::decompressAttributesVersion3(mesh);
        seconds += std::chrono::duration<double>(Clock::now() - t0).count();
    }
};

// Mesh with computed vertex normals and colours shaded from them; `which` 0 keeps only the
// normals serialised, 1 only the colours.
CTriangulation build(int which) {
    CTriangulation mesh;
    const std::string path = std::string(VNIO_SHARED_DATA_DIR) + "/ply/hammer_loop2.ply";
    if (std::filesystem::exists(path)) {
        try {
            mesh = VnPLY::Read(VnBench::Wide(path));
        } catch (const CbException&) {
            mesh = CTriangulation();
        }
    }
    if (mesh.GetVertexCount() < 1000) mesh = VnBench::MakeSphere(700, 700);
    VnMpTriangulationNormals::Compute(mesh);
    auto normal = FindAttribute<CVertexRef, CbVector3f>(mesh, "normal");
    auto color = GetOrCreateAttribute<CVertexRef, VnColorRGBA>(mesh, "color");
    for (CVertexRef v : mesh.Vertices()) {
        const CbVector3f& n = normal[v];
        auto shade = [](float f) { return uint8_t(std::lround(127.5f + 127.5f * std::clamp(f, -1.f, 1.f))); };
        color[v] = VnColorRGBA(shade(n.x), shade(n.y), shade(n.z), 255);
    }
    for (int c : {eContainerVertex, eContainerTriangle})
        for (SAttributeEntry* e : mesh.GetAttributes(c)) mesh.setSerialize(c, e->name, false);
    mesh.setSerialize(eContainerVertex, which == 0 ? "normal" : "color", true);
    return mesh;
}

const CTriangulation& fixture(int which) {
    static const CTriangulation meshes[2] = {build(0), build(1)};
    return meshes[which];
}

size_t valueBytes(int which) { return which == 0 ? 12 : 4; }

void BM_AttributesEncode(benchmark::State& state) {
    const int which = static_cast<int>(state.range(0));
    const CTriangulation& mesh = fixture(which);
    size_t withBytes = 0;
    for (auto _ : state) {
        CbStreamWriteBinaryMemory sink;
        TimedWriter writer(sink);
        writer << mesh;
        state.SetIterationTime(writer.seconds);
        withBytes = sink.GetSize();
    }
    CTriangulation bare = mesh;
    bare.setSerialize(eContainerVertex, which == 0 ? "normal" : "color", false);
    CbStreamWriteBinaryMemory sink;
    VnStreamWriteCompressedTriangulation(sink, VnStreamCompressedTriangulationBase::eLossless, 0.f) << bare;
    const double vertices = mesh.GetVertexCount();
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(vertices * double(valueBytes(which))));
    state.counters["vertices"] = vertices;
    state.counters["bits_per_value"] = 8.0 * double(withBytes - sink.GetSize()) / vertices;
}

void BM_AttributesDecode(benchmark::State& state) {
    const int which = static_cast<int>(state.range(0));
    const CTriangulation& mesh = fixture(which);
    CbStreamWriteBinaryMemory sink;
    VnStreamWriteCompressedTriangulation(sink, VnStreamCompressedTriangulationBase::eLossless, 0.f) << mesh;
    for (auto _ : state) {
        CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
        TimedReader reader(source);
        CTriangulation read;
        reader >> read;
        state.SetIterationTime(reader.seconds);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(double(mesh.GetVertexCount()) * double(valueBytes(which))));
}

// 0: vertex normals, 1: vertex colours.
BENCHMARK(BM_AttributesEncode)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AttributesDecode)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

// Position coding of a ~1M-vertex mesh in a fixed traversal order (triangles in slot order,
// each new corner coded in its triangle): lossless and quantised, both directions, in MB/s
// of raw positions (12 bytes per vertex) and bits per vertex.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>

#include "benchutil.h"
#include "detail/vnpositioncoders.h"
#include "vn3dbase/vnmptriangulationboundingbox.h"
#include "vnio/vnply.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

using namespace Geometry;

namespace {

using Order = std::vector<std::pair<uint32_t, uint32_t>>;

class PositionWriter : public VnStreamWriteCompressedTriangulation {
public:
    PositionWriter(::CbStreamWriteBinary& s, ECompressionMethod m, float p) : VnStreamWriteCompressedTriangulation(s, m, p) {}
    void Code(const CTriangulation& mesh, const Order& order) {
        m_mesh = &mesh;
        initializeFPQuantization(mesh);
        beginComponentPositions();
        for (auto [v, t] : order) encodePosition(CVertexRef(v), CTriangleRef(t));
        flushComponentPositions();
    }
};

class PositionReader : public VnStreamReadCompressedTriangulation {
public:
    explicit PositionReader(::CbStreamReadBinary& s) : VnStreamReadCompressedTriangulation(s) {}
    void Decode(CTriangulation& component, const std::vector<uint32_t>& reference) {
        initializeFPQuantization();
        m_positionCoders = std::make_unique<SPositionReaders>(source(), m_quantizers);
        setVertexCoordinates(component, reference);
    }
};

struct SFixture {
    CTriangulation mesh, renumbered;
    Order order;
    std::vector<uint32_t> reference;
    float extent = 1.f;
};

// Mesh 0: the 481k-vertex scanned hammer (when the shared data is there), mesh 1: a
// 1M-vertex sphere.
SFixture build(int which) {
    SFixture s;
    const std::string path = std::string(VNIO_SHARED_DATA_DIR) + "/ply/hammer_loop2.ply";
    if (which == 0 && std::filesystem::exists(path)) {
        try {
            s.mesh = VnPLY::Read(VnBench::Wide(path));
        } catch (const CbException&) {
            s.mesh = CTriangulation();
        }
    }
    if (s.mesh.GetVertexCount() < 1000) s.mesh = VnBench::MakeSphere(1000, 1000);
    s.mesh.ComputeAdjacency();
    std::vector<uint32_t> newIndex(s.mesh.GetVertexSlotCount(), c_IndexInvalid);
    std::vector<STriangleCorners> corners;
    for (CTriangleRef t : s.mesh.Triangles()) {
        for (int k : {1, 0, 2}) {
            uint32_t v = s.mesh.GetCorner(t, k);
            if (newIndex[v] != c_IndexInvalid) continue;
            newIndex[v] = static_cast<uint32_t>(s.order.size());
            s.order.emplace_back(v, t.Index());
            s.reference.push_back(static_cast<uint32_t>(corners.size()));
        }
        const STriangleCorners& c = s.mesh.GetCorners(t);
        corners.push_back({newIndex[c[0]], newIndex[c[1]], newIndex[c[2]]});
    }
    const uint32_t vertices = static_cast<uint32_t>(s.order.size()), triangles = static_cast<uint32_t>(corners.size());
    s.renumbered = CTriangulation(vertices, triangles, SMemoryBlock<CbVector3f>(size_t(vertices)),
                                  SMemoryBlock<STriangleCorners>(std::move(corners)));
    s.renumbered.ComputeAdjacency();
    const CbVector3f e = VnMpTriangulationBoundingBox::Compute(s.mesh).Extent();
    s.extent = std::max(e.x, std::max(e.y, e.z));
    return s;
}

const SFixture& fixture(int which) {
    static SFixture f[2] = {build(0), build(1)};
    return f[which];
}

// Lossless (0) or quantised with the precision extent / (2^q - 1).
float precisionFor(const SFixture& f, int q) { return q == 0 ? 0.f : f.extent / float((1u << q) - 1); }

void BM_PositionsEncode(benchmark::State& state) {
    const SFixture& f = fixture(static_cast<int>(state.range(0)));
    const int q = static_cast<int>(state.range(1));
    size_t bytes = 0;
    for (auto _ : state) {
        CbStreamWriteBinaryMemory sink;
        PositionWriter writer(sink, q ? VnStreamCompressedTriangulationBase::eQuantized : VnStreamCompressedTriangulationBase::eLossless,
                              precisionFor(f, q));
        writer.Code(f.mesh, f.order);
        bytes = sink.GetSize();
    }
    const double vertices = double(f.order.size());
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(vertices * 12));
    state.counters["vertices"] = vertices;
    state.counters["bits_per_vertex"] = 8.0 * double(bytes) / vertices;
}

void BM_PositionsDecode(benchmark::State& state) {
    const SFixture& f = fixture(static_cast<int>(state.range(0)));
    const int q = static_cast<int>(state.range(1));
    CbStreamWriteBinaryMemory sink;
    PositionWriter writer(sink, q ? VnStreamCompressedTriangulationBase::eQuantized : VnStreamCompressedTriangulationBase::eLossless,
                          precisionFor(f, q));
    writer.Code(f.mesh, f.order);
    CTriangulation component = f.renumbered;
    for (auto _ : state) {
        CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
        PositionReader reader(source);
        reader.Decode(component, f.reference);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(f.order.size() * 12));
}

// Mesh 0 or 1; then 0: lossless, 11, 14, 16: quantisation bits over the largest extent.
BENCHMARK(BM_PositionsEncode)->ArgsProduct({{0, 1}, {0, 11, 14, 16}})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PositionsDecode)->ArgsProduct({{0, 1}, {0, 11, 14, 16}})->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

// Position coding of the compressed stream: the header's mode and scale, the exactness of
// the bit-exact mode, the grid error of the quantised one, and the shared prediction.
// Positions are coded through the writer's and reader's own members, in an order where each
// vertex is predicted in a triangle that holds it, the way the connectivity coder does.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "detail/vnpositioncoders.h"
#include "support/meshbuilders.h"
#include "vnbase/vnquantization.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

using namespace Geometry;

namespace {

using ECompressionMethod = VnStreamCompressedTriangulationBase::ECompressionMethod;

class PositionWriter : public VnStreamWriteCompressedTriangulation {
public:
    PositionWriter(::CbStreamWriteBinary& s, ECompressionMethod m, float p) : VnStreamWriteCompressedTriangulation(s, m, p) {}
    void Code(const CTriangulation& mesh, const std::vector<std::pair<uint32_t, uint32_t>>& order) {
        m_mesh = &mesh;
        initializeFPQuantization(mesh);
        beginComponentPositions();
        for (auto [v, t] : order) encodePosition(CVertexRef(v), CTriangleRef(t));
        flushComponentPositions();
    }
    void Header(const CTriangulation& mesh) { initializeFPQuantization(mesh); }
    const std::vector<CbVector3f>& Reconstructed() const { return m_reconstructed; }
    static CbVector3f Predict(const CTriangulation& mesh, const CbVector3f* p, const uint8_t* known, uint32_t v, uint32_t t) {
        return predictPosition(mesh, p, known, CVertexRef(v), CTriangleRef(t));
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

// The coding order: triangles in slot order, each corner not yet coded is coded in it.
// Returns (vertex, triangle) pairs and the mesh renumbered in that order, as the reader
// rebuilds it.
std::vector<std::pair<uint32_t, uint32_t>> codingOrder(const CTriangulation& mesh, CTriangulation& renumbered,
                                                       std::vector<uint32_t>& reference) {
    std::vector<std::pair<uint32_t, uint32_t>> order;
    std::vector<uint32_t> newIndex(mesh.GetVertexSlotCount(), c_IndexInvalid);
    for (CTriangleRef t : mesh.Triangles())
        for (int k : {1, 0, 2}) {
            uint32_t v = mesh.GetCorner(t, k);
            if (newIndex[v] != c_IndexInvalid) continue;
            newIndex[v] = static_cast<uint32_t>(order.size());
            order.emplace_back(v, t.Index());
        }
    std::vector<STriangleCorners> corners;
    std::vector<uint32_t> denseTriangle(mesh.GetTriangleSlotCount(), c_IndexInvalid);
    for (CTriangleRef t : mesh.Triangles()) {
        denseTriangle[t] = static_cast<uint32_t>(corners.size());
        const STriangleCorners& c = mesh.GetCorners(t);
        corners.push_back({newIndex[c[0]], newIndex[c[1]], newIndex[c[2]]});
    }
    reference.clear();
    for (auto [v, t] : order) reference.push_back(denseTriangle[t]);
    const uint32_t vertices = static_cast<uint32_t>(order.size()), triangles = static_cast<uint32_t>(corners.size());
    renumbered = CTriangulation(vertices, triangles, SMemoryBlock<CbVector3f>(std::vector<CbVector3f>(vertices)),
                                SMemoryBlock<STriangleCorners>(std::move(corners)));
    renumbered.ComputeAdjacency();
    return order;
}

struct SCoded {
    std::vector<uint8_t> bytes;
    CTriangulation decoded;
    std::vector<std::pair<uint32_t, uint32_t>> order;
    std::vector<CbVector3f> reconstructed;
};

SCoded codeAndDecode(CTriangulation mesh, ECompressionMethod method, float precision) {
    mesh.ComputeAdjacency();
    SCoded out;
    std::vector<uint32_t> reference;
    out.order = codingOrder(mesh, out.decoded, reference);
    CbStreamWriteBinaryMemory sink;
    PositionWriter writer(sink, method, precision);
    writer.Code(mesh, out.order);
    out.reconstructed = writer.Reconstructed();
    EXPECT_EQ(writer.GetVertexMap().GetSize(), static_cast<int>(out.order.size()));
    out.bytes = sink.GetData();
    CbStreamReadBinaryMemory source(out.bytes.data(), out.bytes.size());
    PositionReader reader(source);
    reader.Decode(out.decoded, reference);
    EXPECT_EQ(source.GetBytesLeft(), 0u);
    return out;
}

uint8_t modeOf(const std::vector<uint8_t>& bytes) { return bytes.at(0); }
float scaleOf(const std::vector<uint8_t>& bytes) {
    float s;
    std::memcpy(&s, bytes.data() + 1, 4);
    return s;
}

CTriangulation jitteredGrid(unsigned n, float amplitude, uint32_t seed) {
    CTriangulation mesh = VnTest::MakeGrid(n, n);
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(-amplitude, amplitude);
    for (CVertexRef v : mesh.Vertices()) {
        CbVector3f p = mesh.GetPosition(v);
        mesh.SetPosition(v, CbVector3f(p.x + d(rng), p.y + d(rng), std::sin(p.x * 0.3f) + d(rng)));
    }
    return mesh;
}

TEST(VnCompressedPositionsLossless, SpecialValuesComeBackBitIdentical) {
    CTriangulation mesh = VnTest::MakeGrid(4, 4);
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<float> specials = {-0.f, inf, -inf, std::bit_cast<float>(0x7FC0BEEFu), std::bit_cast<float>(0xFFA00001u),
                                         std::numeric_limits<float>::denorm_min(), -1e-40f, 3e38f, -3e38f, 1e-30f};
    size_t i = 0;
    for (CVertexRef v : mesh.Vertices()) {
        mesh.SetPosition(v, CbVector3f(specials[i % specials.size()], specials[(i + 3) % specials.size()], float(i) * 0.1f));
        ++i;
    }
    for (ECompressionMethod method : {VnStreamCompressedTriangulationBase::eLossless, VnStreamCompressedTriangulationBase::eQuantized}) {
        SCoded c = codeAndDecode(mesh, method, 0.01f);
        EXPECT_EQ(modeOf(c.bytes), 0) << "non-finite coordinates force the bit-exact mode";
        for (size_t k = 0; k < c.order.size(); ++k)
            for (int axis = 0; axis < 3; ++axis)
                EXPECT_EQ(std::bit_cast<uint32_t>(c.decoded.GetPosition(CVertexRef(uint32_t(k)))[axis]),
                          std::bit_cast<uint32_t>(mesh.GetPosition(CVertexRef(c.order[k].first))[axis]));
    }
}

TEST(VnCompressedPositionsLossless, SmoothMeshAndDeletedSlots) {
    CTriangulation mesh = jitteredGrid(30, 0.2f, 1);
    mesh.RemoveTriangle(CTriangleRef(0)); // the two triangles at corner vertex 0
    mesh.RemoveTriangle(CTriangleRef(1));
    mesh.RemoveVertex(CVertexRef(0));
    SCoded c = codeAndDecode(mesh, VnStreamCompressedTriangulationBase::eLossless, 0.f);
    EXPECT_EQ(modeOf(c.bytes), 0);
    for (size_t k = 0; k < c.order.size(); ++k)
        EXPECT_EQ(c.decoded.GetPosition(CVertexRef(uint32_t(k))), mesh.GetPosition(CVertexRef(c.order[k].first)));
}

TEST(VnCompressedPositionsQuantized, WithinHalfAGridStep) {
    CTriangulation mesh = jitteredGrid(40, 0.3f, 2);
    for (float precision : {0.001f, 0.01f, 0.1f}) {
        SCoded c = codeAndDecode(mesh, VnStreamCompressedTriangulationBase::eQuantized, precision);
        ASSERT_EQ(modeOf(c.bytes), 1);
        const float step = 1.f / scaleOf(c.bytes);
        EXPECT_LE(step, 4 * precision);
        float worst = 0.f;
        for (size_t k = 0; k < c.order.size(); ++k) {
            const CbVector3f d = c.decoded.GetPosition(CVertexRef(uint32_t(k)));
            EXPECT_EQ(d, c.reconstructed[c.order[k].first]) << "the reader must see what the writer predicted from";
            const CbVector3f o = mesh.GetPosition(CVertexRef(c.order[k].first));
            for (int axis = 0; axis < 3; ++axis) worst = std::max(worst, std::fabs(d[axis] - o[axis]));
        }
        EXPECT_LE(worst, 0.5f * step * 1.0001f + 1e-6f) << precision;
    }
}

// A triangle whose edges are all much longer than 4 x precision, with codes that keep
// their lowest bit, shows the scale step of the derivation on its own.
TEST(VnCompressedPositionsQuantized, ScaleFromPrecisionOnTheFloatBits) {
    CTriangulation mesh;
    mesh.AddVertex(CbVector3f(0.f, 0.f, 0.f));
    mesh.AddVertex(CbVector3f(10.0625f, 0.f, 0.f));
    mesh.AddVertex(CbVector3f(0.f, 10.0625f, 0.f));
    mesh.AddTriangle(CVertexRef(0), CVertexRef(1), CVertexRef(2));
    const std::pair<float, float> cases[] = {{0.25f, 8.f}, {0.1875f, 8.f}, {0.125f, 16.f}}; // s = 1, 0.75, 0.5
    for (auto [precision, scale] : cases) {
        CbStreamWriteBinaryMemory sink;
        PositionWriter writer(sink, VnStreamCompressedTriangulationBase::eQuantized, precision);
        writer.Header(mesh);
        ASSERT_EQ(sink.GetSize(), 1u + 7 * 4);
        EXPECT_EQ(modeOf(sink.GetData()), 1);
        EXPECT_EQ(scaleOf(sink.GetData()), scale) << precision;
    }
    // When the mean edge is below 4 x precision the edge itself sets the step: mean 11.86 -> 16 -> 0.5.
    CbStreamWriteBinaryMemory sink;
    PositionWriter writer(sink, VnStreamCompressedTriangulationBase::eQuantized, 100.f);
    writer.Header(mesh);
    EXPECT_EQ(scaleOf(sink.GetData()), 0.5f);
}

TEST(VnCompressedPositionsQuantized, SharedTrailingZerosEnlargeTheStep) {
    CTriangulation mesh = VnTest::MakeGrid(10, 10); // integer lattice, edges 1 and 1.41
    SCoded c = codeAndDecode(mesh, VnStreamCompressedTriangulationBase::eQuantized, 0.01f);
    ASSERT_EQ(modeOf(c.bytes), 1);
    // s = 0.04 gives P = 1/16 and scale 128; every code is a multiple of 128.
    EXPECT_EQ(scaleOf(c.bytes), 1.f);
    for (size_t k = 0; k < c.order.size(); ++k)
        EXPECT_EQ(c.decoded.GetPosition(CVertexRef(uint32_t(k))), mesh.GetPosition(CVertexRef(c.order[k].first)));
    // One vertex off the lattice keeps the fine grid.
    mesh.SetPosition(CVertexRef(5), CbVector3f(5.f + 1.f / 128.f, 0.f, 0.f));
    CbStreamWriteBinaryMemory sink;
    PositionWriter writer(sink, VnStreamCompressedTriangulationBase::eQuantized, 0.01f);
    writer.Header(mesh);
    EXPECT_EQ(scaleOf(sink.GetData()), 128.f);
}

TEST(VnCompressedPositionsQuantized, FallsBackToBitExact) {
    auto modeFor = [](float extent, float precision) {
        CTriangulation mesh;
        mesh.AddVertex(CbVector3f(0.f, 0.f, 0.f));
        mesh.AddVertex(CbVector3f(extent, 0.f, 0.f));
        mesh.AddVertex(CbVector3f(0.f, extent * 0.7f, 0.1f));
        mesh.AddTriangle(CVertexRef(0), CVertexRef(1), CVertexRef(2));
        CbStreamWriteBinaryMemory sink;
        PositionWriter writer(sink, VnStreamCompressedTriangulationBase::eQuantized, precision);
        writer.Header(mesh);
        return std::make_pair(modeOf(sink.GetData()), sink.GetSize());
    };
    EXPECT_EQ(modeFor(1e6f, 1e-4f), std::make_pair(uint8_t{0}, size_t{1})); // scale 16384 x 1e6 >= 2^31
    EXPECT_EQ(modeFor(1e-6f, 1e-9f).first, 0);                              // scale 2^30 > 2^24
    EXPECT_EQ(modeFor(1e11f, 1e12f).first, 0);                              // scale 2^-34 < 2^-31
    EXPECT_EQ(modeFor(1e3f, 1e-3f).first, 1);
    for (float bad : {0.f, -1.f, std::nanf(""), std::numeric_limits<float>::infinity()})
        EXPECT_EQ(modeFor(10.f, bad).first, 0) << bad;
}

TEST(VnCompressedPositionsFailure, UnknownMethodAndMode) {
    CTriangulation mesh = VnTest::MakeGrid(1, 1);
    CbStreamWriteBinaryMemory sink;
    PositionWriter writer(sink, static_cast<ECompressionMethod>(7), 0.1f);
    try {
        writer.Header(mesh);
        FAIL() << "no exception";
    } catch (const CbExceptionStream& e) {
        EXPECT_EQ(e.GetFunction(), "VnStreamWriteCompressedTriangulation::initializeFPQuantization");
    }
    const uint8_t bytes[] = {2};
    CbStreamReadBinaryMemory source(bytes, 1);
    PositionReader reader(source);
    CTriangulation out;
    try {
        reader.Decode(out, {});
        FAIL() << "no exception";
    } catch (const CbExceptionStream& e) {
        EXPECT_EQ(e.GetFunction(), "VnStreamReadCompressedTriangulation::initializeFPQuantization");
    }
}

// Two triangles sharing the edge 1-2: t0 = (0, 1, 2), t1 = (2, 1, 3).
TEST(VnCompressedPositionsPrediction, EveryCaseOfTheRule) {
    CTriangulation mesh;
    const CbVector3f p[4] = {{0, 0, 0}, {4, 0, 0}, {0, 2, 0}, {4, 2, 6}};
    for (const CbVector3f& q : p) mesh.AddVertex(q);
    mesh.AddTriangle(CVertexRef(0), CVertexRef(1), CVertexRef(2));
    mesh.AddTriangle(CVertexRef(2), CVertexRef(1), CVertexRef(3));
    mesh.ComputeAdjacency();
    uint8_t known[4] = {0, 0, 0, 0};
    EXPECT_EQ(PositionWriter::Predict(mesh, p, known, 0, 0), CbVector3f(0, 0, 0)); // nothing known
    known[1] = 1;
    EXPECT_EQ(PositionWriter::Predict(mesh, p, known, 0, 0), p[1]); // only b = corner 1
    known[1] = 0;
    known[2] = 1;
    EXPECT_EQ(PositionWriter::Predict(mesh, p, known, 0, 0), p[2]); // only a = corner 2
    known[1] = 1;
    EXPECT_EQ(PositionWriter::Predict(mesh, p, known, 0, 0), CbVector3f(2, 1, 0)); // midpoint: 3 not known
    known[3] = 1;
    EXPECT_EQ(PositionWriter::Predict(mesh, p, known, 0, 0), CbVector3f(0, 0, -6)); // parallelogram 1 + 2 - 3
    known[0] = 1;
    EXPECT_EQ(PositionWriter::Predict(mesh, p, known, 3, 1), CbVector3f(4, 2, 0)); // across the edge from t1
    EXPECT_EQ(PositionWriter::Predict(mesh, p, known, 1, 0), CbVector3f(0, 1, 0)); // no triangle across 2-0: midpoint
    const CbVector3f withNaN[4] = {{0, 0, 0}, {std::nanf(""), 0, 0}, {0, 2, 0}, {4, 2, 6}};
    EXPECT_EQ(PositionWriter::Predict(mesh, withNaN, known, 0, 0), CbVector3f(0, 0, 0));
    const float inf = std::numeric_limits<float>::infinity();
    const CbVector3f infinities[4] = {{0, 0, 0}, {inf, 0, 0}, {-inf, 2, 0}, {4, 2, 6}};
    EXPECT_EQ(PositionWriter::Predict(mesh, infinities, known, 0, 0), CbVector3f(0, 0, 0)); // inf - inf
}

TEST(VnCompressedPositionsFailure, ReaderRejectsInconsistentReferences) {
    CTriangulation mesh = jitteredGrid(3, 0.1f, 3);
    mesh.ComputeAdjacency();
    CTriangulation decoded;
    std::vector<uint32_t> reference;
    auto order = codingOrder(mesh, decoded, reference);
    CbStreamWriteBinaryMemory sink;
    PositionWriter writer(sink, VnStreamCompressedTriangulationBase::eLossless, 0.f);
    writer.Code(mesh, order);
    for (auto bad : {std::vector<uint32_t>(reference.begin(), reference.end() - 1), std::vector<uint32_t>(reference.size(), 999u),
                     std::vector<uint32_t>(reference.size(), 0u)}) {
        CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
        PositionReader reader(source);
        EXPECT_THROW(reader.Decode(decoded, bad), CbExceptionStream);
    }
}

} // namespace

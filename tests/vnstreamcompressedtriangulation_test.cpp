// The compressed stream's container: record layout, the uncompressed path, polylines,
// component frames, and every failure rule of writer and reader.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>
#include <random>

#include "detail/vncompressedshared.h"
#include "detail/vnpositioncoders.h"
#include "support/meshbuilders.h"
#include "vn3dbase/cattributehandle.h"
#include "vnbase/vnquantization.h"
#include "vnbase/vnstreamfile.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

using namespace Geometry;

namespace {

using Base = VnStreamCompressedTriangulationBase;
constexpr const char* kWriterOperator = "VnStreamWriteCompressedTriangulation::operator <<";
constexpr const char* kReaderOperator = "VnStreamReadCompressedTriangulation::operator >>";

std::vector<uint8_t> writeMesh(const CTriangulation& mesh, bool version2 = false) {
    CbStreamWriteBinaryMemory sink;
    if (version2) {
        VnStreamWriteCompressedTriangulationVersion2 writer(sink, Base::eQuantized, 0.01f);
        writer << mesh;
    } else {
        VnStreamWriteCompressedTriangulation writer(sink, Base::eQuantized, 0.01f);
        writer << mesh;
    }
    return sink.GetData();
}

template <class F> void expectStreamFailure(F&& f, const char* function) {
    try {
        f();
        ADD_FAILURE() << "no exception";
    } catch (const CbExceptionStream& e) {
        EXPECT_EQ(e.GetFunction(), function);
        EXPECT_EQ(e.GetSourceFile(), std::string(function).rfind("VnStreamRead", 0) == 0 ? VnCompressedDetail::kSourceReader
                                                                                         : VnCompressedDetail::kSourceWriter);
    }
}

// A cube with a per-vertex label and a per-triangle weight, one triangle and one vertex
// slot deleted, and one vertex no triangle uses (so the connectivity coder refuses it and
// the record takes the uncompressed path).
CTriangulation decoratedMesh() {
    CTriangulation mesh = VnTest::MakeCube();
    auto color = GetOrCreateAttribute<CVertexRef, uint32_t>(mesh, "testLabel");
    for (CVertexRef v : mesh.Vertices()) color[v] = 0x01020300u + v.Index();
    auto weight = GetOrCreateAttribute<CTriangleRef, float>(mesh, "testWeight");
    for (CTriangleRef t : mesh.Triangles()) weight[t] = 0.5f * float(t.Index());
    mesh.AddVertex(CbVector3f(9, 9, 9));
    mesh.RemoveVertex(CVertexRef(8));
    mesh.AddVertex(CbVector3f(7, 7, 7));
    mesh.RemoveTriangle(CTriangleRef(3));
    return mesh;
}

// Triangles as position triples, each rotated to start at its smallest position, sorted:
// equal for two meshes with the same oriented triangles whatever their numbering.
std::vector<std::array<CbVector3f, 3>> canonicalTriangles(const CTriangulation& mesh) {
    auto less = [](const CbVector3f& a, const CbVector3f& b) {
        return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
    };
    std::vector<std::array<CbVector3f, 3>> out;
    for (CTriangleRef t : mesh.Triangles()) {
        std::array<CbVector3f, 3> p;
        for (int k = 0; k < 3; ++k) p[k] = mesh.GetPosition(CVertexRef(mesh.GetCorner(t, k)));
        int first = less(p[1], p[0]) ? 1 : 0;
        if (less(p[2], p[first])) first = 2;
        std::rotate(p.begin(), p.begin() + first, p.end());
        out.push_back(p);
    }
    std::sort(out.begin(), out.end(), [&](const auto& a, const auto& b) {
        for (int k = 0; k < 3; ++k) {
            if (less(a[k], b[k])) return true;
            if (less(b[k], a[k])) return false;
        }
        return false;
    });
    return out;
}

std::vector<STriangleCorners> denseTriangles(const CTriangulation& mesh) {
    std::vector<uint32_t> dense = mesh.ComputeDenseVertexIndices();
    std::vector<STriangleCorners> out;
    for (CTriangleRef t : mesh.Triangles()) {
        const STriangleCorners& c = mesh.GetCorners(t);
        out.push_back({dense[c[0]], dense[c[1]], dense[c[2]]});
    }
    return out;
}

TEST(VnCompressedContainerLayout, EmptyMeshIsTenBytesAndReadsBackEmpty) {
    const CTriangulation empty;
    const std::vector<uint8_t> expected = {3, 0, 0, 0, 1, 0, 0, 0, 0, 0};
    EXPECT_EQ(writeMesh(empty), expected);
    std::vector<uint8_t> v2 = writeMesh(empty, true);
    EXPECT_EQ(v2[0], 2);
    EXPECT_EQ(v2.size(), 10u);
    CbStreamReadBinaryMemory source(expected.data(), expected.size());
    VnStreamReadCompressedTriangulation reader(source);
    CTriangulation mesh = VnTest::MakeCube();
    reader >> mesh;
    EXPECT_EQ(mesh.GetVertexCount(), 0u);
    EXPECT_EQ(mesh.GetTriangleCount(), 0u);
    EXPECT_TRUE(reader.GetRecordInfo().compressed);
    EXPECT_EQ(reader.GetRecordInfo().components, 0u);
    EXPECT_EQ(source.GetBytesLeft(), 0u);
}

TEST(VnCompressedContainerUncompressed, MeshWithAttributesAndDeletedSlotsRoundTrips) {
    const CTriangulation mesh = decoratedMesh();
    CbStreamWriteBinaryMemory sink;
    VnStreamWriteCompressedTriangulation writer(sink, Base::eLossless, 0.f);
    writer << mesh;
    EXPECT_FALSE(writer.IsConsistent());
    EXPECT_EQ(sink.GetData()[4], 0) << "compressed flag";
    // Identity maps over the live slots; no triangle rotated.
    ASSERT_EQ(writer.GetVertexMap().GetSize(), 9);
    EXPECT_EQ(writer.GetVertexMap()[8].Index(), 9u);
    ASSERT_EQ(writer.GetTriangleMap().GetSize(), 11);
    EXPECT_EQ(writer.GetTriangleMap()[3].Index(), 4u);
    const CbArray<unsigned char>& rotation = writer.GetCornerRotationMap();
    ASSERT_EQ(rotation.GetSize(), 12);
    for (unsigned char r : rotation) EXPECT_EQ(r, 0);

    CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
    VnStreamReadCompressedTriangulation reader(source);
    CTriangulation back;
    reader >> back;
    EXPECT_FALSE(reader.GetRecordInfo().compressed);
    ASSERT_EQ(back.GetVertexCount(), 9u);
    EXPECT_EQ(denseTriangles(back), denseTriangles(mesh));
    for (uint32_t v = 0; v < 8; ++v) EXPECT_EQ(back.GetPosition(CVertexRef(v)), mesh.GetPosition(CVertexRef(v)));
    EXPECT_EQ(back.GetPosition(CVertexRef(8)), CbVector3f(7, 7, 7));
    auto label = FindAttribute<CVertexRef, const uint32_t>(back, "testLabel");
    ASSERT_TRUE(label);
    for (uint32_t v = 0; v < 8; ++v) EXPECT_EQ(label[CVertexRef(v)], 0x01020300u + v);
    auto weight = FindAttribute<CTriangleRef, const float>(back, "testWeight");
    ASSERT_TRUE(weight);
    EXPECT_EQ(weight[CTriangleRef(3)], 0.5f * 4.f) << "slot 3 was deleted, dense 3 is slot 4";
    // Normals are computed when the record carries none.
    EXPECT_NE(back.FindAttribute(eContainerVertex, "normal"), nullptr);
}

TEST(VnCompressedContainerUncompressed, InconsistentMeshIsStoredAsIs) {
    CTriangulation mesh = VnTest::MakeGrid(2, 1);
    mesh.AddTriangle(CVertexRef(0), CVertexRef(1), CVertexRef(4)); // edge 0->1 twice in one direction
    std::vector<uint8_t> bytes = writeMesh(mesh);
    EXPECT_EQ(bytes[4], 0);
    CbStreamReadBinaryMemory source(bytes.data(), bytes.size());
    VnStreamReadCompressedTriangulation reader(source);
    CTriangulation back;
    reader >> back;
    EXPECT_EQ(denseTriangles(back), denseTriangles(mesh));
}

TEST(VnCompressedContainerUncompressed, DeterministicAndReusable) {
    const CTriangulation a = VnTest::MakeSphere(6, 8), b = VnTest::MakeTorus(5, 4);
    EXPECT_EQ(writeMesh(a), writeMesh(a));
    CbStreamWriteBinaryMemory sink;
    VnStreamWriteCompressedTriangulation writer(sink, Base::eLossless, 0.f);
    writer << a << b << CTriangulation();
    CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
    VnStreamReadCompressedTriangulation reader(source);
    CTriangulation ra, rb, rc;
    reader >> ra >> rb >> rc;
    EXPECT_EQ(canonicalTriangles(ra), canonicalTriangles(a));
    EXPECT_EQ(canonicalTriangles(rb), canonicalTriangles(b));
    EXPECT_EQ(rc.GetVertexCount(), 0u);
    EXPECT_EQ(source.GetBytesLeft(), 0u);
}

TEST(VnCompressedContainerFiles, FileFormsWriteTheSameBytes) {
    const CTriangulation mesh = decoratedMesh();
    const std::wstring path = VnTest::TempPath("container_file.vnm");
    {
        VnStreamWriteCompressedTriangulation writer(CStringW(path), Base::eLossless, 0.f);
        writer << mesh;
    }
    CbStreamWriteBinaryMemory sink;
    VnStreamWriteCompressedTriangulation writer(sink, Base::eLossless, 0.f);
    writer << mesh;
    const std::string file = VnTest::ReadFileBytes(path);
    ASSERT_EQ(file.size(), sink.GetSize());
    EXPECT_EQ(std::memcmp(file.data(), sink.GetData().data(), file.size()), 0);
    VnStreamReadCompressedTriangulation reader{CStringW(path)};
    CTriangulation back;
    reader >> back;
    EXPECT_EQ(denseTriangles(back), denseTriangles(mesh));
    EXPECT_THROW(VnStreamReadCompressedTriangulation(CStringW(VnTest::TempPath("missing/none.vnm"))), CbExceptionStream);
}

TEST(VnCompressedContainerFailure, ReaderFailuresResetTheMeshAndRefusePolylines) {
    const std::vector<uint8_t> good = writeMesh(VnTest::MakeCube());
    std::vector<std::vector<uint8_t>> bad;
    for (size_t n = 0; n < good.size(); ++n) bad.emplace_back(good.begin(), good.begin() + static_cast<ptrdiff_t>(n));
    bad.push_back({4, 0, 0, 0, 1, 0, 0, 0, 0, 0});                        // version 4
    bad.push_back({3, 0, 0, 0, 2});                                       // unknown flag
    bad.push_back({3, 0, 0, 0, 1, 7, 0, 0, 0, 0});                        // unknown position mode
    bad.push_back({3, 0, 0, 0, 1, 0, 5, 0, 0, 0, 9, 0, 0, 0, 2, 0, 0, 0}); // 5 components, 2 triangles
    bad.push_back({3, 0, 0, 0, 1, 0, 1, 0, 0, 0, 9, 0, 0, 0, 2, 0, 0, 0}); // 9 vertices on 2 triangles
    bad.push_back({3, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}); // no vertex
    for (const auto& bytes : bad) {
        CbStreamReadBinaryMemory source(bytes.data(), bytes.size());
        VnStreamReadCompressedTriangulation reader(source);
        CTriangulation mesh = VnTest::MakeCube();
        expectStreamFailure([&] { reader >> mesh; }, kReaderOperator);
        EXPECT_EQ(mesh.GetVertexCount(), 0u);
        EXPECT_TRUE(mesh.GetAttributes(eContainerVertex).empty());
        VnPolylineTriangulation line;
        expectStreamFailure([&] { reader >> line; }, kReaderOperator);
    }
}

TEST(VnCompressedContainerFailure, WriterFailureClearsMapsAndMesh) {
    const CTriangulation mesh = VnTest::MakeSphere(5, 6);
    for (size_t limit : {size_t(0), size_t(3), size_t(4), size_t(40), size_t(200)}) {
        CbStreamWriteBinaryLimited sink(limit);
        VnStreamWriteCompressedTriangulation writer(sink, Base::eQuantized, 0.1f);
        expectStreamFailure([&] { writer << mesh; }, kWriterOperator);
        EXPECT_FALSE(writer.IsConsistent());
        EXPECT_TRUE(writer.GetVertexMap().IsEmpty());
        EXPECT_TRUE(writer.GetTriangleMap().IsEmpty());
        EXPECT_TRUE(writer.GetCornerRotationMap().IsEmpty());
        VnPolylineTriangulation line(mesh);
        expectStreamFailure([&] { writer << line; }, kWriterOperator);
    }
    // A mesh whose attribute storage is out of step with its elements is refused up front.
    CTriangulation broken = VnTest::MakeCube();
    GetOrCreateAttribute<CVertexRef, float>(broken, "testBroken");
    broken.FindAttribute(eContainerVertex, "testBroken")->data.resize(3);
    CbStreamWriteBinaryMemory sink;
    VnStreamWriteCompressedTriangulation writer(sink, Base::eLossless, 0.f);
    expectStreamFailure([&] { writer << broken; }, kWriterOperator);
    EXPECT_EQ(sink.GetSize(), 0u);
}

TEST(VnCompressedContainerPolylines, RoundTripRenumberedWithTheMesh) {
    const CTriangulation mesh = decoratedMesh();
    VnPolylineTriangulation line(mesh);
    line.AddVertex(CTriangleRef(4), VnBarycentricCoordinates(0.2f, 0.3f, 0.5f));
    line.AddVertex(CTriangleRef(11), VnBarycentricCoordinates(1.f, 0.f, 0.f), mesh.GetCorner(CTriangleRef(11), 0));
    VnPolylineTriangulationList list(mesh);
    list.AddTail(line);
    list.AddTail().AddVertex(CTriangleRef(0), VnBarycentricCoordinates(0.f, 1.f, 0.f));

    CbStreamWriteBinaryMemory sink;
    VnStreamWriteCompressedTriangulation writer(sink, Base::eLossless, 0.f);
    expectStreamFailure([&] { writer << line; }, kWriterOperator); // before any mesh
    writer << mesh << line << list;
    const CTriangulation other = VnTest::MakeCube();
    expectStreamFailure([&] { writer << VnPolylineTriangulation(other); }, kWriterOperator);

    CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
    VnStreamReadCompressedTriangulation reader(source);
    VnPolylineTriangulation backLine;
    expectStreamFailure([&] { reader >> backLine; }, kReaderOperator); // before any mesh
    CbStreamReadBinaryMemory source2(sink.GetData().data(), sink.GetSize());
    VnStreamReadCompressedTriangulation reader2(source2);
    CTriangulation back;
    VnPolylineTriangulationList backList;
    reader2 >> back >> backLine >> backList;
    EXPECT_EQ(backLine.getCTriangulation(), &back);
    ASSERT_EQ(backLine.GetVertexCount(), 2u);
    EXPECT_EQ(backLine.GetTriangle(0).Index(), 3u); // slot 4 is dense 3
    EXPECT_EQ(backLine.GetBarycentricCoordinates(0), VnBarycentricCoordinates(0.2f, 0.3f, 0.5f));
    EXPECT_EQ(backLine.GetTriangle(1).Index(), 10u);
    EXPECT_EQ(backLine.GetTriangulationVertex(1), back.GetCorner(CTriangleRef(10), 0));
    ASSERT_EQ(backList.GetCount(), 2u);
    EXPECT_EQ(backList.GetAt(0).GetPoints(), backLine.GetPoints());
    EXPECT_EQ(backList.GetAt(1).GetTriangle(0).Index(), 0u);
    EXPECT_EQ(backList.GetAt(1).getCTriangulation(), &back);
    EXPECT_EQ(source2.GetBytesLeft(), 0u);
}

TEST(VnCompressedContainerPolylines, ForgedPolylinesFail) {
    const CTriangulation mesh = VnTest::MakeCube();
    VnPolylineTriangulation line(mesh);
    line.AddVertex(CTriangleRef(11), VnBarycentricCoordinates());
    CbStreamWriteBinaryMemory sink;
    VnStreamWriteCompressedTriangulation writer(sink, Base::eLossless, 0.f);
    writer << mesh << line;
    const size_t meshBytes = sink.GetSize() - (4 + 4 + 20);
    auto readBack = [&](std::vector<uint8_t> bytes) {
        CbStreamReadBinaryMemory source(bytes.data(), bytes.size());
        VnStreamReadCompressedTriangulation reader(source);
        CTriangulation back;
        VnPolylineTriangulation l;
        reader >> back;
        expectStreamFailure([&] { reader >> l; }, kReaderOperator);
        EXPECT_EQ(l.GetVertexCount(), 0u);
    };
    std::vector<uint8_t> bytes = sink.GetData();
    bytes[meshBytes + 8] = 12; // triangle 12 of 12
    readBack(bytes);
    bytes = sink.GetData();
    bytes[meshBytes] = 4; // version 4
    readBack(bytes);
    bytes = sink.GetData();
    bytes[meshBytes + 4] = 200; // more points than bytes
    readBack(bytes);
    // A list claiming more polylines than the bytes can hold.
    CbStreamWriteBinaryMemory listSink;
    VnStreamWriteCompressedTriangulation listWriter(listSink, Base::eLossless, 0.f);
    VnPolylineTriangulationList list(mesh);
    listWriter << mesh << list;
    bytes = listSink.GetData();
    bytes[bytes.size() - 1] = 0x40;
    CbStreamReadBinaryMemory source(bytes.data(), bytes.size());
    VnStreamReadCompressedTriangulation reader(source);
    CTriangulation back;
    VnPolylineTriangulationList backList;
    reader >> back;
    expectStreamFailure([&] { reader >> backList; }, kReaderOperator);
}

// ---- component frames, driven through the coders' own members ----

class FrameWriter : public VnStreamWriteCompressedTriangulation {
public:
    explicit FrameWriter(::CbStreamWriteBinary& s) : VnStreamWriteCompressedTriangulation(s, eLossless, 0.f) {}
    void Write(std::vector<uint8_t> symbols, std::vector<uint32_t> holes, std::vector<uint32_t> offsets, uint32_t handles) {
        for (auto& q : m_quantizers) q = std::make_unique<VnFloatingPointQuantizationBitExact>();
        beginComponentPositions();
        m_symbols = std::move(symbols);
        m_holeSizes = std::move(holes);
        m_handleOffsets = std::move(offsets);
        m_handleCount = handles;
        writeComponent();
    }
    const std::vector<uint8_t>& Symbols() const { return m_symbols; }
};

class FrameReader : public VnStreamReadCompressedTriangulation {
public:
    explicit FrameReader(::CbStreamReadBinary& s) : VnStreamReadCompressedTriangulation(s) {}
    void Read(uint32_t vertices, uint32_t triangles) {
        for (auto& q : m_quantizers) q = std::make_unique<VnFloatingPointQuantizationBitExact>();
        m_verticesLeft = vertices;
        m_trianglesLeft = triangles;
        readComponent();
    }
    std::vector<uint8_t> symbols() const { return m_symbols; }
    std::vector<uint32_t> holes() const { return m_holeSizes; }
    std::vector<uint32_t> offsets() const { return m_handleOffsets; }
    uint32_t known() const { return m_knownVertices; }
    uint32_t handles() const { return m_handleCount; }
};

TEST(VnCompressedContainerFrames, SplitSymbolsAndSideTablesRoundTrip) {
    std::mt19937 rng(21);
    for (int round = 0; round < 40; ++round) {
        std::vector<uint8_t> symbols;
        std::vector<uint32_t> holes = {static_cast<uint32_t>(2 + rng() % 5)}, offsets;
        uint32_t handles = 0, cs = 0;
        const int n = 1 + static_cast<int>(rng() % 300);
        for (int i = 0; i < n; ++i) {
            uint8_t s = static_cast<uint8_t>(rng() % 7);
            if (s == 5) holes.push_back(static_cast<uint32_t>(3 + rng() % 9));
            if (s == 6) {
                ++handles;
                offsets.push_back(static_cast<uint32_t>(rng() % 1000));
            }
            cs += s == 0;
            symbols.push_back(s);
        }
        CbStreamWriteBinaryMemory sink;
        FrameWriter writer(sink);
        writer.Write(symbols, holes, offsets, handles);
        for (uint8_t s : writer.Symbols()) ASSERT_LT(s, 5);
        sink << uint32_t{0xFEEDu};
        CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
        FrameReader reader(source);
        reader.Read(100000, static_cast<uint32_t>(n));
        EXPECT_EQ(reader.symbols(), symbols);
        EXPECT_EQ(reader.holes(), holes);
        EXPECT_EQ(reader.offsets(), offsets);
        EXPECT_EQ(reader.handles(), handles);
        uint32_t known = cs;
        for (uint32_t h : holes) known += h;
        EXPECT_EQ(reader.known(), known);
        uint32_t tail = 0;
        source >> tail;
        EXPECT_EQ(tail, 0xFEEDu) << "each block consumed exactly";
    }
}

TEST(VnCompressedContainerFrames, HandleBlockIsASingleZeroWithoutHandles) {
    CbStreamWriteBinaryMemory sink;
    FrameWriter writer(sink);
    writer.Write({0, 3, 0, 2}, {2}, {}, 0);
    const std::vector<uint8_t>& b = sink.GetData();
    uint32_t size1, size2;
    std::memcpy(&size1, b.data(), 4);
    std::memcpy(&size2, b.data() + 4 + size1, 4);
    EXPECT_EQ(size2, 0u);
}

TEST(VnCompressedContainerFrames, CountsBeyondWhatIsLeftFail) {
    CbStreamWriteBinaryMemory sink;
    FrameWriter writer(sink);
    writer.Write({0, 0, 4, 0, 2, 5, 2, 2}, {3, 4}, {}, 0); // 3 C + 3 + 4 = 10 known vertices, 8 symbols
    auto read = [&](uint32_t vertices, uint32_t triangles) {
        CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
        FrameReader reader(source);
        reader.Read(vertices, triangles);
    };
    EXPECT_NO_THROW(read(10, 8));
    EXPECT_THROW(read(9, 8), CbExceptionStream);
    EXPECT_THROW(read(10, 7), CbExceptionStream);
    for (size_t n = 0; n < sink.GetSize(); ++n) {
        CbStreamReadBinaryMemory source(sink.GetData().data(), n);
        FrameReader reader(source);
        EXPECT_THROW(reader.Read(10, 8), CbExceptionStream) << n;
    }
    // Hole sizes too small for a boundary.
    CbStreamWriteBinaryMemory tiny;
    FrameWriter tinyWriter(tiny);
    tinyWriter.Write({2}, {1}, {}, 0);
    CbStreamReadBinaryMemory source(tiny.GetData().data(), tiny.GetSize());
    FrameReader reader(source);
    EXPECT_THROW(reader.Read(10, 8), CbExceptionStream);
}

} // namespace

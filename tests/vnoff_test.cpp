#include "vnio/vnoff.h"

#include <gtest/gtest.h>

#include "support/meshbuilders.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include "basepool/cbexception.h"
#include "basepool/cbstring.h"
#include "support/decimalcommalocale.h"
#include "vn3dbase/cattributehandle.h"

namespace {

using Geometry::CTriangulation;
using Geometry::CVertexRef;
using Geometry::CTriangleRef;
namespace fs = std::filesystem;

// The suites share one scratch folder per process (tests/support).
fs::path tempDir() { return fs::path(CbWideToUtf8(VnTest::TempPath(""))); }

std::wstring tempFile(const std::string& name, const std::string& bytes) { return VnTest::WriteTempFile(name, bytes); }

std::string fileBytes(const std::wstring& path) { return VnTest::ReadFileBytes(path); }

std::wstring dataFile(const char* name) { return (fs::path(VNIO_TEST_DATA_DIR) / name).wstring(); }

CTriangulation makeTetrahedron() {
    CTriangulation m;
    m.AddVertex({0.f, 0.f, 0.f});
    m.AddVertex({1.f, 0.f, 0.f});
    m.AddVertex({0.f, 1.f, 0.f});
    m.AddVertex({0.f, 0.f, 1.f});
    auto tri = [&](uint32_t a, uint32_t b, uint32_t c) { m.AddTriangle(CVertexRef(a), CVertexRef(b), CVertexRef(c)); };
    tri(0, 2, 1);
    tri(0, 1, 3);
    tri(1, 2, 3);
    tri(0, 3, 2);
    return m;
}

// Expects fn to throw E with the given source line (0: any line) and function name
// (nullptr: any), and the mesh to be empty afterwards.
template <class E, class Fn> void expectThrowLine(Fn fn, uint32_t line, const char* function = nullptr) {
    try {
        fn();
        ADD_FAILURE() << "no exception";
    } catch (const E& e) {
        if (line) {
            EXPECT_EQ(e.GetLine(), line) << e.Describe();
            EXPECT_EQ(e.GetSourceFile(), "vnlibraries/vnio/vnoff");
        }
        if (function) {
            EXPECT_EQ(e.GetFunction(), function);
        }
    }
}

void readExpectingFailure(const std::wstring& path, CTriangulation& mesh) {
    try {
        VnOFF::Read(path.c_str(), mesh);
        ADD_FAILURE() << "read succeeded";
    } catch (const CbExceptionStream&) {
    } catch (const CbExceptionWrongFileVersion&) {
    }
    EXPECT_EQ(mesh.GetVertexCount(), 0u);
    EXPECT_EQ(mesh.GetTriangleCount(), 0u);
}

void expectSameMesh(const CTriangulation& a, const CTriangulation& b) {
    ASSERT_EQ(a.GetVertexCount(), b.GetVertexCount());
    ASSERT_EQ(a.GetTriangleCount(), b.GetTriangleCount());
    std::vector<CVertexRef> va, vb;
    for (CVertexRef v : a.Vertices()) va.push_back(v);
    for (CVertexRef v : b.Vertices()) vb.push_back(v);
    std::vector<uint32_t> rank = a.ComputeDenseVertexIndices();
    for (size_t i = 0; i < va.size(); ++i) EXPECT_EQ(a.GetPosition(va[i]), b.GetPosition(vb[i])) << "vertex " << i;
    std::vector<CTriangleRef> ta, tb;
    for (CTriangleRef t : a.Triangles()) ta.push_back(t);
    for (CTriangleRef t : b.Triangles()) tb.push_back(t);
    for (size_t i = 0; i < ta.size(); ++i)
        for (int k = 0; k < 3; ++k) EXPECT_EQ(rank[a.GetCorner(ta[i], k)], b.GetCorner(tb[i], k)) << "triangle " << i;
}

} // namespace

// ---- writing ----

TEST(VnOFFWrite, TetrahedronGoldenBytes) {
    std::wstring path = tempFile("tetra.off", "");
    VnOFF::Write(path.c_str(), makeTetrahedron());
    EXPECT_EQ(fileBytes(path),
              "OFF\n4 4 12\n"
              "0.000000 0.000000 0.000000\n1.000000 0.000000 0.000000\n"
              "0.000000 1.000000 0.000000\n0.000000 0.000000 1.000000\n"
              "3 0 2 1\n3 0 1 3\n3 1 2 3\n3 0 3 2\n");
}

TEST(VnOFFWrite, DeletedSlotsGiveCompactIndices) {
    CTriangulation m;
    for (int i = 0; i < 6; ++i) m.AddVertex({float(i), float(-i), 0.5f});
    m.AddTriangle(CVertexRef(0), CVertexRef(1), CVertexRef(2)); // removed below
    m.AddTriangle(CVertexRef(3), CVertexRef(4), CVertexRef(5));
    m.AddTriangle(CVertexRef(5), CVertexRef(3), CVertexRef(4));
    m.RemoveTriangle(CTriangleRef(0));
    for (uint32_t v : {0u, 1u, 2u}) m.RemoveVertex(CVertexRef(v));
    std::wstring path = tempFile("deleted.off", "");
    VnOFF::Write(path.c_str(), m);
    EXPECT_EQ(fileBytes(path),
              "OFF\n3 2 6\n3.000000 -3.000000 0.500000\n4.000000 -4.000000 0.500000\n"
              "5.000000 -5.000000 0.500000\n3 0 1 2\n3 2 0 1\n");
    CTriangulation back;
    VnOFF::Read(path.c_str(), back);
    expectSameMesh(m, back);
}

TEST(VnOFFWrite, SameMeshTwiceGivesIdenticalBytesAndEmptyMeshIsValid) {
    CTriangulation m = makeTetrahedron();
    std::wstring a = tempFile("twice-a.off", ""), b = tempFile("twice-b.off", "");
    VnOFF::Write(a.c_str(), m);
    VnOFF::Write(b.c_str(), m);
    EXPECT_EQ(fileBytes(a), fileBytes(b));

    std::wstring e = tempFile("empty-out.off", "");
    VnOFF::Write(e.c_str(), CTriangulation());
    EXPECT_EQ(fileBytes(e), "OFF\n0 0 0\n");
    CTriangulation back = makeTetrahedron();
    VnOFF::Read(e.c_str(), back);
    EXPECT_EQ(back.GetVertexCount(), 0u);
}

TEST(VnOFFWrite, CornerOnDeletedVertexIsAPreconditionViolation) {
    CTriangulation m = makeTetrahedron();
    m.RemoveVertex(CVertexRef(3));
    std::wstring path = (tempDir() / "never-written.off").wstring();
    expectThrowLine<CbExceptionPreconditionViolation>([&] { VnOFF::Write(path.c_str(), m); }, 73, "VnOFF::Write");
    EXPECT_FALSE(fs::exists(fs::path(path)));
}

TEST(VnOFFWrite, NullPathIsAPreconditionViolationOnBothSides) {
    CTriangulation m = makeTetrahedron();
    expectThrowLine<CbExceptionPreconditionViolation>([&] { VnOFF::Write(nullptr, m); }, 70, "VnOFF::Write");
    expectThrowLine<CbExceptionPreconditionViolation>([&] { VnOFF::Read(nullptr, m); }, 70, "VnOFF::Read");
    EXPECT_EQ(m.GetTriangleCount(), 4u); // untouched
}

TEST(VnOFFWrite, UnwritablePathThrowsStream) {
    std::wstring path = (tempDir() / "no-such-folder" / "x.off").wstring();
    EXPECT_THROW(VnOFF::Write(path.c_str(), makeTetrahedron()), CbExceptionStream);
}

TEST(VnOFFWrite, DecimalCommaLocaleStillWritesPoints) {
    CTriangulation m;
    m.AddVertex({0.5f, -1.25f, 1234.0625f});
    m.AddVertex({1.f, 2.f, 3.f});
    m.AddVertex({0.f, 0.f, 0.1f});
    m.AddTriangle(CVertexRef(0), CVertexRef(1), CVertexRef(2));
    std::wstring path = tempFile("comma.off", "");
    std::string bytes;
    CTriangulation back;
    {
        VnTest::CDecimalCommaLocale comma;
        if (!comma.IsActive()) {
            GTEST_SKIP() << "skipped: " << comma.Why();
        }
        char probe[16];
        std::snprintf(probe, sizeof probe, "%.1f", 0.5);
        ASSERT_STREQ(probe, "0,5") << "locale " << comma.Name() << " is not in effect";
        VnOFF::Write(path.c_str(), m);
        bytes = fileBytes(path);
        VnOFF::Read(path.c_str(), back); // reading under the same locale must work too
    }
    EXPECT_NE(bytes.find("0.500000 -1.250000 1234.062500\n"), std::string::npos) << bytes;
    EXPECT_EQ(bytes.find(','), std::string::npos);
    expectSameMesh(m, back);
}

// ---- round trips ----

TEST(VnOFFRoundTrip, ValuesSurviveToSixDecimalsAndExactlyWhenRepresentable) {
    CTriangulation m;
    const float exact[] = {0.f, -0.f, 1.f, -2.5f, 0.125f, 1e6f, -16777216.f, 1e30f, 0.015625f};
    for (float x : exact) m.AddVertex({x, -x, x});
    uint32_t seed = 12345;
    for (int i = 0; i < 200; ++i) {
        seed = seed * 1664525u + 1013904223u;
        float x = float(int32_t(seed)) / 65536.f / 7.f;
        m.AddVertex({x, x * 1e-3f, x * 1e3f});
    }
    for (uint32_t v = 0; v + 2 < m.GetVertexCount(); v += 3) m.AddTriangle(CVertexRef(v), CVertexRef(v + 1), CVertexRef(v + 2));
    std::wstring path = tempFile("values.off", "");
    VnOFF::Write(path.c_str(), m);
    CTriangulation back;
    VnOFF::Read(path.c_str(), back);
    ASSERT_EQ(back.GetVertexCount(), m.GetVertexCount());
    ASSERT_EQ(back.GetTriangleCount(), m.GetTriangleCount());
    for (uint32_t v = 0; v < m.GetVertexCount(); ++v)
        for (int k = 0; k < 3; ++k) {
            float want = m.GetPosition(CVertexRef(v))[k], got = back.GetPosition(CVertexRef(v))[k];
            if (v < std::size(exact)) {
                EXPECT_EQ(got, want) << v;
            }
            // Six decimals, then the nearest float: the error is half a unit of the last
            // printed digit plus one float rounding.
            EXPECT_LE(std::fabs(got - want), 5e-7 + std::fabs(want) * 1.2e-7) << v << " " << k;
        }
    for (uint32_t t = 0; t < m.GetTriangleCount(); ++t) EXPECT_EQ(back.GetCorners(CTriangleRef(t)), m.GetCorners(CTriangleRef(t)));
}

TEST(VnOFFRoundTrip, ReadComputesTopologyAndReplacesPreviousContent) {
    std::wstring path = tempFile("topo.off", "");
    VnOFF::Write(path.c_str(), makeTetrahedron());
    CTriangulation m;
    m.AddVertex({9.f, 9.f, 9.f});
    Geometry::GetOrCreateAttribute<CVertexRef, float>(m, "deformEnergy");
    VnOFF::Read(path.c_str(), m);
    EXPECT_EQ(m.GetVertexCount(), 4u);
    EXPECT_TRUE(m.GetAttributes(Geometry::eContainerVertex).empty()); // the mesh was reset
    ASSERT_TRUE(m.HasAdjacency());
    ASSERT_TRUE(m.HasVertexTriangleRelation());
    // A closed tetrahedron: every edge has a neighbour, every vertex three triangles.
    for (CTriangleRef t : m.Triangles())
        for (int k = 0; k < 3; ++k) EXPECT_NE(m.GetAdjacentTriangle(t, k), Geometry::c_IndexInvalid);
    for (CVertexRef v : m.Vertices()) EXPECT_EQ(m.GetVertexTriangles(v).size(), 3u);
}

TEST(VnOFFRoundTrip, NonAsciiPath) {
    // Built by hand: std::filesystem cannot widen non-ASCII names under the "C" locale.
    const CStringW path = CbUtf8ToWide(tempDir().string()) + L"/сетка_网格.off";
    VnOFF::Write(path.c_str(), makeTetrahedron());
    EXPECT_TRUE(fs::exists(tempDir() / "\xd1\x81\xd0\xb5\xd1\x82\xd0\xba\xd0\xb0_\xe7\xbd\x91\xe6\xa0\xbc.off"));
    CTriangulation back;
    VnOFF::Read(path.c_str(), back);
    expectSameMesh(makeTetrahedron(), back);
}

// ---- reading files as other programs write them ----

TEST(VnOFFRead, CommentsBlankLinesAndNumbersAcrossLines) {
    CTriangulation m;
    VnOFF::Read(dataFile("off.comments-and-blank-lines.off").c_str(), m);
    ASSERT_EQ(m.GetVertexCount(), 4u);
    ASSERT_EQ(m.GetTriangleCount(), 2u);
    EXPECT_EQ(m.GetPosition(CVertexRef(3)), CbVector3f(0.f, 1.f, 0.f));
    EXPECT_EQ(m.GetCorners(CTriangleRef(1)), (Geometry::STriangleCorners{0, 2, 3}));
}

TEST(VnOFFRead, EmptyMeshAndKeywordWithoutFinalNewline) {
    CTriangulation m = makeTetrahedron();
    VnOFF::Read(tempFile("empty.off", "OFF\n0 0 0").c_str(), m);
    EXPECT_EQ(m.GetVertexCount(), 0u);
    EXPECT_EQ(m.GetTriangleCount(), 0u);
    // Vertices without faces are a valid point cloud.
    VnOFF::Read(tempFile("points.off", "OFF\n2 0 0\n1 2 3\n-4 5e-1 +6\n").c_str(), m);
    ASSERT_EQ(m.GetVertexCount(), 2u);
    EXPECT_EQ(m.GetPosition(CVertexRef(1)), CbVector3f(-4.f, 0.5f, 6.f));
}

TEST(VnOFFRead, ExtraValuesAfterTheLastFaceAreNotRead) {
    CTriangulation m;
    VnOFF::Read(dataFile("off.colour-after-last-face.off").c_str(), m);
    EXPECT_EQ(m.GetTriangleCount(), 1u);
    VnOFF::Read(tempFile("trailing.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\ngarbage -1 x\n").c_str(), m);
    EXPECT_EQ(m.GetTriangleCount(), 1u);
}

TEST(VnOFFRead, ExtraValuesAfterAMiddleFaceAreTakenAsTheNextFace) {
    // Numbers are a token stream: the colour of face 0 is read as face 1's corner count.
    CTriangulation m;
    expectThrowLine<CbExceptionWrongFileVersion>(
        [&] { VnOFF::Read(dataFile("off.colour-after-every-face.off").c_str(), m); }, 71, "VnOFF::Read");
    EXPECT_EQ(m.GetVertexCount(), 0u);
}

TEST(VnOFFRead, HeaderRule) {
    for (const char* name : {"off.crlf-header.off", "off.counts-on-keyword-line.off", "off.comment-before-keyword.off"}) {
        CTriangulation m;
        expectThrowLine<CbExceptionWrongFileVersion>([&] { VnOFF::Read(dataFile(name).c_str(), m); }, 160, "ReadHeader");
        EXPECT_EQ(m.GetVertexCount(), 0u) << name;
    }
    const char* bad[] = {"COFF\n0 0 0\n", "off\n0 0 0\n", "\xEF\xBB\xBFOFF\n0 0 0\n", "", "\n", " OFF\n0 0 0\n", "OFF \n0 0 0\n"};
    for (const char* text : bad) {
        CTriangulation m = makeTetrahedron();
        expectThrowLine<CbExceptionWrongFileVersion>([&] { VnOFF::Read(tempFile("header.off", text).c_str(), m); }, 160, "ReadHeader");
        EXPECT_EQ(m.GetVertexCount(), 0u) << text;
    }
    // A foreign file whose first line never ends is refused from its first bytes.
    CTriangulation m;
    expectThrowLine<CbExceptionWrongFileVersion>(
        [&] { VnOFF::Read(tempFile("oneline.off", "OFF" + std::string(4 << 20, '7')).c_str(), m); }, 160, "ReadHeader");
}

TEST(VnOFFRead, NonTriangularFaceIsLine71AndLeavesTheMeshEmpty) {
    CTriangulation m = makeTetrahedron();
    expectThrowLine<CbExceptionWrongFileVersion>([&] { VnOFF::Read(dataFile("off.quad-face.off").c_str(), m); }, 71, "VnOFF::Read");
    EXPECT_EQ(m.GetVertexCount(), 0u);
    EXPECT_EQ(m.GetTriangleCount(), 0u);
    expectThrowLine<CbExceptionWrongFileVersion>(
        [&] { VnOFF::Read(tempFile("two.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n2 0 1\n").c_str(), m); }, 71);
}

TEST(VnOFFRead, FaceIndexOutOfRangeIsRejected) {
    CTriangulation m;
    expectThrowLine<CbExceptionWrongFileVersion>(
        [&] { VnOFF::Read(dataFile("off.index-out-of-range.off").c_str(), m); }, 72, "VnOFF::Read");
    EXPECT_EQ(m.GetTriangleCount(), 0u);
    expectThrowLine<CbExceptionWrongFileVersion>(
        [&] { VnOFF::Read(tempFile("noverts.off", "OFF\n0 1 0\n3 0 0 0\n").c_str(), m); }, 72);
}

TEST(VnOFFRead, BadNumbersFailAsStreamErrors) {
    const char* bad[] = {
        "OFF\n-3 1 0\n",                                  // sign on a count
        "OFF\n+3 1 0\n",                                  // sign on a count
        "OFF\n4294967296 0 0\n",                          // above 2^32 - 1
        "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 -1 2\n",    // sign on an index
        "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3.0 0 1 2\n",   // partial token
        "OFF\n1 0 0\n0 0 1,5\n",                          // decimal comma
        "OFF\n1 0 0\n0 0 1.5f\n",                         // trailing letter
        "OFF\n1 0 0\n0 0\n",                              // end of data inside a vertex
        "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1",         // end of data inside a face
        "OFF\n3 1",                                       // end of data in the counts
        "OFF",                                            // keyword, then nothing
        "OFF\n3 1 0 # the edge count is a comment\n0 0 0\n", // too few vertices
    };
    for (const char* text : bad) {
        CTriangulation m = makeTetrahedron();
        EXPECT_THROW(VnOFF::Read(tempFile("bad.off", text).c_str(), m), CbExceptionStream) << text;
        EXPECT_EQ(m.GetVertexCount(), 0u) << text;
    }
    CTriangulation m;
    EXPECT_THROW(VnOFF::Read((tempDir() / "missing.off").wstring().c_str(), m), CbExceptionStream);
}

TEST(VnOFFRead, ForgedCountsFailCleanlyWithoutHugeReservation) {
    // 4e9 vertices and faces announced by a 40-byte file: must fail at the end of the data,
    // quickly, after reserving at most what the file could hold.
    CTriangulation m;
    EXPECT_THROW(VnOFF::Read(tempFile("forged.off", "OFF\n4294967295 4294967295 0\n0 0 0\n").c_str(), m), CbExceptionStream);
    EXPECT_EQ(m.GetVertexCount(), 0u);
}

TEST(VnOFFRead, EveryTruncatedPrefixFailsCleanly) {
    std::wstring full = tempFile("full.off", "");
    VnOFF::Write(full.c_str(), makeTetrahedron());
    const std::string bytes = fileBytes(full);
    // Every cut before the last number fails; a cut inside that number's line ending
    // still holds a complete file.
    const size_t lastNumber = bytes.rfind(' ') + 1;
    for (size_t n = 0; n < lastNumber; ++n) {
        CTriangulation m = makeTetrahedron();
        readExpectingFailure(tempFile("prefix.off", bytes.substr(0, n)), m);
    }
    CTriangulation m;
    VnOFF::Read(tempFile("prefix.off", bytes.substr(0, bytes.size() - 1)).c_str(), m);
    EXPECT_EQ(m.GetTriangleCount(), 4u);
}

TEST(VnOFFRead, SharedCorpusFileWithQuadsAndColoursIsRejectedAsNonTriangular) {
    const fs::path file = fs::path(VNIO_SHARED_DATA_DIR) / "off" / "cube_face_colors_comments.off";
    if (!fs::exists(file)) {
        GTEST_SKIP() << "skipped: no mesh corpus file " << file;
    }
    // Comments, a comment behind a vertex and the edge count are read past; the first
    // face is a quad.
    CTriangulation m;
    expectThrowLine<CbExceptionWrongFileVersion>([&] { VnOFF::Read(file.wstring().c_str(), m); }, 71, "VnOFF::Read");
    EXPECT_EQ(m.GetVertexCount(), 0u);
}

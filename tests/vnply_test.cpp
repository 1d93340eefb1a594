// VnPLY: the mesh layer over the PLY codec. Round trips through files and streams, the
// layout rules of the format (names, order, colour stride), the failure kinds, real files
// from the shared corpus, and a cross-check against an independent reader when present.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <cmath>
#include <array>

#include "basepool/cbdatetime.h"
#include "support/meshbuilders.h"
#include "support/plyhelpers.h"
#include "vn3dbase/cattributehandle.h"
#include "vnbase/vncolor.h"
#include "vnio/vnply.h"

using namespace Geometry;
using VnTest::CPlyBytes;

namespace {

// A sphere with vertex normals that differ from the computed ones and colours in all four
// channels, so that both survive only if they are written and read as stored.
CTriangulation makeDecorated() {
    CTriangulation mesh = VnTest::MakeSphere(6, 9);
    auto n = GetOrCreateAttribute<CVertexRef, CbVector3f>(mesh, "normal");
    auto c = GetOrCreateAttribute<CVertexRef, VnColorRGBA>(mesh, "color");
    for (CVertexRef v : mesh.Vertices()) {
        uint32_t i = v.Index();
        n[v] = CbVector3f(0.1f * i, -1.f / (i + 1), 3.f);
        c[v] = VnColorRGBA(uint8_t(i * 7), uint8_t(255 - i), uint8_t(i * 13), uint8_t(i * 3 + 1));
    }
    return mesh;
}

void expectSameGeometry(const CTriangulation& a, const CTriangulation& b) {
    ASSERT_EQ(a.GetVertexCount(), b.GetVertexCount());
    ASSERT_EQ(a.GetTriangleCount(), b.GetTriangleCount());
    for (uint32_t v = 0; v < a.GetVertexCount(); ++v)
        EXPECT_EQ(a.GetPosition(CVertexRef(v)), b.GetPosition(CVertexRef(v))) << v;
    for (uint32_t t = 0; t < a.GetTriangleCount(); ++t)
        EXPECT_EQ(a.GetCorners(CTriangleRef(t)), b.GetCorners(CTriangleRef(t))) << t;
}

void expectSameAttributes(const CTriangulation& a, const CTriangulation& b) {
    auto na = FindAttribute<CVertexRef, const CbVector3f>(a, "normal");
    auto nb = FindAttribute<CVertexRef, const CbVector3f>(b, "normal");
    auto ca = FindAttribute<CVertexRef, const VnColorRGBA>(a, "color");
    auto cb = FindAttribute<CVertexRef, const VnColorRGBA>(b, "color");
    ASSERT_TRUE(na && nb && ca && cb);
    for (CVertexRef v : a.Vertices()) {
        EXPECT_EQ(na[v], nb[v]) << v.Index();
        EXPECT_EQ(ca[v].GetValue(), cb[v].GetValue()) << v.Index();
    }
}

std::string bytesOf(CbStreamWriteBinaryMemory& out) {
    const auto& d = out.GetData();
    return std::string(d.begin(), d.end());
}

std::string headerOf(const std::string& file) { return file.substr(0, file.find("end_header\n") + 11); }

// Runs `f` and checks that it throws exactly the kind `E` from VnPLY's source and `function`.
template <class E, class F> void expectPlyThrow(F&& f, const char* function) {
    try {
        f();
        ADD_FAILURE() << "no exception";
    } catch (const E& e) {
        EXPECT_STREQ(e.GetClassName(), E("", 0, "").GetClassName());
        EXPECT_EQ(e.GetSourceFile(), "vnlibraries/vnio/vnply");
        EXPECT_EQ(e.GetFunction(), function);
    }
}

// CbExceptionStd from Read, with the wrapped text containing `part`.
void expectReadStd(const std::string& bytes, const std::string& part, const std::string& name = "bad.ply") {
    std::wstring path = VnTest::WriteTempFile(name, bytes);
    try {
        VnPLY::Read(path);
        ADD_FAILURE() << "no exception for " << part;
    } catch (const CbExceptionStd& e) {
        EXPECT_EQ(e.GetSourceFile(), "vnlibraries/vnio/vnply");
        EXPECT_EQ(e.GetFunction(), "VnPLY::Read");
        EXPECT_NE(e.GetWhat().find(part), std::string::npos) << e.GetWhat();
    }
}

const std::string kVertexHeader = "element vertex 4\nproperty float x\nproperty float y\nproperty float z\n";
const std::string kFourVertices = "0 0 0\n1 0 0\n0 1 0\n1 1 0\n";

} // namespace

TEST(VnPLYRoundTrip, NormalsAndColoursSurviveAsciiBinaryAndStream) {
    const CTriangulation mesh = makeDecorated();
    for (auto format : {VnPLY::eOutputFormatASCII, VnPLY::eOutputFormatBinary}) {
        SCOPED_TRACE(int(format));
        std::wstring path = VnTest::TempPath("roundtrip" + std::to_string(format) + ".ply");
        VnPLY::Write(path, mesh, format);
        CTriangulation back = VnPLY::Read(path);
        expectSameGeometry(mesh, back);
        expectSameAttributes(mesh, back);
        // Facet normals are derived on reading.
        EXPECT_NE(back.FindAttribute(eContainerTriangle, "normal"), nullptr);
        EXPECT_TRUE(back.HasAdjacency());
        EXPECT_TRUE(back.HasVertexTriangleRelation());
    }
    CbStreamWriteBinaryMemory out;
    VnPLY::Write(out, mesh);
    std::string viaStream = bytesOf(out);
    EXPECT_EQ(viaStream.rfind("ply\nformat binary_little_endian 1.0\n", 0), 0u);
    // The stream form and the binary file form give the same bytes, and a second write
    // of the same mesh the same bytes again.
    std::wstring path = VnTest::TempPath("roundtrip1.ply");
    VnPLY::Write(path.c_str(), mesh, VnPLY::eOutputFormatBinary);
    EXPECT_EQ(VnTest::ReadFileBytes(path), viaStream);
    CTriangulation back = VnPLY::Read(VnTest::WriteTempFile("stream.ply", viaStream).c_str());
    expectSameGeometry(mesh, back);
    expectSameAttributes(mesh, back);
}

TEST(VnPLYWrite, HeaderListsPropertiesInTheDocumentedOrder) {
    const CTriangulation mesh = makeDecorated();
    std::wstring path = VnTest::TempPath("header.ply");
    VnPLY::Write(path, mesh, VnPLY::eOutputFormatASCII);
    const std::string text = VnTest::ReadFileBytes(path);
    const std::string expected =
        "ply\nformat ascii 1.0\ncomment Generated by Varnu (" + std::to_string(CbDateTime().GetYear()) +
        ")\nelement vertex " + std::to_string(mesh.GetVertexCount()) +
        "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\nproperty float ny\n"
        "property float nz\nproperty uchar red\nproperty uchar green\nproperty uchar blue\n"
        "property uchar alpha\nelement face " +
        std::to_string(mesh.GetTriangleCount()) + "\nproperty list uchar uint vertex_indices\nend_header\n";
    EXPECT_EQ(headerOf(text), expected);
    // First vertex row: position, normal (0, -1, 3) and colour (0, 255, 0, 1).
    const CbVector3f& p = mesh.GetPosition(CVertexRef(0));
    std::istringstream row(text.substr(expected.size()));
    float x, y, z, nx, ny, nz;
    int r, g, b, a;
    row >> x >> y >> z >> nx >> ny >> nz >> r >> g >> b >> a;
    EXPECT_EQ(CbVector3f(x, y, z), p);
    EXPECT_EQ(CbVector3f(nx, ny, nz), CbVector3f(0, -1, 3));
    EXPECT_EQ(r, 0);
    EXPECT_EQ(g, 255);
    EXPECT_EQ(b, 0);
    EXPECT_EQ(a, 1);
}

TEST(VnPLYWrite, PlainMeshWritesOnlyPositionsAndFaces) {
    const CTriangulation cube = VnTest::MakeCube();
    CbStreamWriteBinaryMemory out;
    VnPLY::Write(out, cube);
    std::string file = bytesOf(out);
    std::string header = headerOf(file);
    EXPECT_EQ(header.find("nx"), std::string::npos);
    EXPECT_EQ(header.find("red"), std::string::npos);
    EXPECT_NE(header.find("element vertex 8\nproperty float x\nproperty float y\nproperty float z\nelement face 12\n"
                          "property list uchar uint vertex_indices\nend_header\n"),
              std::string::npos);
    EXPECT_EQ(file.size() - header.size(), 8u * 12 + 12u * 13);
    CTriangulation back = VnPLY::Read(VnTest::WriteTempFile("cube.ply", file));
    expectSameGeometry(cube, back);
    EXPECT_EQ(back.FindAttribute(eContainerVertex, "color"), nullptr);
}

TEST(VnPLYWrite, RefusedCallsThrowBeforeAnyFileExists) {
    const CTriangulation cube = VnTest::MakeCube();
    std::wstring path = VnTest::TempPath("format2.ply");
    std::filesystem::remove(CbWideToUtf8(path));
    expectPlyThrow<CbException>([&] { VnPLY::Write(path, cube, VnPLY::EOutputFormat(2)); }, "VnPLY::Write");
    EXPECT_FALSE(std::filesystem::exists(CbWideToUtf8(path)));
    // Empty and null names write nothing and do not complain.
    VnPLY::Write(std::wstring(), cube, VnPLY::eOutputFormatASCII);
    VnPLY::Write(static_cast<const wchar_t*>(nullptr), cube, VnPLY::eOutputFormatBinary);
    // Deleted slots make dense indices impossible: refused in both forms.
    CTriangulation holes = VnTest::MakeCube();
    holes.RemoveTriangle(CTriangleRef(3));
    expectPlyThrow<CbException>([&] { VnPLY::Write(path, holes, VnPLY::eOutputFormatBinary); }, "VnPLY::Write");
    CbStreamWriteBinaryMemory out;
    expectPlyThrow<CbException>([&] { VnPLY::Write(out, holes); }, "VnPLY::Write");
    EXPECT_EQ(out.GetSize(), 0u);
    EXPECT_FALSE(std::filesystem::exists(CbWideToUtf8(path)));
    // A folder that does not exist cannot be written.
    expectPlyThrow<CbException>(
        [&] { VnPLY::Write(VnTest::TempPath("no/such/dir.ply"), cube, VnPLY::eOutputFormatASCII); }, "VnPLY::Write");
    // A stream that fails half-way reports a stream failure of VnPLY.
    CbStreamWriteBinaryLimited limited(100);
    expectPlyThrow<CbExceptionStream>([&] { VnPLY::Write(limited, cube); }, "VnPLY::Write");
}

TEST(VnPLYWrite, AttributeOfTheWrongTypeIsAPreconditionViolation) {
    CTriangulation cube = VnTest::MakeCube();
    GetOrCreateAttribute<CVertexRef, float>(cube, "normal");
    CbStreamWriteBinaryMemory out;
    EXPECT_THROW(VnPLY::Write(out, cube), CbExceptionPreconditionViolation);
    CTriangulation cube2 = VnTest::MakeCube();
    GetOrCreateAttribute<CVertexRef, CbVector3f>(cube2, "color");
    EXPECT_THROW(VnPLY::Write(VnTest::TempPath("wrongcolor.ply"), cube2, VnPLY::eOutputFormatASCII),
                 CbExceptionPreconditionViolation);
}

TEST(VnPLYRead, EnvironmentReferencesInTheNameAreExpanded) {
    std::wstring path =
        VnTest::WriteTempFile("envcube.ply", "ply\nformat ascii 1.0\n" + kVertexHeader +
                                                 "element face 1\nproperty list uchar int vertex_indices\n"
                                                 "end_header\n" +
                                                 kFourVertices + "3 0 1 2\n");
    std::string folder = CbWideToUtf8(path.substr(0, path.find_last_of(L'/')));
    ::setenv("VNIO_PLY_TEST_FOLDER", folder.c_str(), 1);
    CTriangulation mesh = VnPLY::Read(L"$VNIO_PLY_TEST_FOLDER/envcube.ply");
    EXPECT_EQ(mesh.GetTriangleCount(), 1u);
    VnPLY::Write(L"${VNIO_PLY_TEST_FOLDER}/envout.ply", mesh, VnPLY::eOutputFormatBinary);
    EXPECT_EQ(VnPLY::Read(VnTest::TempPath("envout.ply")).GetVertexCount(), 4u);
}

TEST(VnPLYRead, MissingPositionsOrFacesGiveAnEmptyMesh) {
    const std::string head = "ply\nformat ascii 1.0\n";
    const std::string noFaces = head + kVertexHeader + "end_header\n" + kFourVertices;
    const std::string zeroFaces =
        head + kVertexHeader + "element face 0\nproperty list uchar int vertex_indices\nend_header\n" + kFourVertices;
    const std::string noVertices =
        head + "element face 1\nproperty list uchar int vertex_indices\nend_header\n3 0 1 2\n";
    const std::string otherList = head + kVertexHeader +
                                  "element face 1\nproperty list uchar int corners\nend_header\n" + kFourVertices +
                                  "3 0 1 2\n";
    for (const std::string& file : {noFaces, zeroFaces, noVertices, otherList}) {
        CTriangulation mesh = VnPLY::Read(VnTest::WriteTempFile("empty.ply", file));
        EXPECT_EQ(mesh.GetVertexCount(), 0u);
        EXPECT_EQ(mesh.GetTriangleCount(), 0u);
    }
}

TEST(VnPLYRead, FaceListNamesAndTheirPrecedence) {
    const std::string head = "ply\nformat ascii 1.0\n" + kVertexHeader + "element face 1\n";
    CTriangulation a = VnPLY::Read(VnTest::WriteTempFile(
        "index.ply", head + "property list uchar int vertex_index\nend_header\n" + kFourVertices + "3 2 1 3\n"));
    ASSERT_EQ(a.GetTriangleCount(), 1u);
    EXPECT_EQ(a.GetCorners(CTriangleRef(0)), (STriangleCorners{2, 1, 3}));
    // With both lists, "vertex_indices" is the one used, wherever it stands.
    CTriangulation b = VnPLY::Read(VnTest::WriteTempFile(
        "both.ply", head +
                        "property list uchar int vertex_index\nproperty list uchar int vertex_indices\nend_header\n" +
                        kFourVertices + "3 2 1 3 3 0 1 2\n"));
    EXPECT_EQ(b.GetCorners(CTriangleRef(0)), (STriangleCorners{0, 1, 2}));
}

TEST(VnPLYRead, ColoursNeedBytesAndUseAFourByteStride) {
    const std::string head = "ply\nformat ascii 1.0\n" + kVertexHeader;
    const std::string face = "element face 1\nproperty list uchar int vertex_indices\nend_header\n";
    // Red, green and blue alone: the buffer is stepped by four bytes per vertex, the bytes
    // past its end read as zero, and alpha is 255.
    CTriangulation rgb = VnPLY::Read(VnTest::WriteTempFile(
        "rgb.ply", head + "property uchar red\nproperty uchar green\nproperty uchar blue\n" + face +
                       "0 0 0 1 2 3\n1 0 0 4 5 6\n0 1 0 7 8 9\n1 1 0 10 11 12\n3 0 1 2\n"));
    auto c = FindAttribute<CVertexRef, const VnColorRGBA>(rgb, "color");
    ASSERT_TRUE(c);
    const uint8_t bytes[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0, 0, 0, 0};
    for (uint32_t i = 0; i < 4; ++i)
        EXPECT_EQ(c[CVertexRef(i)], VnColorRGBA(bytes[4 * i], bytes[4 * i + 1], bytes[4 * i + 2], 255)) << i;
    // With alpha the channels land where they belong, whatever the property order.
    CTriangulation rgba = VnPLY::Read(VnTest::WriteTempFile(
        "rgba.ply", head + "property uchar alpha\nproperty uchar blue\nproperty uchar green\nproperty uchar red\n" +
                        face + "0 0 0 4 3 2 1\n1 0 0 8 7 6 5\n0 1 0 0 0 0 0\n1 1 0 255 254 253 252\n3 0 1 2\n"));
    auto c4 = FindAttribute<CVertexRef, const VnColorRGBA>(rgba, "color");
    ASSERT_TRUE(c4);
    EXPECT_EQ(c4[CVertexRef(0)], VnColorRGBA(1, 2, 3, 4));
    EXPECT_EQ(c4[CVertexRef(1)], VnColorRGBA(5, 6, 7, 8));
    EXPECT_EQ(c4[CVertexRef(3)], VnColorRGBA(252, 253, 254, 255));
    // Float and int colours are not colours of this format.
    for (const char* type : {"float", "int"}) {
        CTriangulation m = VnPLY::Read(VnTest::WriteTempFile(
            "fcolor.ply", head + "property " + type + " red\nproperty " + type + " green\nproperty " + type +
                              " blue\n" + face + "0 0 0 1 0 0\n1 0 0 0 1 0\n0 1 0 0 0 1\n1 1 0 1 1 1\n3 0 1 2\n"));
        EXPECT_EQ(m.GetTriangleCount(), 1u);
        EXPECT_EQ(m.FindAttribute(eContainerVertex, "color"), nullptr) << type;
    }
}

TEST(VnPLYRead, FileNormalsAreKeptAndMissingOnesComputed) {
    const std::string face = "element face 2\nproperty list uchar int vertex_indices\nend_header\n";
    const std::string withNormals = "ply\nformat ascii 1.0\nelement vertex 4\nproperty float nx\nproperty float ny\n"
                                    "property float nz\nproperty float x\nproperty float y\nproperty float z\n" +
                                    face + "1 0 0 0 0 0\n1 0 0 1 0 0\n0 1 0 0 1 0\n0 0 -1 1 1 0\n3 0 1 2\n3 2 1 3\n";
    CTriangulation m = VnPLY::Read(VnTest::WriteTempFile("normals.ply", withNormals));
    auto vn = FindAttribute<CVertexRef, const CbVector3f>(m, "normal");
    auto tn = FindAttribute<CTriangleRef, const CbVector3f>(m, "normal");
    ASSERT_TRUE(vn && tn);
    EXPECT_EQ(vn[CVertexRef(0)], CbVector3f(1, 0, 0));
    EXPECT_EQ(vn[CVertexRef(3)], CbVector3f(0, 0, -1));
    EXPECT_EQ(tn[CTriangleRef(0)], CbVector3f(0, 0, 1));
    EXPECT_EQ(tn[CTriangleRef(1)], CbVector3f(0, 0, 1));
    CTriangulation plain = VnPLY::Read(VnTest::WriteTempFile(
        "plain.ply", "ply\nformat ascii 1.0\n" + kVertexHeader + face + kFourVertices + "3 0 1 2\n3 2 1 3\n"));
    auto pn = FindAttribute<CVertexRef, const CbVector3f>(plain, "normal");
    ASSERT_TRUE(pn);
    EXPECT_EQ(pn[CVertexRef(0)], CbVector3f(0, 0, 1));
}

TEST(VnPLYRead, OtherEncodingsTypesAndExtraData) {
    // Big-endian, double positions, short indices counted by an int, extra properties on
    // both elements and an extra element in front.
    CPlyBytes b;
    b.Text(
        "ply\nformat binary_big_endian 1.0\ncomment made by hand\nobj_info nothing\nelement material 1\n"
        "property list uchar char name\nelement vertex 3\nproperty double z\nproperty double y\nproperty double x\n"
        "property float confidence\nelement face 1\nproperty uchar intensity\nproperty list int ushort vertex_indices\n"
        "property float quality\nend_header\n");
    b.Be<uint8_t>(2).Be<int8_t>('h').Be<int8_t>('i');
    b.Be(0.0).Be(0.0).Be(0.5).Be(1.f);
    b.Be(0.0).Be(0.25).Be(1.0).Be(1.f);
    b.Be(-8.0).Be(1e-3).Be(1e30).Be(1.f);
    b.Be<uint8_t>(1).Be<int32_t>(3).Be<uint16_t>(2).Be<uint16_t>(0).Be<uint16_t>(1).Be(0.5f);
    CTriangulation m = VnPLY::Read(VnTest::WriteTempFile("be.ply", b.Str()));
    ASSERT_EQ(m.GetVertexCount(), 3u);
    EXPECT_EQ(m.GetPosition(CVertexRef(0)), CbVector3f(0.5f, 0, 0));
    EXPECT_EQ(m.GetPosition(CVertexRef(2)), CbVector3f(1e30f, float(1e-3), -8.f));
    EXPECT_EQ(m.GetCorners(CTriangleRef(0)), (STriangleCorners{2, 0, 1}));
}

TEST(VnPLYRead, BrokenFilesThrowWrappedStandardExceptions) {
    const std::string head = "ply\nformat ascii 1.0\n" + kVertexHeader;
    const std::string list = "element face 1\nproperty list uchar int vertex_indices\nend_header\n" + kFourVertices;
    expectReadStd(head + list + "4 0 1 2 3\n", "has 4 values, expected 3");
    expectReadStd(head + list + "3 0 1 4\n", "refers to vertex 4");
    expectReadStd(head + list + "3 0 -1 2\n", "bad value \"-1\" of vertex_indices (declared int, read as uint)");
    expectReadStd(head + list + "3 0 1 x\n", "bad value \"x\"");
    expectReadStd(head + list + "3 0 1\n", "unexpected end of file");
    expectReadStd("ply\nformat binary_sideways 1.0\nend_header\n", "unknown format");
    expectReadStd("solid stl\n", "does not start with \"ply\"");
    expectReadStd(head + "element face 1\nproperty int vertex_indices\nend_header\n" + kFourVertices + "0\n",
                  "is not a list");
    // Binary: a body one byte short, checked before anything is sized from the counts.
    CPlyBytes b;
    b.Text("ply\nformat binary_little_endian 1.0\n" + kVertexHeader +
           "element face 1\nproperty list uchar uint vertex_indices\nend_header\n");
    for (int i = 0; i < 12; ++i) b.Le(float(i));
    b.Le<uint8_t>(3).Le(0u).Le(1u);
    expectReadStd(b.Str() + std::string(3, '\0'), "bytes are left");
    b.Le(5u);
    expectReadStd(b.Str(), "refers to vertex 5");
    // A missing file is a plain CbException, and a folder a stream failure of VnPLY.
    expectPlyThrow<CbException>([] { VnPLY::Read(VnTest::TempPath("does_not_exist.ply")); }, "VnPLY::Read");
    std::filesystem::create_directories(CbWideToUtf8(VnTest::TempPath("folder.ply")));
    expectPlyThrow<CbExceptionStream>([] { VnPLY::Read(VnTest::TempPath("folder.ply")); }, "VnPLY::Read");
}

// Files from the shared corpus, with the counts an independent script found.
TEST(VnPLYCorpus, RealFilesReadWithTheirCounts) {
    const std::filesystem::path dir = std::filesystem::path(VNIO_SHARED_DATA_DIR) / "ply";
    if (!std::filesystem::exists(dir)) GTEST_SKIP() << "no shared corpus at " << dir;
    struct SCase {
        const char* file;
        uint32_t v, t;
        bool normals, colors;
    };
    const SCase cases[] = {
        {"bob_small.ply", 250, 500, false, false},
        {"bun_zipper_res4.ply", 453, 948, false, false},
        {"drill_shaft_zip.ply", 881, 1288, false, false},
        {"cycloidal.ply", 21384, 43368, false, true},
        {"spot_vcolor_normals_ascii.ply", 2930, 5856, true, true},
        {"Armadillo.ply", 172974, 345944, false, false},
        {"bun_zipper.ply", 35947, 69451, false, false},
    };
    for (const SCase& c : cases) {
        std::filesystem::path p = dir / c.file;
        if (!std::filesystem::exists(p)) continue;
        SCOPED_TRACE(c.file);
        CTriangulation m = VnPLY::Read(CbUtf8ToWide(p.string()));
        EXPECT_EQ(m.GetVertexCount(), c.v);
        EXPECT_EQ(m.GetTriangleCount(), c.t);
        EXPECT_EQ(m.FindAttribute(eContainerVertex, "color") != nullptr, c.colors);
        if (c.normals) {
            // The first vertex row of the file: 0.706382 0.093003 -0.701694 as normal.
            auto n = FindAttribute<CVertexRef, const CbVector3f>(m, "normal");
            EXPECT_EQ(n[CVertexRef(0)], CbVector3f(0.706382f, 0.093003f, -0.701694f));
        }
        // Our own binary and text forms carry the same mesh (smaller files only, to keep
        // the suite quick in debug builds).
        if (c.v > 50000) continue;
        for (auto format : {VnPLY::eOutputFormatBinary, VnPLY::eOutputFormatASCII}) {
            std::wstring out = VnTest::TempPath(std::string("corpus_") + c.file);
            VnPLY::Write(out, m, format);
            CTriangulation back = VnPLY::Read(out);
            expectSameGeometry(m, back);
        }
    }
}

namespace {

struct SObjCorner {
    CbVector3f position, normal;
    int r, g, b;
};

// Parses the OBJ the independent tool exports: "v x y z r g b", "vn x y z", "f a//n ...".
std::vector<SObjCorner> objCorners(const std::string& text) {
    std::vector<std::array<float, 6>> v;
    std::vector<CbVector3f> vn;
    std::vector<SObjCorner> corners;
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream l(line);
        l.imbue(std::locale::classic());
        std::string key;
        l >> key;
        if (key == "v") {
            std::array<float, 6> a{};
            for (float& f : a) l >> f;
            v.push_back(a);
        } else if (key == "vn") {
            CbVector3f n;
            l >> n.x >> n.y >> n.z;
            vn.push_back(n);
        } else if (key == "f") {
            std::string ref;
            while (l >> ref) {
                size_t s = ref.find("//");
                size_t vi = std::stoul(ref.substr(0, s)) - 1, ni = std::stoul(ref.substr(s + 2)) - 1;
                const auto& p = v.at(vi);
                corners.push_back({CbVector3f(p[0], p[1], p[2]), vn.at(ni), int(std::lround(p[3] * 255)),
                                   int(std::lround(p[4] * 255)), int(std::lround(p[5] * 255))});
            }
        }
    }
    return corners;
}

} // namespace

// Files written here, read by another program's PLY reader: the same triangles, corner by
// corner, with the same positions, normals and colours.
TEST(VnPLYCrossCheck, IndependentReaderSeesTheSameData) {
    if (!VnTest::HaveProgram("assimp")) GTEST_SKIP() << "assimp (Debian assimp-utils) not installed";
    const CTriangulation mesh = makeDecorated();
    auto n = FindAttribute<CVertexRef, const CbVector3f>(mesh, "normal");
    auto c = FindAttribute<CVertexRef, const VnColorRGBA>(mesh, "color");
    for (auto format : {VnPLY::eOutputFormatASCII, VnPLY::eOutputFormatBinary}) {
        SCOPED_TRACE(int(format));
        std::wstring ply = VnTest::TempPath("cross" + std::to_string(format) + ".ply");
        std::wstring obj = VnTest::TempPath("cross" + std::to_string(format) + ".obj");
        VnPLY::Write(ply, mesh, format);
        VnTest::RunCommand("assimp export '" + CbWideToUtf8(ply) + "' '" + CbWideToUtf8(obj) + "' >/dev/null 2>&1");
        std::vector<SObjCorner> corners = objCorners(VnTest::ReadFileBytes(obj));
        ASSERT_EQ(corners.size(), 3u * mesh.GetTriangleCount());
        for (uint32_t t = 0; t < mesh.GetTriangleCount(); ++t) {
            for (int k = 0; k < 3; ++k) {
                CVertexRef v(mesh.GetCorner(CTriangleRef(t), k));
                const SObjCorner& o = corners[3 * t + k];
                // The other reader parses text with a fast approximate routine: allow
                // a few units in the last place.
                for (int i = 0; i < 3; ++i) {
                    EXPECT_NEAR(o.position[i], mesh.GetPosition(v)[i], 1e-6 * (1 + std::fabs(mesh.GetPosition(v)[i])));
                    EXPECT_NEAR(o.normal[i], n[v][i], 1e-6 * (1 + std::fabs(n[v][i])));
                }
                EXPECT_EQ(o.r, c[v].GetRed());
                EXPECT_EQ(o.g, c[v].GetGreen());
                EXPECT_EQ(o.b, c[v].GetBlue());
            }
        }
    }
}

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "basepool/cbstreambinary.h"
#include "support/meshbuilders.h"
#include "vnbase/vnstreamfile.h"
#include "vnio/vnstl.h"

using namespace Geometry;

namespace {

struct SRecord {
    float n[3];
    float p[9];
    uint16_t word;
};

std::string binarySTL(const std::vector<SRecord>& records, uint32_t count, const char* header = "test header") {
    std::string bytes(80, '\0');
    std::memcpy(bytes.data(), header, std::strlen(header));
    bytes.append(reinterpret_cast<const char*>(&count), 4);
    for (const SRecord& r : records) {
        bytes.append(reinterpret_cast<const char*>(r.n), 12);
        bytes.append(reinterpret_cast<const char*>(r.p), 36);
        bytes.append(reinterpret_cast<const char*>(&r.word), 2);
    }
    return bytes;
}

std::vector<SRecord> twoRecords() {
    return {SRecord{{0, 0, 1}, {0, 0, 0, 1, 0, 0, 0, 1, 0}, 7}, SRecord{{0, 0, 1}, {1, 0, 0, 1, 1, 0, 0, 1, 0}, 9}};
}

bool readBinary(const std::string& bytes, CTriangulation& mesh, VnSTL::EFlagsRead flags = VnSTL::eFlagNone,
                VnSTL::SHeader* header = nullptr, VnSTL::CAttributeWord word = nullptr) {
    CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
    return VnSTL::Serialize(in, mesh, flags, header, word);
}

bool readASCII(const std::string& text, CTriangulation& mesh, CStringA* name = nullptr,
               VnSTL::EFlagsRead flags = VnSTL::eFlagNone) {
    VnStreamReadASCIIMemory in(text);
    return VnSTL::Serialize(in, mesh, flags, name);
}

const char* kFacet = "facet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\nendfacet\n";

} // namespace

TEST(VnSTLBinaryRead, RecordsBecomeASoupWithNormalsAndWords) {
    CTriangulation mesh;
    auto word = GetOrCreateAttribute<CTriangleRef, unsigned short>(mesh, "word");
    VnSTL::SHeader header;
    ASSERT_TRUE(readBinary(binarySTL(twoRecords(), 2), mesh, VnSTL::eFlagNone, &header, word));
    EXPECT_EQ(mesh.GetTriangleCount(), 2u);
    EXPECT_EQ(mesh.GetVertexCount(), 6u);
    EXPECT_EQ(word[CTriangleRef(0)], 7);
    EXPECT_EQ(word[CTriangleRef(1)], 9);
    EXPECT_EQ(VnSTL::ExtractHeaderString(header), "test header");
    auto normals = FindAttribute<CTriangleRef, const CbVector3f>(mesh, "normal");
    ASSERT_TRUE(normals);
    EXPECT_EQ(normals[CTriangleRef(1)], CbVector3f(0, 0, 1));
    EXPECT_EQ(mesh.GetPosition(CVertexRef(4)), CbVector3f(1, 1, 0));
}

TEST(VnSTLBinaryRead, CombineJoinsSharedCorners) {
    CTriangulation mesh;
    ASSERT_TRUE(readBinary(binarySTL(twoRecords(), 2), mesh, VnSTL::eFlagCombine | VnSTL::eFlagVertexNormals));
    EXPECT_EQ(mesh.GetVertexCount(), 4u);
    auto vn = FindAttribute<CVertexRef, const CbVector3f>(mesh, "normal");
    ASSERT_TRUE(vn);
    for (CVertexRef v : mesh.Vertices()) EXPECT_NEAR(vn[v].z, 1.f, 1e-6);
}

TEST(VnSTLBinaryRead, FailuresEmptyTheMeshAndZeroTheHeader) {
    const std::string good = binarySTL(twoRecords(), 2);
    struct SCase {
        const char* what;
        std::string bytes;
    } cases[] = {
        {"short header", good.substr(0, 50)},
        {"short count", good.substr(0, 82)},
        {"short record", good.substr(0, good.size() - 1)},
        {"count beyond the records", binarySTL(twoRecords(), 3)},
        {"count whose triple overflows", binarySTL({}, 1431655766u)},
    };
    for (const SCase& c : cases) {
        CTriangulation mesh = VnTest::MakeCube();
        VnSTL::SHeader header;
        header.fill(0xAB);
        EXPECT_FALSE(readBinary(c.bytes, mesh, VnSTL::eFlagNone, &header)) << c.what;
        EXPECT_EQ(mesh.GetTriangleCount(), 0u) << c.what;
        EXPECT_EQ(mesh.GetVertexCount(), 0u) << c.what;
        for (unsigned char b : header) ASSERT_EQ(b, 0) << c.what;
    }
}

TEST(VnSTLBinaryRead, ForgedCountReservesNoMoreThanTheDataJustifies) {
    // 1431655765 claimed records but only one present: must fail cleanly and quickly.
    CTriangulation mesh;
    EXPECT_FALSE(readBinary(binarySTL({twoRecords()[0]}, 1431655765u), mesh));
    EXPECT_EQ(mesh.GetTriangleCount(), 0u);
}

TEST(VnSTLBinaryRead, CombineWithAttributeIsAPreconditionViolation) {
    CTriangulation mesh;
    auto word = GetOrCreateAttribute<CTriangleRef, unsigned short>(mesh, "word");
    try {
        readBinary(binarySTL(twoRecords(), 2), mesh, VnSTL::eFlagCombine, nullptr, word);
        FAIL() << "no exception";
    } catch (const CbExceptionPreconditionViolation& e) {
        EXPECT_EQ(e.GetLine(), 360u);
        EXPECT_EQ(e.GetFunction(), "VnSTL::Serialize");
        EXPECT_EQ(e.GetSourceFile(), "vnlibraries/vnio/vnstl");
    }
    // Normals alone may go with the attribute.
    EXPECT_TRUE(readBinary(binarySTL(twoRecords(), 2), mesh, VnSTL::eFlagVertexNormals, nullptr, word));
    // A handle of another mesh is refused the same way.
    CTriangulation other;
    auto foreign = GetOrCreateAttribute<CTriangleRef, unsigned short>(other, "word");
    EXPECT_THROW(readBinary(binarySTL(twoRecords(), 2), mesh, VnSTL::eFlagNone, nullptr, foreign),
                 CbExceptionPreconditionViolation);
}

TEST(VnSTLBinaryWrite, DefaultHeaderRecordsAndAttributeWordRoundTrip) {
    CTriangulation mesh = VnTest::MakeCube();
    auto word = GetOrCreateAttribute<CTriangleRef, unsigned short>(mesh, "word");
    for (CTriangleRef t : mesh.Triangles()) word[t] = static_cast<unsigned short>(1000 + t);
    CbStreamWriteBinaryMemory out;
    ASSERT_TRUE(VnSTL::Serialize(out, mesh, nullptr, word));
    const auto& bytes = out.GetData();
    ASSERT_EQ(bytes.size(), 84u + 50u * 12u);
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 30), VnSTL::c_DefaultHeader);
    for (size_t i = 30; i < 80; ++i) ASSERT_EQ(bytes[i], 0);

    CTriangulation back;
    auto backWord = GetOrCreateAttribute<CTriangleRef, unsigned short>(back, "word");
    CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
    ASSERT_TRUE(VnSTL::Serialize(in, back, VnSTL::eFlagNone, nullptr, backWord));
    for (CTriangleRef t : back.Triangles()) EXPECT_EQ(backWord[t], 1000 + t);
    // Facet normals were computed from the geometry: unit length and outward for the cube.
    auto n = FindAttribute<CTriangleRef, const CbVector3f>(back, "normal");
    for (CTriangleRef t : back.Triangles()) EXPECT_NEAR(n[t].Length(), 1.f, 1e-6);
}

TEST(VnSTLBinaryWrite, DegenerateTriangleGetsZeroNormalAndStoredNormalsAreKept) {
    CTriangulation mesh;
    auto a = mesh.AddVertex(CbVector3f(0, 0, 0));
    auto b = mesh.AddVertex(CbVector3f(1, 1, 1));
    mesh.AddTriangle(a, b, b);
    CbStreamWriteBinaryMemory out;
    ASSERT_TRUE(VnSTL::Serialize(out, mesh));
    float n[3];
    std::memcpy(n, out.GetData().data() + 84, 12);
    EXPECT_EQ(n[0], 0.f);
    EXPECT_EQ(n[1], 0.f);
    EXPECT_EQ(n[2], 0.f);

    auto stored = GetOrCreateAttribute<CTriangleRef, CbVector3f>(mesh, "normal");
    stored[CTriangleRef(0)] = CbVector3f(5, 6, 7); // written as it is, not normalised
    CbStreamWriteBinaryMemory out2;
    ASSERT_TRUE(VnSTL::Serialize(out2, mesh));
    std::memcpy(n, out2.GetData().data() + 84, 12);
    EXPECT_EQ(n[2], 7.f);
}

TEST(VnSTLBinaryWrite, StreamFailureGivesFalseAndFileWriterThrows748) {
    CTriangulation mesh = VnTest::MakeCube();
    CbStreamWriteBinaryLimited out(100);
    EXPECT_FALSE(VnSTL::Serialize(out, mesh));
    CStringA missing = "/nonexistent-folder/x.stl";
    EXPECT_THROW(VnSTL::Serialize(CbUtf8ToWide(missing).c_str(), mesh), CbExceptionStream);
}

TEST(VnSTLAsciiRead, KeywordsNumbersAndComments) {
    CTriangulation mesh;
    CStringA name;
    ASSERT_TRUE(readASCII(std::string("solid part7\r\n# a comment line\n") + kFacet + "!x\n" + kFacet + "endsolid part7\n",
                          mesh, &name));
    EXPECT_EQ(name, "part7");
    EXPECT_EQ(mesh.GetTriangleCount(), 2u);
    // A comment character directly behind a token ends it.
    ASSERT_TRUE(readASCII("solid\nfacet normal 0 0 1#c\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\n"
                          "endfacet\nendsolid\n",
                          mesh, &name));
    EXPECT_EQ(name, "");
    EXPECT_EQ(mesh.GetTriangleCount(), 1u);
}

TEST(VnSTLAsciiRead, EmptySolidLoadsAsEmptyMesh) {
    CTriangulation mesh = VnTest::MakeCube();
    EXPECT_TRUE(readASCII("solid\nendsolid\n", mesh));
    EXPECT_EQ(mesh.GetTriangleCount(), 0u);
    EXPECT_EQ(mesh.GetVertexCount(), 0u);
}

TEST(VnSTLAsciiRead, MalformedInputFailsAndKeepsCompletedFacets) {
    struct SCase {
        const char* what;
        std::string text;
        uint32_t kept;
    } cases[] = {
        {"facetnormal as one token", "solid x\nfacetnormal 0 0 1\n", 0},
        {"number with trailing letter", "solid x\nfacet normal 1.0f 0 1\n", 0},
        {"missing endsolid", std::string("solid x\n") + kFacet, 1},
        {"wrong keyword", std::string("solid x\n") + kFacet + "facet normal 0 0 1\nouter lop\n", 1},
        {"bad endloop keeps the facet", "solid\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendlop\n", 1},
        {"not a solid", "facet", 0},
        {"empty", "", 0},
        {"lower-case keyword mismatch", "SOLID x\nendsolid\n", 0},
    };
    for (const SCase& c : cases) {
        CTriangulation mesh;
        EXPECT_FALSE(readASCII(c.text, mesh)) << c.what;
        EXPECT_EQ(mesh.GetTriangleCount(), c.kept) << c.what;
    }
}

TEST(VnSTLAsciiWrite, LayoutNumbersAndRoundTrip) {
    CTriangulation mesh;
    auto a = mesh.AddVertex(CbVector3f(0.1f, -2.5f, 1e-7f));
    auto b = mesh.AddVertex(CbVector3f(3.0f, 0.f, 0.f));
    auto c = mesh.AddVertex(CbVector3f(0.f, 1.f / 3.f, 0.f));
    mesh.AddTriangle(a, b, c);
    CbStreamWriteASCIIMemory out;
    CStringA name = "named";
    ASSERT_TRUE(VnSTL::Serialize(out, mesh, &name));
    const std::string& text = out.GetText();
    EXPECT_EQ(text.rfind("solid named\nfacet normal ", 0), 0u);
    EXPECT_NE(text.find("vertex 0.100000001 -2.5 1.00000001e-07\n"), std::string::npos);
    EXPECT_NE(text.find("vertex 0 0.333333343 0\n"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 26), "endloop\nendfacet\nendsolid\n");
    CTriangulation back;
    ASSERT_TRUE(readASCII(text, back));
    for (uint32_t v = 0; v < 3; ++v) EXPECT_EQ(back.GetPosition(CVertexRef(v)), mesh.GetPosition(CVertexRef(v)));
}

TEST(VnSTLFiles, LoadDecidesFormatAndReportsIt) {
    std::wstring bin = VnTest::WriteTempFile("two.stl", binarySTL(twoRecords(), 2));
    std::wstring ascii = VnTest::WriteTempFile("one.stl", std::string("solid one\n") + kFacet + "endsolid\n");
    EXPECT_TRUE(VnSTL::IsBinary(bin));
    EXPECT_FALSE(VnSTL::IsBinary(ascii));
    CTriangulation mesh;
    bool isBinary = false;
    CStringA name;
    VnSTL::SHeader header;
    ASSERT_TRUE(VnSTL::Load(bin, mesh, VnSTL::eFlagCombine, &header, nullptr, &name, &isBinary));
    EXPECT_TRUE(isBinary);
    EXPECT_EQ(mesh.GetVertexCount(), 4u);
    EXPECT_EQ(VnSTL::ExtractHeaderString(header), "test header");
    ASSERT_TRUE(VnSTL::Load(ascii, mesh, VnSTL::eFlagNone, &header, nullptr, &name, &isBinary));
    EXPECT_FALSE(isBinary);
    EXPECT_EQ(name, "one");
    for (unsigned char b : header) ASSERT_EQ(b, 0); // ASCII success zeroes the header
}

TEST(VnSTLFiles, IsBinaryEdgeCases) {
    // Exactly 84 bytes with count 0: binary, loads empty.
    std::wstring empty = VnTest::WriteTempFile("empty.stl", binarySTL({}, 0));
    EXPECT_TRUE(VnSTL::IsBinary(empty));
    CTriangulation mesh = VnTest::MakeCube();
    EXPECT_TRUE(VnSTL::Load(empty, mesh));
    EXPECT_EQ(mesh.GetTriangleCount(), 0u);
    // Right size, wrong count: read as ASCII (and fails as ASCII).
    std::wstring liar = VnTest::WriteTempFile("liar.stl", binarySTL(twoRecords(), 5));
    EXPECT_FALSE(VnSTL::IsBinary(liar));
    bool isBinary = true;
    EXPECT_FALSE(VnSTL::Load(liar, mesh, VnSTL::eFlagNone, nullptr, nullptr, nullptr, &isBinary));
    EXPECT_FALSE(isBinary);
    // The 32-bit wrap of count * 50 + 84 is kept: 2^32 / 50 wrap cannot match a small file
    // unless the arithmetic wraps; count 85899346 gives 4294967384 -> 88 mod 2^32.
    std::string wrapped = binarySTL({}, 85899346u);
    wrapped.append(4, '\0');
    std::wstring wrap = VnTest::WriteTempFile("wrap.stl", wrapped);
    ASSERT_EQ(wrapped.size(), 88u);
    EXPECT_FALSE(VnSTL::IsBinary(wrap)); // (88 - 84) is not a multiple of 50
    EXPECT_FALSE(VnSTL::IsBinary(VnTest::TempPath("does-not-exist.stl")));
}

TEST(VnSTLFiles, MissingFileIsFalseWithZeroedOutputs) {
    CTriangulation mesh = VnTest::MakeCube();
    auto word = GetOrCreateAttribute<CTriangleRef, unsigned short>(mesh, "word");
    for (CTriangleRef t : mesh.Triangles()) word[t] = 5;
    VnSTL::SHeader header;
    header.fill(1);
    EXPECT_FALSE(VnSTL::Load(VnTest::TempPath("missing.stl"), mesh, VnSTL::eFlagNone, &header, word));
    for (unsigned char b : header) ASSERT_EQ(b, 0);
    for (CTriangleRef t : mesh.Triangles()) EXPECT_EQ(word[t], 0);
}

TEST(VnSTLFiles, LoadPreconditionBeforeTouchingTheFile) {
    CTriangulation mesh;
    auto word = GetOrCreateAttribute<CTriangleRef, unsigned short>(mesh, "word");
    try {
        VnSTL::Load(VnTest::TempPath("never-created.stl"), mesh, VnSTL::eFlagCombine, nullptr, word);
        FAIL();
    } catch (const CbExceptionPreconditionViolation& e) {
        EXPECT_EQ(e.GetLine(), 100u);
        EXPECT_EQ(e.GetFunction(), "VnSTL::Load");
    }
}

TEST(VnSTLFiles, NonAsciiPathsLoadAndSave) {
    CTriangulation mesh = VnTest::MakeSphere(8, 12);
    std::wstring path = VnTest::TempPath("") + L"\u0441\u0444\u0435\u0440\u0430_\u7403\u4f53.stl";
    VnSTL::Serialize(path.c_str(), mesh);
    CTriangulation back;
    ASSERT_TRUE(VnSTL::Load(path, back, VnSTL::eFlagCombine));
    EXPECT_EQ(back.GetTriangleCount(), mesh.GetTriangleCount());
    EXPECT_EQ(back.GetVertexCount(), mesh.GetVertexCount());
}

TEST(VnSTLFiles, WeldedClosedSphereHasEulerCharacteristicTwo) {
    CTriangulation sphere = VnTest::MakeSphere(16, 24);
    std::wstring path = VnTest::TempPath("sphere.stl");
    VnSTL::Serialize(path.c_str(), sphere);
    CTriangulation mesh;
    ASSERT_TRUE(VnSTL::Load(path, mesh, VnSTL::eFlagCombine));
    // A closed genus-0 surface: V - E + F = 2 with E = 3F/2.
    int64_t V = mesh.GetVertexCount(), F = mesh.GetTriangleCount();
    EXPECT_EQ(V - 3 * F / 2 + F, 2);
    mesh.ComputeAdjacency();
    for (CTriangleRef t : mesh.Triangles())
        for (int k = 0; k < 3; ++k) ASSERT_NE(mesh.GetAdjacentTriangle(t, k), c_IndexInvalid);
}

TEST(VnSTLAsciiWrite, JoinedMeshWritesTheSameTextAsItsSoup) {
    // The writer formats a shared vertex once; the text must not depend on that.
    CTriangulation joined = VnTest::MakeSphere(6, 9);
    CTriangulation soup;
    for (CTriangleRef t : joined.Triangles()) {
        const auto& c = joined.GetCorners(t);
        CVertexRef a = soup.AddVertex(joined.GetPosition(CVertexRef(c[0])));
        CVertexRef b = soup.AddVertex(joined.GetPosition(CVertexRef(c[1])));
        CVertexRef d = soup.AddVertex(joined.GetPosition(CVertexRef(c[2])));
        soup.AddTriangle(a, b, d);
    }
    CbStreamWriteASCIIMemory a, b;
    ASSERT_TRUE(VnSTL::Serialize(a, joined));
    ASSERT_TRUE(VnSTL::Serialize(b, soup));
    EXPECT_EQ(a.GetText(), b.GetText());
}

TEST(VnSTLWrite, CornerWithoutLiveVertexIsRefusedBeforeWriting) {
    CTriangulation mesh = VnTest::MakeCube();
    mesh.RemoveVertex(CVertexRef(2));
    CbStreamWriteBinaryMemory bin;
    EXPECT_THROW(VnSTL::Serialize(bin, mesh), CbExceptionPreconditionViolation);
    EXPECT_EQ(bin.GetSize(), 0u);
    CbStreamWriteASCIIMemory text;
    EXPECT_THROW(VnSTL::Serialize(text, mesh), CbExceptionPreconditionViolation);
    EXPECT_TRUE(text.GetText().empty());
}

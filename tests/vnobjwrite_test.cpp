// Writing OBJ and MTL: exact text of the small cases, the four face layouts, group lines,
// material lines, write-then-read round trips and a cross-check with another OBJ reader.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "basepool/cbexception.h"
#include "basepool/cbstreamascii.h"
#include "support/decimalcommalocale.h"
#include "support/meshbuilders.h"
#include "vn3dbase/cattributehandle.h"
#include "vn3dbase/registry.h"
#include "vnio/vnobj.h"

#if __has_include(<tiny_obj_loader.h>)
#define TINYOBJLOADER_IMPLEMENTATION
#include <tiny_obj_loader.h>
#define VNIO_HAVE_TINYOBJ 1
#endif

namespace {

using Geometry::CTriangleRef;
using Geometry::CTriangulation;
using Geometry::CVertexRef;
using STexture = Geometry::CAttributeConfigurationTriangleParameters::value_type;

CTriangulation triangles(std::initializer_list<CbVector3f> points, std::initializer_list<std::array<uint32_t, 3>> faces) {
    CTriangulation m;
    for (const CbVector3f& p : points) m.AddVertex(p);
    for (const auto& f : faces) m.AddTriangle(CVertexRef(f[0]), CVertexRef(f[1]), CVertexRef(f[2]));
    return m;
}

CTriangulation square() { return triangles({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, {{0, 1, 2}, {0, 2, 3}}); }

Geometry::CTriangleAttribute<STexture> textureOf(CTriangulation& m) {
    return Geometry::GetOrCreateAttribute<CTriangleRef, STexture>(m, Geometry::CAttributeConfigurationTriangleParameters::GetId());
}

Geometry::CTriangleAttribute<unsigned> materialOf(CTriangulation& m) {
    return Geometry::GetOrCreateAttribute<CTriangleRef, unsigned>(m, "triangleType");
}

std::string write(const CTriangulation& mesh, const CbArray<VnOBJ::SGroup>& groups = {}, const VnOBJ::SMaterialInfo* info = nullptr,
                  std::string* mtl = nullptr, const CStringA& header = "hdr") {
    CbStreamWriteASCIIMemory obj, mtlStream;
    const VnOBJ::SMaterialInfo none;
    EXPECT_TRUE(VnOBJ::Serialize(obj, mesh, mtl ? &mtlStream : nullptr, "m.mtl", info ? *info : none, header, groups));
    if (mtl) *mtl = mtlStream.GetText();
    return obj.GetText();
}

// The lines of `text` that start with `prefix`.
std::vector<std::string> lines(const std::string& text, const std::string& prefix) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (line.rfind(prefix, 0) == 0) out.push_back(line);
    return out;
}

VnOBJ::SGroup group(const char* name, std::initializer_list<uint32_t> members) {
    VnOBJ::SGroup g;
    g.name = name;
    for (uint32_t t : members) g.region.SetInside(CTriangleRef(t), true);
    return g;
}

TEST(VnOBJWriteText, EmptyMeshWritesTheThreeCommentLines) {
    EXPECT_EQ(write(CTriangulation()), "# hdr\n# 0 vertices\n# 0 triangles\n");
    EXPECT_EQ(write(CTriangulation(), {}, nullptr, nullptr, ""), "# \n# 0 vertices\n# 0 triangles\n");
}

TEST(VnOBJWriteText, MirrorsZAndReversesWinding) {
    const std::string text = write(triangles({{1, 2, 3}, {0.5f, -0.25f, 0}, {1e-7f, 123456.5f, -2}}, {{0, 1, 2}}));
    EXPECT_EQ(text, "# hdr\n# 3 vertices\n# 1 triangles\n"
                    "v 1.000000 2.000000 -3.000000\nv 0.500000 -0.250000 -0.000000\nv 0.000000 123456.500000 2.000000\n"
                    "f 1 3 2\n");
}

TEST(VnOBJWriteText, TexturedFacesNumberTheirVtLinesInThrees) {
    CTriangulation m = square();
    auto tex = textureOf(m);
    tex[CTriangleRef(0)] = {CbVector2f(0, 0), CbVector2f(1, 0.25f), CbVector2f(1, 1)};
    tex[CTriangleRef(1)] = {CbVector2f(0, 0), CbVector2f(1, 1), CbVector2f(0, 1)};
    const std::string text = write(m);
    EXPECT_EQ(lines(text, "f "), (std::vector<std::string>{"f 1/1 3/3 2/2", "f 1/4 4/6 3/5"}));
    const auto vt = lines(text, "vt ");
    ASSERT_EQ(vt.size(), 6u);
    EXPECT_EQ(vt[0], "vt 0.000000000000 1.000000000000");
    EXPECT_EQ(vt[1], "vt 1.000000000000 0.750000000000");
}

TEST(VnOBJWriteGroups, LinesAppearOnlyWhenMembershipChanges) {
    const CTriangulation m = triangles({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}, {0, 1, 2}, {0, 1, 2}, {0, 1, 2}, {0, 1, 2}});
    CbArray<VnOBJ::SGroup> groups;
    groups.Add(group("A", {1, 2, 4}));
    groups.Add(group("B", {2, 4}));
    const std::string text = write(m, groups);
    const std::string body = text.substr(text.find("f "));
    EXPECT_EQ(body, "f 1 3 2\ng A\nf 1 3 2\ng A B\nf 1 3 2\ng default\nf 1 3 2\ng A B\nf 1 3 2\n");
}

TEST(VnOBJWriteGroups, MoreThan255GroupsAreRefusedBeforeWriting) {
    const CTriangulation m = square();
    CbArray<VnOBJ::SGroup> groups;
    for (int i = 0; i < 255; ++i) groups.Add(group(("g" + std::to_string(i)).c_str(), {0}));
    EXPECT_EQ(lines(write(m, groups), "g ").size(), 2u); // all 255 in, then all out
    groups.Add(group("one-too-many", {1}));
    CbStreamWriteASCIIMemory out;
    EXPECT_THROW(VnOBJ::Serialize(out, m, groups), CbExceptionPreconditionViolation);
    EXPECT_EQ(out.GetText(), "");
}

TEST(VnOBJWriteMaterials, BucketsFollowFirstAppearanceAndMissingIdsFallBackToIdZero) {
    CTriangulation m = triangles({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}, {0, 1, 2}});
    auto ids = materialOf(m);
    ids[CTriangleRef(0)] = 1;
    ids[CTriangleRef(1)] = 0;
    ids[CTriangleRef(2)] = 1;
    ids[CTriangleRef(3)] = 7; // no name: falls back to id 0's
    VnOBJ::SMaterialInfo info;
    info.materialNames.SetAt(0, "zero");
    info.materialNames.SetAt(1, "one");
    std::string mtl;
    const std::string text = write(m, {}, &info, &mtl);
    const std::string body = text.substr(text.find("usemtl"));
    EXPECT_EQ(body, "usemtl one\nf 1 3 2\nf 3 2 1\nusemtl zero\nf 2 1 3\nusemtl zero\nf 1 3 2\n");
    EXPECT_EQ(text.substr(0, text.find("v ")), "# hdr\n# 3 vertices\n# 4 triangles\n# 4 triangles\n\nmtllib m.mtl\n\n");
    // Without an MTL stream the same buckets come without material lines.
    EXPECT_EQ(lines(write(m), "usemtl").size(), 0u);
    // Without a name for id 0 an unnamed id gets no line at all.
    info.materialNames.RemoveKey(0);
    EXPECT_EQ(lines(write(m, {}, &info, &mtl), "usemtl"), (std::vector<std::string>{"usemtl one"}));
}

TEST(VnOBJWriteMaterials, UntexturedBucketsOfATexturedMeshWritePlainFaces) {
    CTriangulation m = square();
    auto ids = materialOf(m);
    ids[CTriangleRef(1)] = 1;
    textureOf(m)[CTriangleRef(1)] = {CbVector2f(0, 0), CbVector2f(1, 0), CbVector2f(1, 1)};
    const std::string text = write(m);
    EXPECT_EQ(lines(text, "f "), (std::vector<std::string>{"f 1 3 2", "f 1/1 4/3 3/2"}));
}

TEST(VnOBJWriteMaterials, WholeMeshMaterialLines) {
    VnOBJ::SMaterialInfo info;
    info.materials.SetAt("only", VnOBJ::SMaterial());
    std::string mtl;
    // No ids, no texture: one material in the library names the mesh's material.
    EXPECT_EQ(lines(write(square(), {}, &info), "usemtl"), (std::vector<std::string>{"usemtl only"}));
    // No ids, texture: needs the MTL stream and exactly one id name.
    CTriangulation textured = square();
    textureOf(textured);
    EXPECT_EQ(lines(write(textured, {}, &info, &mtl), "usemtl").size(), 0u);
    info.materialNames.SetAt(0, "whatever");
    EXPECT_EQ(lines(write(textured, {}, &info, &mtl), "usemtl"), (std::vector<std::string>{"usemtl only"}));
    EXPECT_EQ(lines(write(textured, {}, &info), "usemtl").size(), 0u);
    info.materials.RemoveAll();
    EXPECT_EQ(lines(write(textured, {}, &info, &mtl), "usemtl").size(), 0u);
}

TEST(VnOBJWriteMaterials, MtlTextAndColourRoundTrip) {
    VnOBJ::SMaterialInfo info;
    VnOBJ::SMaterial a;
    a.ambient = VnColorRGBA(1, 2, 3, 255).GetValue();
    a.diffuse = VnColorRGBA(128, 64, 255, 255).GetValue();
    a.specular = VnColorRGBA(0, 0, 0, 255).GetValue();
    a.opacity = 0.5f;
    a.diffuseMap = L"t\u00e9x.png";
    a.bumpMap = L"lost.png";
    info.materials.SetAt("a", a);
    info.materials.SetAt("b", VnOBJ::SMaterial());
    std::string mtl;
    write(square(), {}, &info, &mtl, "notice");
    EXPECT_EQ(mtl, "# notice\n\nnewmtl a\nKa 0.0039 0.0078 0.0118\nKd 0.5020 0.2510 1.0000\nKs 0.0000 0.0000 0.0000\n"
                   "map_Kd t\xc3\xa9x.png\n\nnewmtl b\nKa 0.0000 0.0000 0.0000\nKd 1.0000 1.0000 1.0000\n"
                   "Ks 1.0000 1.0000 1.0000\n\n");
    VnStreamReadASCIIMemory in(mtl);
    const CbMap<CStringA, VnOBJ::SMaterial> back = VnOBJ::ReadMTL(in);
    ASSERT_EQ(back.GetCount(), 2);
    const VnOBJ::SMaterial& r = *back.PLookup("a");
    // Every 8-bit channel survives "%.4f"; opacity and the bump map are not written.
    EXPECT_EQ(r.ambient & 0xFFFFFFu, a.ambient & 0xFFFFFFu);
    EXPECT_EQ(r.diffuse & 0xFFFFFFu, a.diffuse & 0xFFFFFFu);
    EXPECT_EQ(r.specular & 0xFFFFFFu, a.specular & 0xFFFFFFu);
    EXPECT_EQ(r.diffuseMap, a.diffuseMap);
    EXPECT_EQ(r.opacity, 1.f);
    EXPECT_EQ(r.bumpMap, L"");
    for (uint32_t c = 0; c < 256; ++c) {
        VnOBJ::SMaterialInfo one;
        VnOBJ::SMaterial mat;
        mat.diffuse = VnColorRGBA(static_cast<uint8_t>(c), static_cast<uint8_t>(255 - c), static_cast<uint8_t>(c / 2), 255).GetValue();
        one.materials.SetAt("m", mat);
        std::string text;
        write(CTriangulation(), {}, &one, &text);
        VnStreamReadASCIIMemory again(text);
        ASSERT_EQ(VnOBJ::ReadMTL(again).PLookup("m")->diffuse, mat.diffuse) << c;
    }
}

TEST(VnOBJWriteText, StoredNoticeCarriesTheCurrentYearAndHeadsTheShortForms) {
    const auto today = std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now()));
    const std::string year = std::to_string(static_cast<int>(today.year()));
    EXPECT_NE(VnOBJ::GetStoredNotice().find(year), std::string::npos) << VnOBJ::GetStoredNotice();
    CbStreamWriteASCIIMemory out;
    EXPECT_TRUE(VnOBJ::Serialize(out, CTriangulation()));
    EXPECT_EQ(out.GetText(), "# " + VnOBJ::GetStoredNotice() + "\n# 0 vertices\n# 0 triangles\n");
}

// A sink that fails after a number of bytes, as a full disk would.
class CFailingStream : public CbStreamWriteASCIIT<CStringA> {
public:
    explicit CFailingStream(size_t limit) : m_limit(limit) {}
    std::string text;

protected:
    void writeSlow(const char* p, size_t n) override {
        if (text.size() + n > m_limit) throw CbExceptionStream("tests/vnobjwrite", __LINE__, "CFailingStream::writeSlow");
        text.append(p, n);
    }

private:
    size_t m_limit;
};

TEST(VnOBJWriteText, AFailingStreamStopsTheTextButTheCallStillReportsTrue) {
    const CTriangulation sphere = VnTest::MakeSphere(80, 80);
    CFailingStream out(100000);
    EXPECT_TRUE(VnOBJ::Serialize(out, sphere, CStringA("x")));
    EXPECT_GT(out.text.size(), 0u);
    EXPECT_LE(out.text.size(), 100000u);
    EXPECT_EQ(out.text.rfind("# x\n", 0), 0u);
}

// ---- round trips ----

TEST(VnOBJRoundTrip, PositionsOrientationTexturesMaterialsAndGroupsSurvive) {
    CTriangulation m = VnTest::MakeTorus(12, 8);
    // Positions on a 1/64 grid print exactly with six decimals.
    for (CVertexRef v : m.Vertices()) {
        CbVector3f p = m.GetPosition(v);
        m.SetPosition(v, CbVector3f(std::round(p.x * 64) / 64, std::round(p.y * 64) / 64, std::round(p.z * 64) / 64));
    }
    auto tex = textureOf(m);
    auto ids = materialOf(m);
    CbArray<VnOBJ::SGroup> groups;
    groups.Add(group("even", {}));
    groups.Add(group("low", {}));
    for (CTriangleRef t : m.Triangles()) {
        ids[t] = t.Index() % 3;
        if (t.Index() % 3 != 2)
            for (int k = 0; k < 3; ++k) tex[t][k] = CbVector2f((t.Index() % 7) / 8.f + k / 32.f, (t.Index() % 5) / 16.f + k / 64.f);
        if (t.Index() % 2 == 0) groups[0].region.SetInside(t, true);
        if (t.Index() < 40) groups[1].region.SetInside(t, true);
    }
    VnOBJ::SMaterialInfo info;
    info.materialNames.SetAt(0, "m0");
    info.materialNames.SetAt(1, "m1");
    info.materialNames.SetAt(2, "m2");
    std::string mtl;
    const std::string text = write(m, groups, &info, &mtl);

    CTriangulation back;
    VnOBJ::SMaterialInfo backInfo;
    CbArray<VnOBJ::SGroup> backGroups;
    const std::wstring path = VnTest::WriteTempFile("roundtrip.obj", text);
    VnTest::WriteTempFile("m.mtl", mtl);
    ASSERT_TRUE(VnOBJ::LoadWithMaterialAndGroups(CStringW(path), back, backInfo, backGroups));
    ASSERT_EQ(back.GetVertexCount(), m.GetVertexCount());
    ASSERT_EQ(back.GetTriangleCount(), m.GetTriangleCount());
    for (CVertexRef v : m.Vertices()) EXPECT_EQ(back.GetPosition(v), m.GetPosition(v));
    // Triangles come back bucketed by material; match them by their corner triple.
    auto backTex = textureOf(back);
    auto backIds = materialOf(back);
    std::map<std::array<uint32_t, 3>, uint32_t> where;
    for (CTriangleRef t : back.Triangles()) where[back.GetCorners(t)] = t.Index();
    // The "g default" line that marks leaving every group reads back as a group of that name.
    ASSERT_EQ(backGroups.GetSize(), 3);
    auto backGroup = [&](const char* name) -> const VnOBJ::SGroup& {
        for (const auto& g : backGroups)
            if (g.name == name) return g;
        ADD_FAILURE() << "no group " << name;
        return backGroups[0];
    };
    const VnOBJ::SGroup& even = backGroup("even");
    const VnOBJ::SGroup& low = backGroup("low");
    const VnOBJ::SGroup& none = backGroup("default");
    for (CTriangleRef t : m.Triangles()) {
        auto it = where.find(m.GetCorners(t)); // same corner order: orientation kept
        ASSERT_NE(it, where.end()) << t.Index();
        const CTriangleRef b(it->second);
        EXPECT_EQ(backInfo.materialNames[backIds[b]], info.materialNames[ids[t]]);
        if (t.Index() % 3 != 2) {
            EXPECT_EQ(backTex[b], tex[t]) << t.Index();
        }
        EXPECT_EQ(even.region.IsInside(b), groups[0].region.IsInside(t));
        EXPECT_EQ(low.region.IsInside(b), groups[1].region.IsInside(t));
        EXPECT_EQ(none.region.IsInside(b), !groups[0].region.IsInside(t) && !groups[1].region.IsInside(t));
    }
}

TEST(VnOBJRoundTrip, DeletedSlotsAreNumberedDenselyAndOutputIsDeterministic) {
    CTriangulation m = VnTest::MakeGrid(4, 3);
    m.RemoveTriangle(CTriangleRef(0));
    m.RemoveTriangle(CTriangleRef(1)); // vertex 0 is now unused
    m.RemoveVertex(CVertexRef(0));
    const std::string text = write(m);
    EXPECT_EQ(text, write(m));
    CTriangulation back;
    VnStreamReadASCIIMemory in(text);
    ASSERT_TRUE(VnOBJ::Serialize(in, back));
    ASSERT_EQ(back.GetVertexCount(), m.GetVertexCount());
    ASSERT_EQ(back.GetTriangleCount(), m.GetTriangleCount());
    const std::vector<uint32_t> dense = m.ComputeDenseVertexIndices();
    uint32_t b = 0;
    for (CTriangleRef t : m.Triangles()) {
        const auto& c = m.GetCorners(t);
        const auto& d = back.GetCorners(CTriangleRef(b++));
        EXPECT_EQ(d, (Geometry::STriangleCorners{dense[c[0]], dense[c[1]], dense[c[2]]}));
    }
}

TEST(VnOBJRoundTrip, TextIsTheSameUnderADecimalCommaLocale) {
    const CTriangulation m = triangles({{1.5f, -2.25f, 1e-3f}, {0, 0, 0}, {1, 0, 0}}, {{0, 1, 2}});
    const std::string expected = write(m);
    std::string got;
    {
        VnTest::CDecimalCommaLocale comma;
        if (!comma.IsActive()) GTEST_SKIP() << comma.Why();
        got = write(m);
    }
    EXPECT_EQ(got, expected);
    EXPECT_NE(got.find("v 1.500000 -2.250000 -0.001000\n"), std::string::npos);
}

TEST(VnOBJCrossCheck, AnotherReaderSeesTheSameVerticesAndFaces) {
#ifndef VNIO_HAVE_TINYOBJ
    GTEST_SKIP() << "tinyobjloader is not installed";
#else
    CTriangulation m = VnTest::MakeSphere(16, 24);
    auto tex = textureOf(m);
    for (CTriangleRef t : m.Triangles())
        if (t.Index() % 2) tex[t] = {CbVector2f(0.25f, 0.5f), CbVector2f(0.75f, 0.5f), CbVector2f(0.5f, 1)};
    auto ids = materialOf(m);
    for (CTriangleRef t : m.Triangles()) ids[t] = t.Index() % 4;
    const std::string text = write(m);
    tinyobj::attrib_t attrib;
    std::vector<tinyobj::shape_t> shapes;
    std::vector<tinyobj::material_t> materials;
    std::string warn, err;
    std::istringstream in(text);
    ASSERT_TRUE(tinyobj::LoadObj(&attrib, &shapes, &materials, &warn, &err, &in)) << err;
    ASSERT_EQ(attrib.vertices.size(), 3u * m.GetVertexCount());
    for (CVertexRef v : m.Vertices()) {
        const CbVector3f p = m.GetPosition(v);
        EXPECT_NEAR(attrib.vertices[3 * v.Index()], p.x, 2e-6);
        EXPECT_NEAR(attrib.vertices[3 * v.Index() + 1], p.y, 2e-6);
        EXPECT_NEAR(attrib.vertices[3 * v.Index() + 2], -p.z, 2e-6); // the mirror convention
    }
    std::multiset<std::array<uint32_t, 3>> ours, theirs;
    for (CTriangleRef t : m.Triangles()) {
        const auto& c = m.GetCorners(t);
        ours.insert({c[0], c[2], c[1]}); // reversed winding in the file
    }
    size_t faces = 0;
    for (const auto& s : shapes) {
        for (size_t f = 0; f < s.mesh.num_face_vertices.size(); ++f) {
            ASSERT_EQ(s.mesh.num_face_vertices[f], 3u);
            theirs.insert({static_cast<uint32_t>(s.mesh.indices[3 * f].vertex_index),
                           static_cast<uint32_t>(s.mesh.indices[3 * f + 1].vertex_index),
                           static_cast<uint32_t>(s.mesh.indices[3 * f + 2].vertex_index)});
            ++faces;
        }
    }
    EXPECT_EQ(faces, m.GetTriangleCount());
    EXPECT_EQ(ours, theirs);
    EXPECT_EQ(attrib.texcoords.size(), 2u * 3u * (m.GetTriangleCount() / 2)); // three vt lines per textured face
#endif
}

} // namespace

// Reading OBJ and MTL: the mirror conventions, face forms, materials, groups, files in the
// shapes other programs write, bad input and real files from the shared data folder.
#include <gtest/gtest.h>

#include <cfloat>
#include <filesystem>
#include <string>

#include "basepool/cbstring.h"
#include "support/decimalcommalocale.h"
#include "support/meshbuilders.h"
#include "vn3dbase/cattributehandle.h"
#include "vn3dbase/registry.h"
#include "vnbase/vncolor.h"
#include "vnio/vnobj.h"

namespace {

using Geometry::CTriangleRef;
using Geometry::CTriangulation;
using Geometry::CVertexRef;
using STexture = Geometry::CAttributeConfigurationTriangleParameters::value_type;

CStringW dataFile(const std::string& name) { return CbUtf8ToWide(std::string(VNIO_TEST_DATA_DIR) + "/obj/" + name); }

// Reads OBJ text through the stream form and returns what the call returned.
bool readText(const std::string& text, CTriangulation& mesh, CStringW* mtllib = nullptr,
              CbMap<unsigned int, CStringA>* names = nullptr) {
    VnStreamReadASCIIMemory stream(text);
    CStringW lib;
    CbMap<unsigned int, CStringA> localNames;
    bool ok = VnOBJ::Serialize(stream, mesh, lib, names ? *names : localNames);
    if (mtllib) *mtllib = lib;
    return ok;
}

// Loads OBJ text written to a temporary file through the file form.
bool loadText(const std::string& name, const std::string& text, CTriangulation& mesh, VnOBJ::SMaterialInfo& info,
              CbArray<VnOBJ::SGroup>& groups) {
    return VnOBJ::LoadWithMaterialAndGroups(CStringW(VnTest::WriteTempFile(name, text)), mesh, info, groups);
}

std::array<uint32_t, 3> corners(const CTriangulation& m, uint32_t t) {
    const auto& c = m.GetCorners(CTriangleRef(t));
    return {c[0], c[1], c[2]};
}

STexture texture(const CTriangulation& m, uint32_t t) {
    auto h = Geometry::FindAttribute<CTriangleRef, STexture>(m, Geometry::CAttributeConfigurationTriangleParameters::GetId());
    EXPECT_FALSE(h.IsNull());
    return h.IsNull() ? STexture{} : h[CTriangleRef(t)];
}

unsigned materialOf(const CTriangulation& m, uint32_t t) {
    auto h = Geometry::FindAttribute<CTriangleRef, unsigned>(m, "triangleType");
    EXPECT_FALSE(h.IsNull());
    return h.IsNull() ? ~0u : h[CTriangleRef(t)];
}

const std::string c_triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\nv 2 2 0\n";

TEST(VnOBJReadConventions, MirrorsZFlipsVAndReversesWinding) {
    CTriangulation mesh;
    ASSERT_TRUE(readText("v 1 2 3\nv 4 5 6\nv 7 8 9\nvt 0.25 0.75\nvt 0 0\nvt 1 1\nf 1/1 2/2 3/3\n", mesh));
    ASSERT_EQ(mesh.GetVertexCount(), 3u);
    EXPECT_EQ(mesh.GetPosition(CVertexRef(0)), CbVector3f(1, 2, -3));
    EXPECT_EQ(corners(mesh, 0), (std::array<uint32_t, 3>{0, 2, 1}));
    const STexture uv = texture(mesh, 0);
    EXPECT_EQ(uv[0], CbVector2f(0.25f, 0.25f));
    EXPECT_EQ(uv[1], CbVector2f(1, 0)); // corner c
    EXPECT_EQ(uv[2], CbVector2f(0, 1)); // corner b
    // Normals are computed from the geometry afterwards.
    EXPECT_NE(mesh.FindAttribute(Geometry::eContainerVertex, "normal"), nullptr);
}

TEST(VnOBJReadFaces, QuadsFanFromTheFirstCornerAndExtraCornersAreIgnored) {
    CTriangulation quad, pentagon;
    ASSERT_TRUE(readText(c_triangle + "f 1 2 3 4\n", quad));
    ASSERT_TRUE(readText(c_triangle + "f 1 2 3 4 5\n", pentagon));
    for (const CTriangulation* m : {&quad, &pentagon}) {
        ASSERT_EQ(m->GetTriangleCount(), 2u);
        EXPECT_EQ(corners(*m, 0), (std::array<uint32_t, 3>{0, 2, 1}));
        EXPECT_EQ(corners(*m, 1), (std::array<uint32_t, 3>{0, 3, 2}));
    }
}

TEST(VnOBJReadFaces, SlashFormsDecideWhetherTheTextureAttributeExists) {
    const char* id = Geometry::CAttributeConfigurationTriangleParameters::GetId();
    CTriangulation normalsOnly, textured, mixed;
    ASSERT_TRUE(readText(c_triangle + "vn 0 0 1\nf 1//1 2//1 3//1\n", normalsOnly));
    EXPECT_EQ(normalsOnly.FindAttribute(Geometry::eContainerTriangle, id), nullptr);
    ASSERT_TRUE(readText(c_triangle + "vt 0 0\nvt 1 0\nvt 0 1\nf 1 2 3\nf 1/1/1 2/2/1 3/3/1\nf 3 2 1\n", textured));
    ASSERT_EQ(textured.GetTriangleCount(), 3u);
    // Faces before and after the textured one carry the "no texture" mark.
    EXPECT_EQ(texture(textured, 0), Geometry::CAttributeConfigurationTriangleParameters::NoTexture());
    EXPECT_EQ(texture(textured, 1)[1], CbVector2f(0, 0)); // third vt, v flipped
    EXPECT_EQ(texture(textured, 2), Geometry::CAttributeConfigurationTriangleParameters::NoTexture());
    // One corner with a texture index makes the face textured; the others then lack one.
    CTriangulation bad;
    EXPECT_FALSE(readText(c_triangle + "vt 0 0\nf 1/1 2 3\n", bad));
    EXPECT_EQ(bad.GetVertexCount(), 0u);
}

TEST(VnOBJReadMaterials, IdsFollowFirstUseAndContinueAfterTheCallersEntries) {
    CTriangulation mesh;
    CbMap<unsigned int, CStringA> names;
    ASSERT_TRUE(readText(c_triangle + "f 1 2 3\nusemtl A\nf 1 2 3\nusemtl B\nf 1 2 3\nusemtl A\nf 1 2 3\n", mesh, nullptr, &names));
    ASSERT_EQ(names.GetCount(), 2);
    EXPECT_EQ(names[0], "A");
    EXPECT_EQ(names[1], "B");
    EXPECT_EQ(materialOf(mesh, 0), 0u); // before the first "usemtl": the attribute's default
    EXPECT_EQ(materialOf(mesh, 1), 0u);
    EXPECT_EQ(materialOf(mesh, 2), 1u);
    EXPECT_EQ(materialOf(mesh, 3), 0u);

    // The caller's map holds id 1 with one entry: the count is taken, so the next free id is 2.
    CbMap<unsigned int, CStringA> given;
    given.SetAt(1, "P");
    ASSERT_TRUE(readText(c_triangle + "usemtl Q\nf 1 2 3\nusemtl P\nf 1 2 3\nusemtl R\nf 1 2 3\n", mesh, nullptr, &given));
    EXPECT_EQ(given.GetCount(), 3);
    EXPECT_EQ(given[2], "Q");
    EXPECT_EQ(given[3], "R");
    EXPECT_EQ(materialOf(mesh, 0), 2u);
    EXPECT_EQ(materialOf(mesh, 1), 1u);
    EXPECT_EQ(materialOf(mesh, 2), 3u);
}

TEST(VnOBJReadGroups, TrianglesJoinEveryNamedGroupAndANamelessLineEndsMembership) {
    CTriangulation mesh;
    VnOBJ::SMaterialInfo info;
    CbArray<VnOBJ::SGroup> groups;
    ASSERT_TRUE(VnOBJ::LoadWithMaterialAndGroups(dataFile("groups.obj"), mesh, info, groups));
    ASSERT_EQ(mesh.GetTriangleCount(), 4u);
    ASSERT_EQ(groups.GetSize(), 2);
    EXPECT_EQ(groups[0].name, "A");
    EXPECT_EQ(groups[1].name, "B");
    for (uint32_t t = 0; t < 4; ++t) {
        EXPECT_EQ(groups[0].region.IsInside(CTriangleRef(t)), t < 2) << t;
        EXPECT_EQ(groups[1].region.IsInside(CTriangleRef(t)), t != 2) << t;
    }
    EXPECT_EQ(groups[1].region.GetCount(), 3u);
}

TEST(VnOBJReadShapes, CrLfTabsTrailingBlanksCommentsAndAFinalLineWithoutNewline) {
    CTriangulation mesh;
    VnOBJ::SMaterialInfo info;
    CbArray<VnOBJ::SGroup> groups;
    ASSERT_TRUE(VnOBJ::LoadWithMaterialAndGroups(dataFile("crlf-tabs-no-final-newline.obj"), mesh, info, groups));
    ASSERT_EQ(mesh.GetVertexCount(), 3u);
    ASSERT_EQ(mesh.GetTriangleCount(), 2u); // the last line has no newline and still counts
    EXPECT_EQ(mesh.GetPosition(CVertexRef(1)), CbVector3f(4, 5, -6));
    EXPECT_EQ(mesh.GetPosition(CVertexRef(2)), CbVector3f(7, 8, -9)); // a fourth value is ignored
    EXPECT_EQ(corners(mesh, 1), (std::array<uint32_t, 3>{2, 0, 1}));
    // "usemtl red paint" names the material "red"; it comes before both faces.
    ASSERT_EQ(info.materialNames.GetCount(), 1);
    EXPECT_EQ(info.materialNames[0], "red");
    EXPECT_EQ(materialOf(mesh, 1), 0u);
    ASSERT_EQ(groups.GetSize(), 1);
    EXPECT_EQ(groups[0].region.GetCount(), 2u);

    // The MTL beside it: the first "red" wins, a bare "newmtl" makes no material.
    ASSERT_EQ(info.materials.GetCount(), 2);
    const VnOBJ::SMaterial* red = info.materials.PLookup("red");
    ASSERT_NE(red, nullptr);
    EXPECT_EQ(red->ambient, VnColorRGBA::ConvertToUInt32(0.1f, 0.2f, 0.3f, 1.f));
    EXPECT_EQ(red->diffuse, VnColorRGBA(255, 0, 0, 255).GetValue());
    EXPECT_EQ(red->specular, VnColorRGBA(128, 128, 128, 255).GetValue());
    EXPECT_FLOAT_EQ(red->opacity, 0.25f);
    EXPECT_EQ(red->diffuseMap, L"red");
    EXPECT_EQ(red->bumpMap, L"bumps.png");
    EXPECT_EQ(info.materials.PLookup("onlyname"), nullptr);
    const VnOBJ::SMaterial* blue = info.materials.PLookup("blue");
    ASSERT_NE(blue, nullptr);
    EXPECT_EQ(blue->diffuse, VnColorRGBA(0, 0, 255, 255).GetValue());
    EXPECT_EQ(blue->specular, VnColorRGBA::c_WHITE.GetValue()); // untouched defaults
    EXPECT_EQ(blue->ambient, 0u);
    EXPECT_EQ(blue->bumpMap, L"blue_bump.png");

    // The stream form reports the library name and leaves the MTL alone.
    CTriangulation again;
    CStringW lib;
    ASSERT_TRUE(readText(VnTest::ReadFileBytes(dataFile("crlf-tabs-no-final-newline.obj")), again, &lib));
    EXPECT_EQ(lib, L"shapes.mtl");
    EXPECT_EQ(again.GetTriangleCount(), 2u);
}

TEST(VnOBJReadShapes, CommentsBlankLinesAndSkippedKeywordsGiveAnEmptyMesh) {
    CTriangulation mesh;
    VnOBJ::SMaterialInfo info;
    CbArray<VnOBJ::SGroup> groups;
    ASSERT_TRUE(loadText("comments.obj", "# only comments\n\n   \t\n! bang\n$ dollar\ncurv2 1 2\ns 1\no thing\nvp 1 2\n", mesh,
                         info, groups));
    EXPECT_EQ(mesh.GetVertexCount(), 0u);
    EXPECT_EQ(mesh.GetTriangleCount(), 0u);
    EXPECT_EQ(groups.GetSize(), 0);
}

TEST(VnOBJReadShapes, LoadingIntoAUsedMeshReplacesItsContent) {
    CTriangulation mesh = VnTest::MakeCube();
    ASSERT_TRUE(readText(c_triangle + "f 1 2 3\n", mesh));
    ASSERT_TRUE(readText(c_triangle + "f 1 2 3\n", mesh));
    EXPECT_EQ(mesh.GetVertexCount(), 5u);
    EXPECT_EQ(mesh.GetTriangleCount(), 1u);
}

TEST(VnOBJReadFailures, UnknownKeywordStopsTheFileFormButNotTheStreamForm) {
    CTriangulation mesh;
    VnOBJ::SMaterialInfo info;
    CbArray<VnOBJ::SGroup> groups;
    EXPECT_FALSE(VnOBJ::LoadWithMaterialAndGroups(dataFile("unknown-keyword.obj"), mesh, info, groups));
    EXPECT_EQ(mesh.GetTriangleCount(), 1u); // what came before the keyword stays
    EXPECT_EQ(mesh.FindAttribute(Geometry::eContainerVertex, "normal"), nullptr);
    CTriangulation streamed;
    EXPECT_TRUE(readText(VnTest::ReadFileBytes(dataFile("unknown-keyword.obj")), streamed));
    EXPECT_EQ(streamed.GetTriangleCount(), 1u);
}

TEST(VnOBJReadFailures, IndicesOutsideTheTablesResetTheMesh) {
    for (const char* name : {"vertex-index-out-of-range.obj", "texture-index-out-of-range.obj", "missing-third-corner.obj"}) {
        CTriangulation mesh = VnTest::MakeCube();
        VnOBJ::SMaterialInfo info;
        CbArray<VnOBJ::SGroup> groups;
        EXPECT_FALSE(VnOBJ::LoadWithMaterialAndGroups(dataFile(name), mesh, info, groups)) << name;
        EXPECT_EQ(mesh.GetVertexCount(), 0u) << name;
        CTriangulation streamed = VnTest::MakeCube();
        EXPECT_FALSE(readText(VnTest::ReadFileBytes(dataFile(name)), streamed)) << name;
        EXPECT_EQ(streamed.GetVertexCount(), 0u) << name;
    }
    // Index 0, and a relative index counted from the normals, fall outside too.
    CTriangulation mesh;
    EXPECT_FALSE(readText(c_triangle + "f 0 1 2\n", mesh));
    EXPECT_FALSE(readText(c_triangle + "vn 0 0 1\nf -1 -2 -5\n", mesh));
    // ... while one that lands inside the vertex table is taken as it resolves.
    ASSERT_TRUE(readText(c_triangle + "f -1 -2 -3\n", mesh));
    EXPECT_EQ(corners(mesh, 0), (std::array<uint32_t, 3>{1, 3, 2}));
}

TEST(VnOBJReadFailures, MissingFilesReturnFalse) {
    CTriangulation mesh = VnTest::MakeCube();
    VnOBJ::SMaterialInfo info;
    EXPECT_FALSE(VnOBJ::LoadWithMaterial(dataFile("does-not-exist.obj"), mesh, info));
    EXPECT_EQ(mesh.GetVertexCount(), 8u); // untouched
    EXPECT_FALSE(VnOBJ::LoadWithMaterial(dataFile("missing-mtl.obj"), mesh, info));
    EXPECT_EQ(mesh.GetTriangleCount(), 1u); // the mesh stays loaded
    EXPECT_TRUE(VnOBJ::Load(dataFile("groups.obj"), mesh));
}

TEST(VnOBJReadLocale, NumbersParseInTheCLocaleUnderADecimalCommaLocale) {
    CTriangulation mesh;
    bool ok = false;
    {
        VnTest::CDecimalCommaLocale comma;
        if (!comma.IsActive()) GTEST_SKIP() << comma.Why();
        ok = readText("v 1.5 2.25 -3.125\nv 0 0 0\nv 1 0 0\nf 1 2 3\n", mesh);
    }
    ASSERT_TRUE(ok);
    EXPECT_EQ(mesh.GetPosition(CVertexRef(0)), CbVector3f(1.5f, 2.25f, 3.125f));
}

// Real files written by other programs, when the shared data folder is present.
TEST(VnOBJReadRealFiles, CountsMatchTheSources) {
    const std::filesystem::path root = std::filesystem::path(VNIO_SHARED_DATA_DIR) / "obj";
    if (!std::filesystem::is_directory(root)) GTEST_SKIP() << "no shared data at " << root;
    struct SCase {
        const char* file;
        uint32_t vertices, triangles;
        int materials, groups;
    };
    const SCase cases[] = {
        {"spot/spot_triangulated.obj", 2930, 5856, 0, 0},
        {"spot/spot_control_mesh.obj", 188, 356, 0, 0}, // pentagons keep their first four corners
        {"scrub_pine/scrubPine.obj", 641, 527, 2, 2},
        {"teapot_mcguire/teapot.obj", 7850, 15704, 1, 2},
        {"mori_knob/testObj.obj", 6091, 11970, 5, 5},
        {"skull_low_resolution.obj", 5154, 10312, 0, 0},
        {"edge_cases/fan3.obj", 5, 3, 0, 0},
    };
    for (const SCase& c : cases) {
        const std::filesystem::path path = root / c.file;
        if (!std::filesystem::exists(path)) {
            ADD_FAILURE() << "missing " << path;
            continue;
        }
        CTriangulation mesh;
        VnOBJ::SMaterialInfo info;
        CbArray<VnOBJ::SGroup> groups;
        ASSERT_TRUE(VnOBJ::LoadWithMaterialAndGroups(CbUtf8ToWide(path.string()), mesh, info, groups)) << c.file;
        EXPECT_EQ(mesh.GetVertexCount(), c.vertices) << c.file;
        EXPECT_EQ(mesh.GetTriangleCount(), c.triangles) << c.file;
        EXPECT_EQ(info.materialNames.GetCount(), c.materials) << c.file;
        if (c.materials) {
            EXPECT_GE(info.materials.GetCount(), c.materials) << c.file;
        }
        EXPECT_EQ(groups.GetSize(), c.groups) << c.file;
        uint32_t grouped = 0;
        for (const auto& g : groups) grouped += g.region.GetCount();
        if (c.groups) {
            EXPECT_GE(grouped, c.triangles / 2) << c.file;
        }
    }
    // Relative indices count back from the normals read so far, which leaves these files'
    // faces outside the vertex table: they fail cleanly.
    for (const char* file : {"edge_cases/negative_indices.obj", "cornell_box/CornellBox-Original.obj",
                             "lost_empire/lost_empire.obj"}) {
        CTriangulation mesh;
        EXPECT_FALSE(VnOBJ::Load(CbUtf8ToWide((root / file).string()), mesh)) << file;
        EXPECT_EQ(mesh.GetVertexCount(), 0u) << file;
    }
}

} // namespace

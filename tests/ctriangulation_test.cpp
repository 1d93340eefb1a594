#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>

#include "basepool/cbstreambinary.h"
#include "support/meshbuilders.h"
#include "vn3dbase/cattributehandle.h"
#include "vn3dbase/ctriangulationserializer.h"
#include "vn3dbase/vnfttriangulationcombinetrianglesoup.h"
#include "vn3dbase/vnmptriangulationboundingbox.h"
#include "vn3dbase/vnmptriangulationnormals.h"

using namespace Geometry;

TEST(CAttributeHandleChecks, SizeAndTypeMismatchThrowWithFullSpelling) {
    CTriangulation mesh = VnTest::MakeCube();
    auto n = GetOrCreateAttribute<CTriangleRef, CbVector3f>(mesh, "normal");
    n[CTriangleRef(3)] = CbVector3f(1, 2, 3);
    // Reuse keeps the values.
    auto again = GetOrCreateAttribute<CTriangleRef, CbVector3f>(mesh, "normal");
    EXPECT_EQ(again[CTriangleRef(3)], CbVector3f(1, 2, 3));
    try {
        GetOrCreateAttribute<CTriangleRef, CbVector2f>(mesh, "normal");
        FAIL();
    } catch (const CbExceptionPreconditionViolation& e) {
        EXPECT_EQ(e.GetSourceFile(), "vnlibraries/vn3dbase/geometry/cattributehandle");
        EXPECT_EQ(e.GetLine(), 69u);
        EXPECT_EQ(e.GetFunction(), "Geometry::CAttributeHandle<class Geometry::CTriangleRef,class CbVector2f>::CAttributeHandle");
    }
    try {
        FindAttribute<CTriangleRef, const CbVector2f>(mesh, "normal");
        FAIL();
    } catch (const CbExceptionPreconditionViolation& e) {
        EXPECT_EQ(e.GetFunction(),
                  "Geometry::CAttributeHandle<class Geometry::CTriangleRef,class CbVector2f const >::CAttributeHandle");
    }
    // Same size, other recorded type: refused; an entry without a recorded type is accepted.
    GetOrCreateAttribute<CVertexRef, float>(mesh, "energy");
    EXPECT_THROW((FindAttribute<CVertexRef, unsigned int>(mesh, "energy")), CbExceptionPreconditionViolation);
    mesh.InsertAttribute(eContainerVertex, "untyped", 4, nullptr, {}, false);
    mesh.connectAttribute(eContainerVertex, "untyped");
    EXPECT_NO_THROW((FindAttribute<CVertexRef, unsigned int>(mesh, "untyped")));
    EXPECT_TRUE((FindAttribute<CVertexRef, float>(mesh, "absent")).IsNull());
}

TEST(CAttributeHandleChecks, RegistryDefaultsApplyToNewElements) {
    CTriangulation mesh;
    auto color = GetOrCreateAttribute<CVertexRef, VnColorRGBA>(mesh, "color");
    auto tex = GetOrCreateAttribute<CTriangleRef, std::array<CbVector2f, 3>>(mesh, CAttributeConfigurationTriangleParameters::GetId());
    auto other = GetOrCreateAttribute<CVertexRef, float>(mesh, "unregistered");
    auto v = mesh.AddVertex(CbVector3f());
    mesh.AddTriangle(v, v, v);
    EXPECT_EQ(color[v], VnColorRGBA(255, 255, 255, 255));
    EXPECT_EQ(tex[CTriangleRef(0)][2].y, FLT_MAX);
    EXPECT_EQ(other[v], 0.f);
    EXPECT_TRUE(mesh.FindAttribute(eContainerVertex, "color")->serialize);
    EXPECT_FALSE(mesh.FindAttribute(eContainerVertex, "unregistered")->serialize);
    // No float or two-float triangle attribute is registered.
    for (const SAttributeData& d : CTriangulationConfigurationRegistry::GetAll()) {
        if (d.container != eContainerTriangle) continue;
        EXPECT_NE(*d.type, typeid(float)) << d.name;
        EXPECT_NE(*d.type, typeid(CbVector2f)) << d.name;
    }
}

TEST(CTriangulationModel, RemoveAllKeepsDefinitionsAndHandles) {
    CTriangulation mesh = VnTest::MakeCube();
    auto n = GetOrCreateAttribute<CVertexRef, CbVector3f>(mesh, "normal");
    mesh.RemoveAll();
    EXPECT_EQ(mesh.GetVertexCount(), 0u);
    ASSERT_NE(mesh.FindAttribute(eContainerVertex, "normal"), nullptr);
    EXPECT_EQ(mesh.FindAttribute(eContainerVertex, "normal")->data.size(), 0u);
    auto v = mesh.AddVertex(CbVector3f(1, 2, 3));
    n[v] = CbVector3f(0, 0, 1); // the old handle addresses the new element
    EXPECT_EQ(n[v].z, 1.f);
    mesh.Reset();
    EXPECT_EQ(mesh.FindAttribute(eContainerVertex, "normal"), nullptr);
}

TEST(CTriangulationModel, DeletedSlotsAreSkippedAndIndicesDense) {
    CTriangulation mesh = VnTest::MakeGrid(3, 1); // 8 vertices, 6 triangles
    EXPECT_TRUE(mesh.IsIndicesAccurate());
    mesh.RemoveTriangle(CTriangleRef(0));
    mesh.RemoveTriangle(CTriangleRef(1));
    mesh.RemoveVertex(CVertexRef(0));
    EXPECT_FALSE(mesh.IsIndicesAccurate());
    EXPECT_EQ(mesh.GetTriangleCount(), 4u);
    std::vector<uint32_t> seen;
    for (CTriangleRef t : mesh.Triangles()) seen.push_back(t);
    EXPECT_EQ(seen, (std::vector<uint32_t>{2, 3, 4, 5}));
    EXPECT_EQ(mesh.GetFirstTriangle().Index(), 2u);
    EXPECT_EQ(mesh.GetFirstVertex().Index(), 1u);
    EXPECT_EQ(mesh.GetNextTriangle(CTriangleRef(5)).Index(), c_IndexEnd);
    auto dense = mesh.ComputeDenseVertexIndices();
    EXPECT_EQ(dense[0], c_IndexInvalid);
    EXPECT_EQ(dense[1], 0u);
    EXPECT_EQ(dense[7], 6u);
    CTriangulation empty;
    EXPECT_EQ(empty.GetFirstVertex().Index(), c_IndexEnd);
    for (CVertexRef v : empty.Vertices()) FAIL() << v;
}

TEST(CTriangulationModel, AdjacencyFollowsTheEdgeConvention) {
    CTriangulation mesh = VnTest::MakeGrid(1, 1); // (0,1,3) and (0,3,2)
    mesh.ComputeAdjacency();
    // Triangle 0 corners 0,1,3: its edge from corner 2 (3) to corner 0 (0) is shared.
    EXPECT_EQ(mesh.GetAdjacentTriangle(CTriangleRef(0), 2), 1u);
    EXPECT_EQ(mesh.GetAdjacentTriangle(CTriangleRef(0), 0), c_IndexInvalid);
    EXPECT_EQ(mesh.GetAdjacentTriangle(CTriangleRef(1), 0), 0u);
    // A third triangle on the same edge makes it non-manifold: nobody gets a neighbour there.
    mesh.AddTriangle(CVertexRef(3), CVertexRef(0), CVertexRef(1));
    mesh.ComputeAdjacency();
    EXPECT_EQ(mesh.GetAdjacentTriangle(CTriangleRef(0), 2), c_IndexInvalid);
    mesh.ComputeVertexTriangleRelation();
    EXPECT_EQ(mesh.GetVertexTriangles(CVertexRef(0)).size(), 3u);
}

// Adjacency against the rule stated directly over all triangles: edge a->b of t gets the
// triangle holding the only b->a, unless another triangle also runs a->b. Random soups over
// few vertices give repeated, reversed, degenerate and non-manifold edges, and removed slots.
TEST(CTriangulationModel, AdjacencyMatchesTheRuleOnRandomSoups) {
    std::mt19937 rng(7);
    for (int round = 0; round < 300; ++round) {
        const uint32_t nv = 3 + rng() % 8;
        CTriangulation mesh;
        for (uint32_t v = 0; v < nv; ++v) mesh.AddVertex(CbVector3f(float(v), 0, 0));
        const uint32_t nt = 1 + rng() % 40;
        for (uint32_t t = 0; t < nt; ++t)
            mesh.AddTriangle(CVertexRef(rng() % nv), CVertexRef(rng() % nv), CVertexRef(rng() % nv));
        for (uint32_t t = 0; t < nt; ++t)
            if (rng() % 10 == 0) mesh.RemoveTriangle(CTriangleRef(t));
        mesh.ComputeAdjacency();
        for (CTriangleRef t : mesh.Triangles()) {
            const STriangleCorners c = mesh.GetCorners(t);
            for (int k = 0; k < 3; ++k) {
                const uint32_t a = c[k], b = c[(k + 1) % 3];
                uint32_t twin = c_IndexInvalid;
                int twins = 0, same = 0;
                for (CTriangleRef u : mesh.Triangles()) {
                    const STriangleCorners d = mesh.GetCorners(u);
                    for (int j = 0; j < 3; ++j) {
                        if (d[j] == b && d[(j + 1) % 3] == a) {
                            twin = u;
                            ++twins;
                        }
                        if (d[j] == a && d[(j + 1) % 3] == b && u != t) ++same;
                    }
                }
                const uint32_t expected = a != b && twins == 1 && same == 0 && twin != t ? twin : c_IndexInvalid;
                ASSERT_EQ(mesh.GetAdjacentTriangle(t, k), expected)
                    << "round " << round << " triangle " << t.Index() << " edge " << k;
            }
        }
    }
}

TEST(CTriangulationSerializer, RoundTripsGeometryAttributesAndDeletedSlots) {
    CTriangulation mesh = VnTest::MakeTorus(8, 5);
    auto color = GetOrCreateAttribute<CVertexRef, VnColorRGBA>(mesh, "color");
    auto type = GetOrCreateAttribute<CTriangleRef, unsigned>(mesh, "triangleType");
    for (CVertexRef v : mesh.Vertices()) color[v] = VnColorRGBA(v, 2 * v, 3, 4);
    for (CTriangleRef t : mesh.Triangles()) type[t] = t * 7;
    mesh.RemoveTriangle(CTriangleRef(4));
    CbStreamWriteBinaryMemory out;
    CTriangulation_Serializer::Serialize(out, mesh);
    std::vector<uint8_t> bytes = out.TakeData();
    CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
    auto back = CTriangulation_Serializer::Serialize(in);
    ASSERT_EQ(back->GetTriangleCount(), mesh.GetTriangleCount());
    ASSERT_EQ(back->GetVertexCount(), mesh.GetVertexCount());
    auto backType = FindAttribute<CTriangleRef, const unsigned>(*back, "triangleType");
    auto backColor = FindAttribute<CVertexRef, const VnColorRGBA>(*back, "color");
    ASSERT_TRUE(backType && backColor);
    EXPECT_EQ(backType[CTriangleRef(4)], 5u * 7u); // dense: slot 5 became 4
    EXPECT_EQ(backColor[CVertexRef(9)], VnColorRGBA(9, 18, 3, 4));
    EXPECT_EQ(back->GetCorners(CTriangleRef(4)), mesh.GetCorners(CTriangleRef(5)));

    // Every truncated prefix fails with the stream exception, never a crash.
    for (size_t n = 0; n < bytes.size(); n += 7) {
        CbStreamReadBinaryMemory cut(bytes.data(), n);
        EXPECT_THROW(CTriangulation_Serializer::Serialize(cut), CbException) << n;
    }
    // A corner beyond V is refused.
    std::vector<uint8_t> bad = bytes;
    uint32_t huge = 999999;
    std::memcpy(bad.data() + 12 + 12 * mesh.GetVertexCount(), &huge, 4);
    CbStreamReadBinaryMemory badIn(bad.data(), bad.size());
    EXPECT_THROW(CTriangulation_Serializer::Serialize(badIn), CbExceptionStream);
}

// An attribute of zero-byte elements with a configuration block: nothing to copy, and the
// read must not touch memory for it (a fuzzer found a null copy here under UBSan).
TEST(CTriangulationSerializer, ZeroSizeElementsWithConfigurationRead) {
    CbStreamWriteBinaryMemory out;
    out.WriteVersion(CTriangulation_Serializer::c_Version);
    out << uint32_t(3) << uint32_t(1);
    for (float f : {0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 0.f, 1.f, 0.f}) out << f;
    out << uint32_t(0) << uint32_t(1) << uint32_t(2);
    out << uint32_t(1) << std::string("empty") << uint32_t(0) << uint8_t(1) << uint32_t(4) << uint32_t(0) << uint32_t(0);
    out << uint32_t(0);
    std::vector<uint8_t> bytes = out.TakeData();
    CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
    auto back = CTriangulation_Serializer::Serialize(in);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->GetTriangleCount(), 1u);
    EXPECT_NE(back->FindAttribute(eContainerVertex, "empty"), nullptr);
}

TEST(VnFtCombineTriangleSoup, ExactJoinTreatsSignedZerosAsOnePoint) {
    CTriangulation mesh;
    mesh.AddVertex(CbVector3f(0.f, 0.f, 0.f));
    mesh.AddVertex(CbVector3f(-0.f, 0.f, 0.f));
    mesh.AddVertex(CbVector3f(1.f, 0.f, 0.f));
    mesh.AddVertex(CbVector3f(std::nextafter(1.f, 2.f), 0.f, 0.f));
    mesh.AddTriangle(CVertexRef(0), CVertexRef(2), CVertexRef(3));
    mesh.AddTriangle(CVertexRef(1), CVertexRef(3), CVertexRef(2));
    VnFtTriangulationCombineTriangleSoup combine;
    combine.SetInput(mesh);
    combine.Compute();
    EXPECT_EQ(mesh.GetVertexCount(), 3u);
    EXPECT_EQ(mesh.GetCorner(CTriangleRef(1), 0), 0u);
}

TEST(VnFtCombineTriangleSoup, ToleranceJoinsToTheEarliestSurvivor) {
    CTriangulation mesh;
    for (float x : {0.f, 0.006f, 0.012f, 0.5f}) mesh.AddVertex(CbVector3f(x, 0, 0));
    mesh.AddTriangle(CVertexRef(0), CVertexRef(1), CVertexRef(3));
    mesh.AddTriangle(CVertexRef(2), CVertexRef(3), CVertexRef(1));
    VnFtTriangulationCombineTriangleSoup combine;
    combine.SetFlags(VnFtTriangulationCombineTriangleSoup::eFlagCombine | VnFtTriangulationCombineTriangleSoup::eFlagTolerance |
                     VnFtTriangulationCombineTriangleSoup::eFlagRemoveDegenerate);
    combine.SetParameterMergeTolerance(0.01f);
    combine.SetInput(mesh);
    combine.Compute();
    // 0.006 joins 0; 0.012 is 0.012 from 0 (too far) and could only reach the joined 0.006,
    // which is no survivor: it stays. The first triangle then repeats vertex 0 and goes.
    EXPECT_EQ(mesh.GetVertexCount(), 3u);
    ASSERT_EQ(mesh.GetTriangleCount(), 1u);
    EXPECT_EQ(mesh.GetPosition(CVertexRef(1)).x, 0.012f);
    const auto& c = mesh.GetCorners(mesh.GetFirstTriangle());
    EXPECT_EQ(c, (STriangleCorners{1, 2, 0}));
}

TEST(VnFtCombineTriangleSoup, RandomSoupMatchesBruteForceGrouping) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> coord(0, 5);
    CTriangulation mesh;
    for (int i = 0; i < 600; ++i) mesh.AddVertex(CbVector3f(float(coord(rng)), float(coord(rng)), 0.25f * float(coord(rng))));
    for (uint32_t i = 0; i < 200; ++i) mesh.AddTriangle(CVertexRef(3 * i), CVertexRef(3 * i + 1), CVertexRef(3 * i + 2));
    CTriangulation before = mesh;
    VnFtTriangulationCombineTriangleSoup combine;
    combine.SetInput(mesh);
    combine.Compute();
    for (CTriangleRef t : mesh.Triangles())
        for (int k = 0; k < 3; ++k)
            ASSERT_EQ(mesh.GetPosition(CVertexRef(mesh.GetCorner(t, k))), before.GetPosition(CVertexRef(before.GetCorner(t, k))));
    for (uint32_t a = 0; a < mesh.GetVertexCount(); ++a)
        for (uint32_t b = a + 1; b < mesh.GetVertexCount(); ++b)
            ASSERT_FALSE(mesh.GetPosition(CVertexRef(a)) == mesh.GetPosition(CVertexRef(b)));
}

TEST(VnMpTriangulationNormalsTest, CubeNormalsPointOutward) {
    CTriangulation cube = VnTest::MakeCube();
    VnMpTriangulationNormals::Compute(cube);
    auto vn = FindAttribute<CVertexRef, const CbVector3f>(cube, "normal");
    auto tn = FindAttribute<CTriangleRef, const CbVector3f>(cube, "normal");
    CbVector3f centre(0.5f, 0.5f, 0.5f);
    for (CVertexRef v : cube.Vertices()) {
        EXPECT_NEAR(vn[v].Length(), 1.f, 1e-5);
        EXPECT_GT(vn[v].Dot(cube.GetPosition(v) - centre), 0.f);
    }
    for (CTriangleRef t : cube.Triangles()) EXPECT_NEAR(tn[t].Length(), 1.f, 1e-5);
    SBoundingBox3f box = VnMpTriangulationBoundingBox::Compute(cube);
    EXPECT_EQ(box.min, CbVector3f(0, 0, 0));
    EXPECT_EQ(box.max, CbVector3f(1, 1, 1));
    EXPECT_TRUE(VnMpTriangulationBoundingBox::Compute(CTriangulation()).empty);
}

#include "vn3dbase/vntriangulationdynamic.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "basepool/cbexception.h"
#include "basepool/cbstreambinary.h"
#include "support/foreigntriangulation.h"
#include "vn3dbase/vnfttriangulationcombinetrianglesoup.h"
#include "vn3dbase/vnfttriangulationcombinetrianglesoupold.h"

using Geometry::CTriangleRef;
using Geometry::CVertexRef;

namespace {

const CbVector3f kTetra[4] = {{0.f, 0.f, 0.f}, {1.f, 0.f, 0.f}, {0.f, 1.f, 0.f}, {0.f, 0.f, 1.f}};
const uint32_t kTetraFaces[4][3] = {{0, 2, 1}, {0, 1, 3}, {1, 2, 3}, {0, 3, 2}};

void addTetra(VnTriangulationBase& m) {
    for (const CbVector3f& p : kTetra) m.AddVertex(p);
    for (const auto& f : kTetraFaces) m.AddTriangle(CVertexRef(f[0]), CVertexRef(f[1]), CVertexRef(f[2]));
}

// The tetrahedron as a soup: three fresh vertices per face.
void addTetraSoup(VnTriangulationBase& m) {
    for (const auto& f : kTetraFaces) {
        CVertexRef a = m.AddVertex(kTetra[f[0]]), b = m.AddVertex(kTetra[f[1]]), c = m.AddVertex(kTetra[f[2]]);
        m.AddTriangle(a, b, c);
    }
}

} // namespace

TEST(VnTriangulationDynamicType, RuntimeClassTests) {
    VnTriangulationDynamic dynamic(16);
    VnTest::CForeignTriangulation foreign;
    EXPECT_TRUE(dynamic.IsKindOf(VnTriangulationDynamic::RTTI()));
    EXPECT_TRUE(dynamic.IsKindOf(VnTriangulationBase::RTTI()));
    EXPECT_FALSE(foreign.IsKindOf(VnTriangulationDynamic::RTTI()));
    EXPECT_TRUE(foreign.IsKindOf(VnTriangulationBase::RTTI()));
    EXPECT_STREQ(dynamic.GetClassNameW(), L"VnTriangulationDynamic");
    const VnTriangulationBase& asBase = foreign;
    EXPECT_STREQ(asBase.GetClassNameW(), L"CForeignTriangulation");
}

TEST(VnTriangulationDynamicEditing, IterationSkipsRemovedElementsAndIndicesNeedRefresh) {
    VnTriangulationDynamic m;
    addTetra(m);
    EXPECT_TRUE(m.IsVertexIndicesAccurate());
    EXPECT_EQ(m.GetVertexIndex(CVertexRef(2)), 2u);
    m.RemoveTriangles({CTriangleRef(0), CTriangleRef(2)});
    m.RemoveVertex(CVertexRef(0));
    EXPECT_EQ(m.GetTriangleCount(), 2u);
    EXPECT_EQ(m.GetFirstVertex().Index(), 1u);
    EXPECT_EQ(m.GetFirstTriangle().Index(), 1u);
    EXPECT_EQ(m.GetNextTriangle(CTriangleRef(1)).Index(), 3u);
    EXPECT_EQ(m.GetNextTriangle(CTriangleRef(3)).Index(), Geometry::c_IndexEnd);
    // Stale ranks are refused until they are rebuilt.
    EXPECT_FALSE(m.IsVertexIndicesAccurate());
    EXPECT_THROW(m.GetVertexIndex(CVertexRef(3)), CbExceptionPreconditionViolation);
    m.CreateVertexIndices();
    m.CreateTriangleIndices();
    EXPECT_EQ(m.GetVertexIndex(CVertexRef(3)), 2u);
    EXPECT_EQ(m.GetTriangleIndex(CTriangleRef(3)), 1u);
    EXPECT_THROW(m.GetVertexIndex(CVertexRef(0)), CbExceptionPreconditionViolation); // removed
    m.AddVertex({5.f, 5.f, 5.f});
    EXPECT_FALSE(m.IsVertexIndicesAccurate());
    EXPECT_TRUE(m.IsTriangleIndicesAccurate());

    EXPECT_EQ(m.GetVertexIndexInTriangle(CTriangleRef(1), CVertexRef(3)), 2);
    EXPECT_EQ(m.GetVertexIndexInTriangle(CTriangleRef(1), CVertexRef(2)), -1);
    m.SetTriangle(CTriangleRef(1), CVertexRef(3), CVertexRef(1), CVertexRef(2));
    EXPECT_EQ(m.GetTriangleVertex(CTriangleRef(1), 0).Index(), 3u);
    m.Reset();
    EXPECT_EQ(m.GetVertexCount(), 0u);
    EXPECT_TRUE(m.GetAttributes(Geometry::eContainerTriangle).empty());
}

TEST(VnTriangulationDynamicEditing, AdjacencyOfClosedTetrahedron) {
    VnTriangulationDynamic m;
    addTetra(m);
    m.ComputeAdjacency();
    ASSERT_TRUE(m.HasAdjacency());
    // Neighbour k shares the edge corner k -> corner k+1, traversed the other way.
    for (CTriangleRef t = m.GetFirstTriangle(); t != Geometry::c_IndexEnd; t = m.GetNextTriangle(t))
        for (int k = 0; k < 3; ++k) {
            CTriangleRef n = m.GetAdjacentTriangle(t, k);
            ASSERT_NE(n.Index(), Geometry::c_IndexInvalid);
            CVertexRef a = m.GetTriangleVertex(t, k), b = m.GetTriangleVertex(t, (k + 1) % 3);
            int j = m.GetVertexIndexInTriangle(n, b);
            ASSERT_GE(j, 0);
            EXPECT_EQ(m.GetTriangleVertex(n, (j + 1) % 3), a);
        }
}

TEST(VnTriangulationDynamicAttributes, FixedTriangleAttributes) {
    VnTriangulationDynamic m;
    addTetra(m);
    EXPECT_STREQ(VnTriangulationBase::getAttributeName(VnTriangulationBase::eAttributeNormal), "normal");
    EXPECT_STREQ(VnTriangulationBase::getAttributeName(VnTriangulationBase::eAttributeTriangleType), "triangleType");
    EXPECT_THROW(VnTriangulationBase::getAttributeName(VnTriangulationBase::EAvailableTriangleAttributes(8)),
                 CbExceptionPreconditionViolation);
    EXPECT_FALSE(m.HasAttribute(VnTriangulationBase::eAttributeNormal));
    m.AssertAttribute(VnTriangulationBase::eAttributeNormal);
    m.AssertAttribute(VnTriangulationBase::eAttributeParameters);
    m.AssertAttribute(VnTriangulationBase::eAttributeRegion);
    ASSERT_TRUE(m.HasAttribute(VnTriangulationBase::eAttributeNormal));
    // The element types follow the attribute numbers: a wrongly typed view is refused.
    EXPECT_NO_THROW(m.GetTriangleAttribute<CbVector3f>("normal"));
    EXPECT_NO_THROW((m.GetTriangleAttribute<std::array<CbVector2f, 3>>("parameters")));
    EXPECT_THROW(m.GetTriangleAttribute<float>("normal"), CbExceptionPreconditionViolation);
    EXPECT_THROW(m.GetTriangleAttribute<CbVector3f>("region"), CbExceptionPreconditionViolation);
    EXPECT_TRUE(m.IsSerializable(VnTriangulationBase::eAttributeNormal)); // registered so
    m.SetSerializable(VnTriangulationBase::eAttributeNormal, false);
    EXPECT_FALSE(m.IsSerializable(VnTriangulationBase::eAttributeNormal));
    EXPECT_TRUE(m.DestroyAttribute(VnTriangulationBase::eAttributeNormal));
    EXPECT_FALSE(m.HasAttribute(VnTriangulationBase::eAttributeNormal));
    m.RemoveTriangleAttributes();
    EXPECT_TRUE(m.GetAttributes(Geometry::eContainerTriangle).empty());
}

TEST(VnTriangulationDynamicAttributes, ParametersAndFeatureLabels) {
    VnTriangulationDynamic m;
    addTetra(m);
    EXPECT_EQ(m.GetParameters(CVertexRef(1)), CbVector2f());
    EXPECT_EQ(m.GetFeatureLabels(CVertexRef(1)), 0u);
    EXPECT_FALSE(m.HasAttribute(Geometry::eContainerVertex, "parameters")); // reading creates nothing
    m.SetParameterU(CVertexRef(1), 0.25f);
    m.SetParameterV(CVertexRef(1), 0.75f);
    m.SetParameters(CVertexRef(2), {1.f, 2.f});
    EXPECT_EQ(m.GetParameters(CVertexRef(1)), CbVector2f(0.25f, 0.75f));
    EXPECT_EQ(m.GetParameterV(CVertexRef(2)), 2.f);
    EXPECT_EQ(m.GetParameters(CVertexRef(0)), CbVector2f());
    m.SetFeatureLabels(CVertexRef(3), 0x5u);
    m.AddFeatureLabels(CVertexRef(3), 0x12u);
    EXPECT_EQ(m.GetFeatureLabels(CVertexRef(3)), 0x17u);
    EXPECT_EQ(m.GetAttributes(Geometry::eContainerVertex), (std::vector<std::string>{"parameters", "featureLabels"}));
    // New vertices get the attribute's default.
    CVertexRef v = m.AddVertex({});
    EXPECT_EQ(m.GetFeatureLabels(v), 0u);
}

TEST(VnTriangulationDynamicNormals, ComputeNormalsKeepsStoredFacetsUnlessAsked) {
    VnTriangulationDynamic m;
    addTetra(m);
    m.AssertAttribute(VnTriangulationBase::eAttributeNormal);
    auto facets = m.GetTriangleAttribute<CbVector3f>("normal");
    facets[CTriangleRef(0)] = {7.f, 7.f, 7.f};
    EXPECT_FALSE(m.ComputeNormals(0));
    ASSERT_TRUE(m.ComputeNormals(51));
    EXPECT_EQ(facets[CTriangleRef(0)], CbVector3f(7.f, 7.f, 7.f));
    auto vertexNormals = m.GetVertexAttribute<const CbVector3f>("normal");
    ASSERT_FALSE(vertexNormals.IsNull());
    // Each vertex normal is unit length and points away from the centroid.
    const CbVector3f centroid(0.25f, 0.25f, 0.25f);
    for (CVertexRef v = m.GetFirstVertex(); v != Geometry::c_IndexEnd; v = m.GetNextVertex(v)) {
        const CbVector3f n = vertexNormals[v];
        EXPECT_NEAR(n.Length(), 1.f, 1e-6f);
        EXPECT_GT(n.Dot(m.GetVertex(v) - centroid), 0.f);
    }
    ASSERT_TRUE(m.ComputeNormals(VnTriangulationBase::eNormalsTriangle));
    EXPECT_EQ(facets[CTriangleRef(0)], CbVector3f(0.f, 0.f, -1.f));
    EXPECT_EQ(m.ComputeNormal(CTriangleRef(1)), CbVector3f(0.f, -1.f, 0.f));
    CVertexRef a = m.AddVertex({1.f, 1.f, 1.f}), b = m.AddVertex({2.f, 2.f, 2.f}), c = m.AddVertex({3.f, 3.f, 3.f});
    EXPECT_EQ(m.ComputeNormal(m.AddTriangle(a, b, c)), CbVector3f()); // degenerate
}

TEST(VnTriangulationDynamicCopy, AssignmentThroughTheBaseCopiesGeometryAndAttributes) {
    VnTriangulationDynamic source;
    addTetra(source);
    source.SetFeatureLabels(CVertexRef(2), 9u);
    VnTest::CForeignTriangulation target;
    target.AddVertex({1.f, 1.f, 1.f});
    VnTriangulationBase& asBase = target;
    asBase = source;
    EXPECT_EQ(target.assignments, 1);
    EXPECT_EQ(target.GetVertexCount(), 4u);
    EXPECT_EQ(target.GetTriangleCount(), 4u);
    EXPECT_EQ(target.GetFeatureLabels(CVertexRef(2)), 9u);
    // The copy is independent of its source.
    source.SetVertex(CVertexRef(0), {9.f, 9.f, 9.f});
    EXPECT_EQ(target.GetVertex(CVertexRef(0)), CbVector3f());
    VnTriangulationDynamic copy(source);
    EXPECT_EQ(copy.GetVertex(CVertexRef(0)), CbVector3f(9.f, 9.f, 9.f));
    EXPECT_GT(copy.GetMemoryUsage(), VnTriangulationDynamic().GetMemoryUsage());
}

TEST(VnTriangulationDynamicCopy, NativeSerialisationRoundTripAndBadStream) {
    VnTriangulationDynamic m;
    addTetra(m);
    m.SetParameters(CVertexRef(3), {0.5f, 0.5f});
    CbStreamWriteBinaryMemory out;
    m.Serialize(out);
    const std::vector<uint8_t> bytes = out.TakeData();
    VnTriangulationDynamic back;
    CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
    back.Serialize(in);
    EXPECT_EQ(back.GetTriangleCount(), 4u);
    EXPECT_EQ(back.GetParameters(CVertexRef(3)), CbVector2f(0.5f, 0.5f));
    CbStreamReadBinaryMemory cut(bytes.data(), bytes.size() / 2);
    EXPECT_THROW(back.Serialize(cut), CbExceptionStream);
    EXPECT_EQ(back.GetTriangleCount(), 4u); // unchanged
}

TEST(VnFtTriangulationCombineTriangleSoupOld, JoinsLikeTheMeshModelCombiner) {
    VnTriangulationDynamic legacy;
    addTetraSoup(legacy);
    Geometry::CTriangulation modern = legacy.triangulation();
    VnFtTriangulationCombineTriangleSoupOld old;
    old.SetInput(legacy);
    EXPECT_FALSE(old.Compute(1)); // no flag given yet
    old.AddFlags(VnFtTriangulationCombineTriangleSoup::eFlagCombine);
    ASSERT_TRUE(old.Compute(1));
    VnFtTriangulationCombineTriangleSoup reference;
    reference.SetInput(modern);
    ASSERT_TRUE(reference.Compute());
    ASSERT_EQ(legacy.GetVertexCount(), 4u);
    ASSERT_EQ(modern.GetVertexCount(), 4u);
    for (CVertexRef v = legacy.GetFirstVertex(); v != Geometry::c_IndexEnd; v = legacy.GetNextVertex(v))
        EXPECT_EQ(legacy.GetVertex(v), modern.GetPosition(v));
    for (CTriangleRef t = legacy.GetFirstTriangle(); t != Geometry::c_IndexEnd; t = legacy.GetNextTriangle(t))
        for (int k = 0; k < 3; ++k) EXPECT_EQ(legacy.GetTriangleVertex(t, k).Index(), modern.GetCorner(t, k));
    EXPECT_TRUE(legacy.IsVertexIndicesAccurate());
}

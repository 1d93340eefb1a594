#include "vn3dbase/vnfttriangulationinconsistencydetect.h"

#include <gtest/gtest.h>

#include "support/meshbuilders.h"

using namespace Geometry;

namespace {

CTriangulation fromTriangles(uint32_t vertices, std::initializer_list<STriangleCorners> triangles) {
    CTriangulation m;
    for (uint32_t v = 0; v < vertices; ++v) m.AddVertex(CbVector3f(float(v), float(v * v % 7), 0.f));
    for (const auto& t : triangles) m.AddTriangle(CVertexRef(t[0]), CVertexRef(t[1]), CVertexRef(t[2]));
    return m;
}

TEST(VnInconsistencyDetect, ManifoldMeshesAreConsistent) {
    EXPECT_FALSE(VnFtTriangulationInconsistencyDetect::Compute(CTriangulation()));
    EXPECT_FALSE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(3, {{0, 1, 2}})));
    EXPECT_FALSE(VnFtTriangulationInconsistencyDetect::Compute(VnTest::MakeCube()));
    EXPECT_FALSE(VnFtTriangulationInconsistencyDetect::Compute(VnTest::MakeSphere(8, 12)));
    EXPECT_FALSE(VnFtTriangulationInconsistencyDetect::Compute(VnTest::MakeTorus(6, 5)));
    EXPECT_FALSE(VnFtTriangulationInconsistencyDetect::Compute(VnTest::MakeGrid(5, 3)));
    // Two separate components, and a grid with a hole and deleted slots.
    EXPECT_FALSE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(6, {{0, 1, 2}, {3, 4, 5}})));
    CTriangulation holed = VnTest::MakeGrid(4, 4);
    const uint32_t centre = 2 * 5 + 2;
    for (CTriangleRef t : holed.Triangles()) {
        const STriangleCorners& c = holed.GetCorners(t);
        if (c[0] == centre || c[1] == centre || c[2] == centre) holed.RemoveTriangle(t);
    }
    holed.RemoveVertex(CVertexRef(centre));
    EXPECT_FALSE(VnFtTriangulationInconsistencyDetect::Compute(holed));
}

TEST(VnInconsistencyDetect, EveryKindOfDefectIsFound) {
    // Unreferenced vertices, a mesh of vertices only included.
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(4, {{0, 1, 2}})));
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(1, {})));
    // Corners that are not live vertices.
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(3, {{0, 1, 7}})));
    CTriangulation deleted = fromTriangles(4, {{0, 1, 2}, {0, 2, 3}});
    deleted.RemoveVertex(CVertexRef(3));
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(deleted));
    // Degenerate and duplicate triangles, either orientation.
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(3, {{0, 1, 1}, {0, 1, 2}})));
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(3, {{0, 1, 2}, {0, 1, 2}})));
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(3, {{0, 1, 2}, {0, 2, 1}})));
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(4, {{0, 1, 2}, {1, 2, 0}, {0, 1, 3}})));
    // An edge used by three triangles.
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(5, {{0, 1, 2}, {1, 0, 3}, {1, 0, 4}})));
    // Inconsistent orientation: the shared edge runs the same way in both.
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(4, {{0, 1, 2}, {0, 1, 3}})));
    // A bow tie: two fans meet at vertex 0 (two boundary loops through it).
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(5, {{0, 1, 2}, {0, 3, 4}})));
    // Two closed fans at one vertex: two tetrahedra glued at a tip.
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(fromTriangles(
        7, {{0, 2, 1}, {0, 3, 2}, {0, 1, 3}, {1, 2, 3}, {0, 5, 4}, {0, 6, 5}, {0, 4, 6}, {4, 5, 6}})));
    // A closed fan plus an open one at vertex 0.
    EXPECT_TRUE(VnFtTriangulationInconsistencyDetect::Compute(
        fromTriangles(6, {{0, 2, 1}, {0, 3, 2}, {0, 1, 3}, {1, 2, 3}, {0, 4, 5}})));
}

} // namespace

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "support/clersmeshes.h"
#include "support/meshbuilders.h"
#include "vn3dbase/vnmptriangulationtoregionbordervertexline.h"

using namespace Geometry;
using namespace VnTest;

namespace {
bool borders(const CTriangulation& mesh, VnPolylineTriangulationList& list) {
    VnRegionBorderVertexLineOperatorTriBorder op;
    VnMpTriangulationToRegionBorderVertexLine algorithm;
    algorithm.SetInput(mesh, list, op);
    return algorithm.Compute();
}

bool holdsEdge(const CTriangulation& mesh, CTriangleRef t, uint32_t from, uint32_t to) {
    const auto& c = mesh.GetCorners(t);
    for (int k = 0; k < 3; ++k)
        if (c[k] == from && c[(k + 1) % 3] == to) return true;
    return false;
}
} // namespace

TEST(VnRegionBorderVertexLine, NoInputFails) {
    VnMpTriangulationToRegionBorderVertexLine algorithm;
    EXPECT_FALSE(algorithm.Compute());
}

TEST(VnRegionBorderVertexLine, SingleTriangle) {
    const CTriangulation tri = MeshFromTriangles(3, {{0, 1, 2}});
    VnPolylineTriangulationList list;
    ASSERT_TRUE(borders(tri, list));
    ASSERT_EQ(list.GetCount(), 1u);
    const VnPolylineTriangulation& line = list.GetAt(0);
    ASSERT_EQ(line.GetVertexCount(), 3u);
    for (uint32_t j = 0; j < 3; ++j) {
        EXPECT_EQ(line.GetTriangulationVertex(j), j);
        EXPECT_EQ(line.GetTriangle(j), 0u);
        EXPECT_EQ(line.GetBarycentricCoordinates(j)[int(j)], 1.f);
    }
    EXPECT_EQ(list.GetTriangulation(), &tri);
}

TEST(VnRegionBorderVertexLine, ClosedMeshHasNoBorder) {
    VnPolylineTriangulationList list;
    ASSERT_TRUE(borders(MakeTorus(5, 4), list));
    EXPECT_EQ(list.GetCount(), 0u);
}

TEST(VnRegionBorderVertexLine, LoopsInOrderOfLowestEdgeAndReversedTrianglesHoldTheEdgeBack) {
    std::mt19937 rng(8);
    for (int round = 0; round < 30; ++round) {
        const CTriangulation mesh = Shuffle(PunchHoles(MakeSphere(10, 12), 1 + rng() % 6, 1 + rng() % 8, rng()), rng());
        VnPolylineTriangulationList list;
        ASSERT_TRUE(borders(mesh, list));
        // every border edge appears exactly once
        std::set<std::pair<uint32_t, uint32_t>> directed, border;
        for (CTriangleRef t : mesh.Triangles())
            for (int k = 0; k < 3; ++k) directed.emplace(mesh.GetCorner(t, k), mesh.GetCorner(t, (k + 1) % 3));
        for (auto [a, b] : directed)
            if (!directed.count({b, a})) border.emplace(a, b);
        size_t points = 0;
        uint32_t lastKey = 0;
        for (VnPolylineTriangulation line : list) {
            const uint32_t n = line.GetVertexCount();
            ASSERT_GE(n, 3u);
            points += n;
            // the loop's key is its lowest (triangle, edge) and keys increase along the list
            uint32_t key = c_IndexInvalid;
            for (uint32_t j = 0; j < n; ++j) {
                const uint32_t a = line.GetTriangulationVertex(j), b = line.GetTriangulationVertex((j + 1) % n);
                EXPECT_TRUE(border.count({a, b}));
                const CTriangleRef t = line.GetTriangle((j + 1) % n);
                EXPECT_TRUE(holdsEdge(mesh, t, a, b));
                for (int k = 0; k < 3; ++k)
                    if (mesh.GetCorner(t, k) == a && mesh.GetCorner(t, (k + 1) % 3) == b) key = std::min(key, 3 * t.Index() + uint32_t(k));
            }
            // the lowest edge leaves point 0 and arrives at point 1
            EXPECT_EQ(key / 3, line.GetTriangle(1).Index()) << "a loop starts at its lowest edge";
            EXPECT_EQ(mesh.GetCorner(CTriangleRef(key / 3), int(key % 3)), line.GetTriangulationVertex(0));
            EXPECT_GT(key + 1, lastKey);
            lastKey = key + 1;
            line.ReverseDirection();
            for (uint32_t k = 0; k < n; ++k)
                EXPECT_TRUE(holdsEdge(mesh, line.GetTriangle(k), line.GetTriangulationVertex((k + 1) % n), line.GetTriangulationVertex(k)));
        }
        EXPECT_EQ(points, border.size());
    }
}

TEST(VnRegionBorderVertexLine, PinchedBorderFails) {
    VnPolylineTriangulationList list;
    EXPECT_FALSE(borders(MeshFromTriangles(5, {{0, 1, 2}, {0, 3, 4}}), list));
}

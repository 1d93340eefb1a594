#include "vn3dbase/vnmptriangulationtoedgelengthstatistics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "support/meshbuilders.h"

using namespace Geometry;

namespace {

TEST(VnEdgeLengthStatistics, FifthFloatIsTheMeanOfAllTriangleEdges) {
    // A 3-4-5 right triangle and a unit one: six edges 3, 4, 5, 1, 1, sqrt(2).
    CTriangulation mesh;
    mesh.AddVertex(CbVector3f(0, 0, 0));
    mesh.AddVertex(CbVector3f(3, 0, 0));
    mesh.AddVertex(CbVector3f(0, 4, 0));
    mesh.AddVertex(CbVector3f(10, 0, 0));
    mesh.AddVertex(CbVector3f(11, 0, 0));
    mesh.AddVertex(CbVector3f(10, 1, 0));
    mesh.AddTriangle(CVertexRef(0), CVertexRef(1), CVertexRef(2));
    mesh.AddTriangle(CVertexRef(3), CVertexRef(4), CVertexRef(5));
    VnMpTriangulationToEdgeLengthStatistics statistics;
    statistics.SetInput(mesh);
    ASSERT_TRUE(statistics.Compute(1));
    const SEdgeLengthStatistics& s = statistics.GetOutput();
    float record[5];
    std::memcpy(record, &s, sizeof(record));
    const double mean = (3 + 4 + 5 + 1 + 1 + std::sqrt(2.0)) / 6;
    EXPECT_FLOAT_EQ(record[4], float(mean));
    EXPECT_FLOAT_EQ(s.minimum, 1.f);
    EXPECT_FLOAT_EQ(s.maximum, 5.f);
    // Shared edges count once per triangle: on a unit grid the mean is (2 + sqrt 2) / 3.
    CTriangulation grid = VnTest::MakeGrid(7, 5);
    grid.RemoveTriangle(CTriangleRef(3));
    statistics.SetInput(grid);
    ASSERT_TRUE(statistics.Compute(1));
    EXPECT_FLOAT_EQ(statistics.GetOutput().mean, float((2 + std::sqrt(2.0)) / 3));
}

TEST(VnEdgeLengthStatistics, EmptyInputsGiveZeros) {
    VnMpTriangulationToEdgeLengthStatistics statistics;
    EXPECT_FALSE(statistics.Compute(1));
    CTriangulation points;
    points.AddVertex(CbVector3f(1, 2, 3));
    statistics.SetInput(points);
    EXPECT_TRUE(statistics.Compute(1));
    EXPECT_EQ(statistics.GetOutput().mean, 0.f);
    EXPECT_EQ(statistics.GetOutput().maximum, 0.f);
}

} // namespace

#include "vn3dbase/vnpolylinetriangulation.h"

#include <gtest/gtest.h>

#include "support/meshbuilders.h"
#include "vn3dbase/vnpolylinetriangulationlist.h"

using namespace Geometry;

namespace {

TEST(VnPolylineTriangulation, RotateRenamesCorners) {
    VnBarycentricCoordinates b(0.1f, 0.2f, 0.7f);
    VnBarycentricCoordinates r = b;
    r.Rotate(1);
    EXPECT_EQ(r, VnBarycentricCoordinates(0.2f, 0.7f, 0.1f));
    r = b;
    r.Rotate(2);
    EXPECT_EQ(r, VnBarycentricCoordinates(0.7f, 0.1f, 0.2f));
    r.Rotate(1);
    EXPECT_EQ(r, b);
    r.Rotate(3);
    EXPECT_EQ(r, b);
    r.Rotate(-1);
    EXPECT_EQ(r, VnBarycentricCoordinates(0.7f, 0.1f, 0.2f));
}

TEST(VnPolylineTriangulation, SerialiseReverseAndBounds) {
    const CTriangulation mesh = VnTest::MakeGrid(2, 2);
    VnPolylineTriangulation line(mesh);
    line.AddVertex(CTriangleRef(0), VnBarycentricCoordinates(0.5f, 0.5f, 0.f));
    line.AddVertex(CTriangleRef(7), VnBarycentricCoordinates(0.f, 0.f, 1.f), 8);
    CbStreamWriteBinaryMemory sink;
    line.Serialize(sink);
    EXPECT_EQ(sink.GetSize(), 4u + 2 * 20);
    VnPolylineTriangulation back(mesh);
    CbStreamReadBinaryMemory source(sink.GetData().data(), sink.GetSize());
    back.Serialize(source);
    EXPECT_EQ(back.GetPoints(), line.GetPoints());
    back.ReverseDirection();
    EXPECT_EQ(back.GetTriangle(0).Index(), 7u);
    EXPECT_EQ(back.GetTriangulationVertex(0), 8u);
    EXPECT_THROW(back.GetTriangle(2), CbExceptionPreconditionViolation);

    // A triangle or vertex the bound mesh does not have, an unbound polyline, a short stream.
    const CTriangulation small = VnTest::MakeGrid(1, 1);
    for (const CTriangulation* target : {&small, static_cast<const CTriangulation*>(nullptr)}) {
        VnPolylineTriangulation other;
        other.SetTriangulation(target);
        CbStreamReadBinaryMemory again(sink.GetData().data(), sink.GetSize());
        EXPECT_THROW(other.Serialize(again), CbExceptionStream);
        EXPECT_EQ(other.GetVertexCount(), 0u);
    }
    for (size_t n = 0; n < sink.GetSize(); ++n) {
        VnPolylineTriangulation cut(mesh);
        CbStreamReadBinaryMemory prefix(sink.GetData().data(), n);
        EXPECT_THROW(cut.Serialize(prefix), CbExceptionStream) << n;
    }
}

TEST(VnPolylineTriangulationList, PositionsWalkInOrderAndBindingFollows) {
    const CTriangulation a = VnTest::MakeCube(), b = VnTest::MakeCube();
    VnPolylineTriangulationList list(a);
    EXPECT_EQ(list.GetHeadPosition(), 0u);
    list.AddTail().AddVertex(CTriangleRef(1), VnBarycentricCoordinates());
    list.AddTail().AddVertex(CTriangleRef(2), VnBarycentricCoordinates());
    list.AddTail().AddVertex(CTriangleRef(3), VnBarycentricCoordinates());
    std::vector<uint32_t> seen;
    for (auto pos = list.GetHeadPosition(); pos;) seen.push_back(list.GetNext(pos).GetTriangle(0).Index());
    EXPECT_EQ(seen, (std::vector<uint32_t>{1, 2, 3}));
    EXPECT_EQ(list.GetAt(0).getCTriangulation(), &a);
    list.SetTriangulation(&b, true);
    for (const auto& p : list) EXPECT_EQ(p.getCTriangulation(), &b);
    VnPolylineTriangulationList::POSITION end = 0;
    EXPECT_THROW(list.GetNext(end), CbExceptionPreconditionViolation);
    EXPECT_THROW(list.GetAt(3), CbExceptionPreconditionViolation);
    list.RemoveAll();
    EXPECT_TRUE(list.IsEmpty());
}

} // namespace

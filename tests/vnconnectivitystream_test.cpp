// The connectivity coder through the compressed stream: writer, framing, range-coded
// symbols and side blocks, reader. The read mesh must hold the written mesh's triangles,
// renumbered by the writer's maps, with bit-exact positions in the lossless mode.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "basepool/cbexception.h"
#include "basepool/cbstreambinary.h"
#include "support/clersmeshes.h"
#include "support/meshbuilders.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

using namespace Geometry;
using namespace VnTest;
using Base = VnStreamCompressedTriangulationBase;

namespace {

std::vector<uint8_t> write(const CTriangulation& mesh, VnStreamWriteCompressedTriangulation& writer, CbStreamWriteBinaryMemory& out) {
    writer << mesh;
    return out.GetData();
}

bool sameBits(const CbVector3f& a, const CbVector3f& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Writes, reads back and compares through the maps; returns the stream.
std::vector<uint8_t> expectStreamRoundTrip(const CTriangulation& mesh, bool expectCompressed = true) {
    CbStreamWriteBinaryMemory out;
    VnStreamWriteCompressedTriangulation writer(out, Base::eLossless, 0.f);
    const std::vector<uint8_t> bytes = write(mesh, writer, out);
    EXPECT_EQ(writer.IsConsistent(), expectCompressed);
    const auto& vertexMap = writer.GetVertexMap();
    const auto& triangleMap = writer.GetTriangleMap();
    const auto& rotation = writer.GetCornerRotationMap();
    EXPECT_EQ(uint32_t(vertexMap.GetSize()), mesh.GetVertexCount());
    EXPECT_EQ(uint32_t(triangleMap.GetSize()), mesh.GetTriangleCount());

    CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
    VnStreamReadCompressedTriangulation reader(in);
    CTriangulation back;
    reader >> back;
    EXPECT_EQ(in.GetBytesLeft(), 0u);
    EXPECT_EQ(back.GetVertexCount(), mesh.GetVertexCount());
    EXPECT_EQ(back.GetTriangleCount(), mesh.GetTriangleCount());
    if (::testing::Test::HasFailure() || !expectCompressed) return bytes;
    for (uint32_t v = 0; v < back.GetVertexCount(); ++v)
        if (!sameBits(back.GetPosition(CVertexRef(v)), mesh.GetPosition(vertexMap[int(v)]))) {
            ADD_FAILURE() << "position of vertex " << v;
            break;
        }
    for (uint32_t k = 0; k < back.GetTriangleCount(); ++k) {
        const CTriangleRef t = triangleMap[int(k)];
        // the rotation byte is the mesh corner the reader's triangle starts with
        const int first = rotation[int(t.Index())];
        const auto& c = back.GetCorners(CTriangleRef(k));
        bool same = true;
        for (int j = 0; j < 3; ++j) same &= vertexMap[int(c[j])] == mesh.GetCorner(t, (first + j) % 3);
        if (!same) {
            ADD_FAILURE() << "triangle " << k;
            break;
        }
    }
    return bytes;
}

} // namespace

TEST(VnConnectivityStream, ClosedMeshesGoThroughTheCoder) {
    expectStreamRoundTrip(MakeCube());
    expectStreamRoundTrip(MakeSphere(16, 24));
}

TEST(VnConnectivityStream, SingleTriangleAndDisk) {
    expectStreamRoundTrip(MeshFromTriangles(3, {{0, 1, 2}}));
    expectStreamRoundTrip(MakeGrid(12, 7));
}

TEST(VnConnectivityStream, HandlesHolesAndComponents) {
    expectStreamRoundTrip(MakeTorus(12, 9));
    expectStreamRoundTrip(MakeHandleBody(25, 40, 40, 3));
    expectStreamRoundTrip(Concatenate({MakeTorus(5, 7), PunchHoles(MakeSphere(20, 20), 12, 6, 8), MakeCube(),
                                       MeshFromTriangles(3, {{0, 1, 2}}), MakeHandleBody(4, 12, 12, 1)}));
}

TEST(VnConnectivityStream, DeletedSlotsAndShuffledNumbering) {
    expectStreamRoundTrip(WithDeletedSlots(Shuffle(PunchHoles(MakeTorus(20, 14), 5, 5, 2), 6), 9));
}

TEST(VnConnectivityStream, RandomPatches) {
    std::mt19937 rng(515);
    for (int round = 0; round < 40; ++round) {
        const CTriangulation base = round % 2 ? MakeTorus(4 + rng() % 12, 4 + rng() % 12) : MakeHandleBody(1 + rng() % 4, 12, 12, rng());
        const CTriangulation patch = Shuffle(RandomPatch(base, 0.6 + 0.4 * double(rng() % 100) / 100.0, rng()), rng());
        if (patch.GetTriangleCount() == 0) continue;
        SCOPED_TRACE(round);
        expectStreamRoundTrip(patch);
        if (HasFailure()) return;
    }
}

TEST(VnConnectivityStream, MeshTheCoderRejectsIsStoredUncompressed) {
    // two triangles sharing only a vertex
    expectStreamRoundTrip(MeshFromTriangles(5, {{0, 1, 2}, {0, 3, 4}}), false);
}

TEST(VnConnectivityStream, SameMeshGivesSameBytes) {
    const CTriangulation mesh = PunchHoles(MakeHandleBody(3, 14, 14, 2), 3, 4, 4);
    EXPECT_EQ(expectStreamRoundTrip(mesh), expectStreamRoundTrip(mesh));
}

TEST(VnConnectivityStream, TruncatedAndFlippedStreamsFailCleanly) {
    const std::vector<uint8_t> bytes = expectStreamRoundTrip(PunchHoles(MakeHandleBody(2, 10, 10, 7), 2, 3, 1));
    for (size_t n = 0; n < bytes.size(); ++n) {
        CbStreamReadBinaryMemory in(bytes.data(), n);
        VnStreamReadCompressedTriangulation reader(in);
        CTriangulation back = MakeCube();
        EXPECT_THROW(reader >> back, CbExceptionStream) << n;
        EXPECT_EQ(back.GetVertexCount(), 0u);
    }
    std::mt19937 rng(9);
    for (int round = 0; round < 3000; ++round) {
        std::vector<uint8_t> forged = bytes;
        for (int flips = 1 + rng() % 3; flips > 0; --flips) forged[rng() % forged.size()] ^= uint8_t(1u << (rng() % 8));
        CbStreamReadBinaryMemory in(forged.data(), forged.size());
        VnStreamReadCompressedTriangulation reader(in);
        CTriangulation back;
        try {
            reader >> back;
            for (CTriangleRef t : back.Triangles())
                for (uint32_t c : back.GetCorners(t)) ASSERT_LT(c, back.GetVertexCount());
        } catch (const CbExceptionStream& e) {
            EXPECT_EQ(e.GetFunction(), "VnStreamReadCompressedTriangulation::operator >>");
            EXPECT_EQ(back.GetVertexCount(), 0u);
        }
    }
}

TEST(VnConnectivityStream, QuantizedPositionsStayOnTheGridAndTrianglesExact) {
    const CTriangulation mesh = PunchHoles(MakeHandleBody(3, 20, 20, 4), 4, 5, 6);
    CbStreamWriteBinaryMemory out;
    VnStreamWriteCompressedTriangulation writer(out, Base::eQuantized, 0.01f);
    writer << mesh;
    ASSERT_TRUE(writer.IsConsistent());
    const std::vector<uint8_t> bytes = out.GetData();
    CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
    VnStreamReadCompressedTriangulation reader(in);
    CTriangulation back;
    reader >> back;
    const float step = reader.GetRecordInfo().step;
    ASSERT_GT(step, 0.f);
    const auto& vertexMap = writer.GetVertexMap();
    for (uint32_t v = 0; v < back.GetVertexCount(); ++v) {
        const CbVector3f a = back.GetPosition(CVertexRef(v)), b = mesh.GetPosition(vertexMap[int(v)]);
        for (int axis = 0; axis < 3; ++axis) ASSERT_LE(std::fabs(a[axis] - b[axis]), 0.5f * step * 1.001f) << v;
    }
    const auto& triangleMap = writer.GetTriangleMap();
    const auto& rotation = writer.GetCornerRotationMap();
    for (uint32_t k = 0; k < back.GetTriangleCount(); ++k) {
        const CTriangleRef t = triangleMap[int(k)];
        for (int j = 0; j < 3; ++j)
            ASSERT_EQ(vertexMap[int(back.GetCorner(CTriangleRef(k), j))], mesh.GetCorner(t, (rotation[int(t.Index())] + j) % 3));
    }
}

TEST(VnConnectivityStream, Version2WriterAndTwoMeshesInOneStream) {
    const CTriangulation first = MakeTorus(7, 5), second = PunchHoles(MakeSphere(9, 11), 2, 3, 1);
    CbStreamWriteBinaryMemory out;
    VnStreamWriteCompressedTriangulationVersion2 writer(out, Base::eLossless, 0.f);
    writer << first << second;
    EXPECT_TRUE(writer.IsConsistent());
    const std::vector<uint8_t> bytes = out.GetData();
    CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
    VnStreamReadCompressedTriangulation reader(in);
    CTriangulation a, b;
    reader >> a;
    EXPECT_EQ(reader.GetRecordInfo().version, 2u);
    reader >> b;
    EXPECT_EQ(in.GetBytesLeft(), 0u);
    EXPECT_EQ(a.GetTriangleCount(), first.GetTriangleCount());
    EXPECT_EQ(b.GetTriangleCount(), second.GetTriangleCount());
    EXPECT_EQ(b.GetVertexCount(), second.GetVertexCount());
}

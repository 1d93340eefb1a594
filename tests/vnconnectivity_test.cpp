// Round trips of the connectivity coder in memory: the decoded triangles, mapped through
// the encoder's vertex order, must be the mesh's triangles in the encoder's triangle order
// with the recorded corner rotation, and each vertex must be predicted in the same triangle.
#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "basepool/cbexception.h"
#include "detail/vnconnectivity.h"
#include "support/clersmeshes.h"
#include "support/meshbuilders.h"

using namespace Geometry;
using namespace VnConnectivity;
using namespace VnTest;

namespace {

constexpr const char* kSource = "tests/vnconnectivity_test";
constexpr const char* kFunction = "test";

struct SStats {
    size_t components = 0, handles = 0, holes = 0, symbols = 0;
};

SDecodedComponent decodeWritten(const SComponent& comp, uint32_t maxVertices) {
    std::vector<uint8_t> symbols = comp.symbols;
    std::vector<uint32_t> holeRuns, handleRuns;
    EncodeSplitRuns(symbols, holeRuns, handleRuns);
    for (uint8_t s : symbols) EXPECT_LT(s, VnClers::c_WrittenAlphabet);
    EXPECT_EQ(holeRuns.size() + 1, comp.holeSizes.size());
    EXPECT_EQ(handleRuns.size(), comp.handleCount);
    const uint32_t known = DecodeSplitRuns(symbols, holeRuns, comp.holeSizes, handleRuns, kSource, kFunction);
    EXPECT_EQ(symbols, comp.symbols);
    EXPECT_EQ(known, comp.vertexCount);
    SDecodedComponent out;
    DecodeComponent(symbols, comp.holeSizes, comp.handleOffsets, maxVertices, out, kSource, kFunction);
    return out;
}

SStats expectRoundTrip(const CTriangulation& mesh) {
    SStats stats;
    SEncodedMesh enc;
    EXPECT_TRUE(EncodeMesh(mesh, enc));
    if (::testing::Test::HasFailure()) return stats;
    EXPECT_EQ(enc.vertexOrder.size(), mesh.GetVertexCount());
    EXPECT_EQ(enc.triangleOrder.size(), mesh.GetTriangleCount());
    std::vector<uint32_t> position(mesh.GetTriangleSlotCount(), c_IndexInvalid);
    for (uint32_t k = 0; k < enc.triangleOrder.size(); ++k) position[enc.triangleOrder[k]] = k;
    std::vector<uint8_t> seen(mesh.GetVertexSlotCount(), 0);
    for (uint32_t v : enc.vertexOrder) {
        EXPECT_TRUE(mesh.IsVertexLive(v));
        EXPECT_FALSE(seen[v]) << "vertex coded twice";
        seen[v] = 1;
    }
    for (const SComponent& comp : enc.components) {
        const SDecodedComponent dec = decodeWritten(comp, comp.vertexCount);
        if (::testing::Test::HasFailure()) return stats;
        EXPECT_EQ(dec.vertexCount, comp.vertexCount);
        EXPECT_EQ(dec.triangles.size(), comp.symbols.size());
        for (uint32_t k = 0; k < dec.triangles.size(); ++k) {
            const uint32_t t = enc.triangleOrder[comp.firstTriangle + k];
            const uint32_t i = enc.gateCorner[comp.firstTriangle + k];
            for (int j = 0; j < 3; ++j)
                if (enc.vertexOrder[comp.firstVertex + dec.triangles[k][j]] != mesh.GetCorner(CTriangleRef(t), (i + j) % 3)) {
                    ADD_FAILURE() << "triangle " << k << " corner " << j;
                    return stats;
                }
            EXPECT_EQ(enc.tipOrder[comp.firstTriangle + k], mesh.GetCorner(CTriangleRef(t), (i + 2) % 3));
        }
        for (uint32_t v = 0; v < dec.vertexCount; ++v)
            if (dec.vertexTriangle[v] + comp.firstTriangle != position[enc.vertexTriangle[comp.firstVertex + v]]) {
                ADD_FAILURE() << "reference triangle of vertex " << v;
                return stats;
            }
        ++stats.components;
        stats.handles += comp.handleCount;
        stats.holes += comp.holeSizes.size() - 1 + (comp.holeSizes[0] > 2);
        stats.symbols += comp.symbols.size();
    }
    return stats;
}

CTriangulation singleTriangle() { return MeshFromTriangles(3, {{0, 1, 2}}); }

} // namespace

TEST(VnConnectivityEncode, EmptyMeshHasNoComponents) {
    CTriangulation empty;
    SEncodedMesh enc;
    EXPECT_TRUE(EncodeMesh(empty, enc));
    EXPECT_TRUE(enc.components.empty());
}

TEST(VnConnectivityEncode, SingleTriangleIsOneBoundaryAndOneE) {
    SEncodedMesh enc;
    ASSERT_TRUE(EncodeMesh(singleTriangle(), enc));
    ASSERT_EQ(enc.components.size(), 1u);
    EXPECT_EQ(enc.components[0].holeSizes, std::vector<uint32_t>{3});
    EXPECT_EQ(enc.components[0].symbols, std::vector<uint8_t>{VnClers::eSymbolE});
    const SDecodedComponent dec = decodeWritten(enc.components[0], 3);
    ASSERT_EQ(dec.triangles.size(), 1u);
    EXPECT_EQ(dec.triangles[0], (STriangleCorners{1, 0, 2}));
    expectRoundTrip(singleTriangle());
}

TEST(VnConnectivityEncode, ClosedGenusZeroStartsOnTriangleWithoutSplitsOfOtherKinds) {
    const CTriangulation cube = MakeCube();
    SEncodedMesh enc;
    ASSERT_TRUE(EncodeMesh(cube, enc));
    ASSERT_EQ(enc.components.size(), 1u);
    EXPECT_EQ(enc.components[0].holeSizes, std::vector<uint32_t>{2});
    EXPECT_EQ(enc.components[0].handleCount, 0u);
    for (uint8_t s : enc.components[0].symbols) EXPECT_LE(s, VnClers::eSymbolS);
    expectRoundTrip(cube);
    expectRoundTrip(MakeSphere(12, 17));
}

TEST(VnConnectivityEncode, StripAndDisk) {
    expectRoundTrip(MakeGrid(9, 1));
    expectRoundTrip(MakeGrid(1, 9));
    expectRoundTrip(MakeGrid(13, 11));
    // a fan around one centre vertex
    STriangleList fan;
    for (uint32_t i = 0; i < 9; ++i) fan.push_back({0, 1 + i, 1 + (i + 1) % 9});
    expectRoundTrip(MeshFromTriangles(10, fan));
}

TEST(VnConnectivityEncode, FirstComponentStartsOnLongestBoundary) {
    // a grid (boundary 2*(6+4) = 20) with one interior triangle removed (a hole of 3); the
    // hole comes first in the loop order but the outer loop is coded first
    STriangleList tris = TrianglesOf(MakeGrid(6, 4));
    tris.erase(tris.begin() + 2 * (1 * 6 + 1));
    const CTriangulation holed = MeshFromTriangles(35, tris);
    SEncodedMesh enc;
    ASSERT_TRUE(EncodeMesh(holed, enc));
    ASSERT_FALSE(enc.components.empty());
    EXPECT_EQ(enc.components[0].holeSizes, (std::vector<uint32_t>{20, 3}));
    expectRoundTrip(holed);
}

TEST(VnConnectivityEncode, TorusHasHandles) {
    for (unsigned n : {3u, 4u, 7u}) {
        const SStats s = expectRoundTrip(MakeTorus(n, n + 2));
        EXPECT_EQ(s.handles, 2u) << n;
    }
    expectRoundTrip(MakeTorus(3, 3));
    expectRoundTrip(MakeTorus(40, 25));
}

TEST(VnConnectivityEncode, HigherGenus) {
    for (unsigned genus : {2u, 3u, 5u, 17u, 60u, 150u}) {
        const CTriangulation body = MakeHandleBody(genus, 60, 64, 100 + genus);
        ASSERT_TRUE(IsManifold(body));
        const SStats s = expectRoundTrip(body);
        EXPECT_EQ(s.handles, 2u * genus) << genus;
        expectRoundTrip(Shuffle(body, genus));
    }
}

TEST(VnConnectivityEncode, HolesOfAllSizes) {
    const CTriangulation sphere = MakeSphere(20, 24);
    for (unsigned maxSize : {1u, 2u, 3u, 6u, 20u}) {
        for (unsigned holes : {1u, 2u, 7u, 25u}) {
            const CTriangulation holed = PunchHoles(sphere, holes, maxSize, holes * 31 + maxSize);
            ASSERT_TRUE(IsManifold(holed));
            expectRoundTrip(holed);
            expectRoundTrip(Shuffle(holed, holes));
        }
    }
}

TEST(VnConnectivityEncode, HolesAndHandlesTogether) {
    for (uint32_t seed = 0; seed < 6; ++seed) {
        const CTriangulation mesh = PunchHoles(MakeHandleBody(4 + seed, 30, 30, seed), 3 + seed, 5, seed);
        ASSERT_TRUE(IsManifold(mesh));
        expectRoundTrip(mesh);
        expectRoundTrip(PunchHoles(MakeTorus(20, 12), 1 + seed, 4, seed));
    }
}

TEST(VnConnectivityEncode, SeveralComponents) {
    const CTriangulation mixed = Concatenate({singleTriangle(), MakeCube(), MakeGrid(4, 3), MakeTorus(5, 6),
                                              PunchHoles(MakeSphere(8, 9), 3, 3, 5), singleTriangle(),
                                              MakeHandleBody(3, 16, 16, 9)});
    ASSERT_TRUE(IsManifold(mixed));
    const SStats s = expectRoundTrip(mixed);
    EXPECT_EQ(s.components, 7u);
    expectRoundTrip(Shuffle(mixed, 77));
}

TEST(VnConnectivityEncode, DeletedSlots) {
    const CTriangulation mesh = WithDeletedSlots(Concatenate({MakeTorus(6, 5), PunchHoles(MakeSphere(9, 9), 2, 4, 1)}), 4);
    ASSERT_FALSE(mesh.IsIndicesAccurate());
    expectRoundTrip(mesh);
}

TEST(VnConnectivityEncode, RandomManifoldPatches) {
    std::mt19937 rng(20261123);
    size_t handles = 0, holes = 0;
    for (int round = 0; round < 160; ++round) {
        const unsigned a = 3 + rng() % 14, b = 3 + rng() % 14;
        const CTriangulation base = (round % 3 == 0) ? MakeGrid(a, b) : (round % 3 == 1) ? MakeTorus(a, b) : MakeHandleBody(1 + rng() % 6, 14, 14, rng());
        const double keep = 0.55 + 0.45 * double(rng() % 1000) / 1000.0;
        CTriangulation patch = Shuffle(RandomPatch(base, keep, rng()), rng());
        if (patch.GetTriangleCount() == 0) continue;
        ASSERT_TRUE(IsManifold(patch));
        SCOPED_TRACE(round);
        const SStats s = expectRoundTrip(patch);
        if (HasFailure()) return;
        handles += s.handles;
        holes += s.holes;
    }
    // the generator must really exercise both side tables
    EXPECT_GT(handles, 20u);
    EXPECT_GT(holes, 200u);
}

TEST(VnConnectivityEncode, RejectsWhatItCannotReproduce) {
    SEncodedMesh enc;
    // two triangles sharing an edge in the same direction
    EXPECT_FALSE(EncodeMesh(MeshFromTriangles(4, {{0, 1, 2}, {0, 1, 3}}), enc));
    // two fans meeting in one vertex (a pinch)
    EXPECT_FALSE(EncodeMesh(MeshFromTriangles(5, {{0, 1, 2}, {0, 3, 4}}), enc));
    // an edge shared by three triangles
    EXPECT_FALSE(EncodeMesh(MeshFromTriangles(5, {{0, 1, 2}, {1, 0, 3}, {1, 0, 4}}), enc));
    // a repeated corner
    EXPECT_FALSE(EncodeMesh(MeshFromTriangles(3, {{0, 1, 1}}), enc));
    // an unused vertex
    EXPECT_FALSE(EncodeMesh(MeshFromTriangles(4, {{0, 1, 2}}), enc));
    // vertices without triangles
    EXPECT_FALSE(EncodeMesh(MeshFromTriangles(2, {}), enc));
}

TEST(VnConnectivitySplitRuns, RunsRoundTripAndHolesWinTies) {
    using namespace VnClers;
    std::vector<uint8_t> symbols{eSymbolSHole, eSymbolS, eSymbolSHandle, eSymbolC, eSymbolSHandle, eSymbolSHole, eSymbolS, eSymbolE};
    const std::vector<uint8_t> original = symbols;
    std::vector<uint32_t> holeRuns, handleRuns;
    EncodeSplitRuns(symbols, holeRuns, handleRuns);
    EXPECT_EQ(holeRuns, (std::vector<uint32_t>{0, 3}));
    EXPECT_EQ(handleRuns, (std::vector<uint32_t>{2, 0}));
    const uint32_t known = DecodeSplitRuns(symbols, holeRuns, {2, 4, 5}, handleRuns, kSource, kFunction);
    EXPECT_EQ(symbols, original);
    EXPECT_EQ(known, 2u + 4u + 5u + 1u);
    // both run arrays empty: every split stays plain
    std::vector<uint8_t> plain{eSymbolS, eSymbolS, eSymbolE};
    DecodeSplitRuns(plain, {}, {2}, {}, kSource, kFunction);
    EXPECT_EQ(plain, (std::vector<uint8_t>{eSymbolS, eSymbolS, eSymbolE}));
}

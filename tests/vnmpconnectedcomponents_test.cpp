#include <gtest/gtest.h>

#include <random>
#include <set>

#include "detail/vnconnectivity.h"
#include "support/clersmeshes.h"
#include "support/meshbuilders.h"
#include "vn3dbase/vnmpconnectedcomponents.h"

using namespace Geometry;
using namespace VnTest;

namespace {
std::vector<uint32_t> labels(const CTriangulation& mesh, uint32_t* count = nullptr) {
    VnMpConnectedComponents cc;
    cc.SetInput(mesh);
    EXPECT_TRUE(cc.Compute());
    if (count) *count = cc.GetComponentCount();
    std::vector<uint32_t> out;
    for (unsigned int l : cc.GetOutput()) out.push_back(l);
    return out;
}
} // namespace

TEST(VnMpConnectedComponents, NoInputFails) {
    VnMpConnectedComponents cc;
    EXPECT_FALSE(cc.Compute());
}

TEST(VnMpConnectedComponents, LabelsFollowLowestTriangle) {
    uint32_t count = 0;
    const auto l = labels(Concatenate({MakeCube(), MeshFromTriangles(3, {{0, 1, 2}}), MakeTorus(3, 4)}), &count);
    EXPECT_EQ(count, 3u);
    ASSERT_EQ(l.size(), 12u + 1u + 24u);
    for (size_t t = 0; t < l.size(); ++t) EXPECT_EQ(l[t], t < 12 ? 0u : t < 13 ? 1u : 2u) << t;
}

TEST(VnMpConnectedComponents, SharedVertexDoesNotConnectButEitherEdgeDirectionDoes) {
    uint32_t count = 0;
    labels(MeshFromTriangles(5, {{0, 1, 2}, {0, 3, 4}}), &count);
    EXPECT_EQ(count, 2u);
    labels(MeshFromTriangles(4, {{0, 1, 2}, {0, 1, 3}}), &count); // same direction still shares the edge
    EXPECT_EQ(count, 1u);
}

TEST(VnMpConnectedComponents, DeletedSlotsHaveNoLabel) {
    const CTriangulation mesh = WithDeletedSlots(Concatenate({MakeCube(), MakeGrid(2, 2)}), 3);
    uint32_t count = 0;
    const auto l = labels(mesh, &count);
    EXPECT_EQ(count, 2u);
    for (uint32_t t = 0; t < l.size(); ++t) EXPECT_EQ(l[t] == c_IndexInvalid, !mesh.IsTriangleLive(t));
}

TEST(VnMpConnectedComponents, AgreesWithTheConnectivityCoderOnRandomPatches) {
    std::mt19937 rng(31);
    for (int round = 0; round < 40; ++round) {
        const CTriangulation patch = Shuffle(RandomPatch(MakeTorus(5 + rng() % 10, 5 + rng() % 10), 0.5, rng()), rng());
        if (patch.GetTriangleCount() == 0) continue;
        uint32_t count = 0;
        const auto l = labels(patch, &count);
        VnConnectivity::SEncodedMesh enc;
        ASSERT_TRUE(VnConnectivity::EncodeMesh(patch, enc));
        EXPECT_EQ(count, enc.components.size());
        // every coded component is one label
        for (const auto& c : enc.components) {
            std::set<uint32_t> seen;
            for (uint32_t k = 0; k < c.symbols.size(); ++k) seen.insert(l[enc.triangleOrder[c.firstTriangle + k]]);
            EXPECT_EQ(seen.size(), 1u);
        }
    }
}

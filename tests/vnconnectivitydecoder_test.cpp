// Hostile input for the connectivity decoder: every inconsistency of symbols and side
// tables must end as CbExceptionStream, never as a crash, a hang or a read out of bounds.
#include <gtest/gtest.h>

#include <random>

#include "basepool/cbexception.h"
#include "detail/vnconnectivity.h"
#include "support/clersmeshes.h"
#include "support/meshbuilders.h"

using namespace VnConnectivity;
using namespace VnClers;

namespace {
constexpr const char* kSource = "tests/vnconnectivitydecoder_test";
constexpr const char* kFunction = "decode";

void decode(std::vector<uint8_t> symbols, std::vector<uint32_t> holeSizes, std::vector<uint32_t> offsets = {},
            uint32_t maxVertices = 1000) {
    SDecodedComponent out;
    DecodeComponent(symbols, holeSizes, offsets, maxVertices, out, kSource, kFunction);
}

// Decodes written-form symbols with their run arrays; true when it decoded.
bool tryDecode(std::vector<uint8_t> symbols, const std::vector<uint32_t>& holeRuns, const std::vector<uint32_t>& holeSizes,
               const std::vector<uint32_t>& handleRuns, const std::vector<uint32_t>& offsets, uint32_t maxVertices) {
    try {
        const uint32_t known = DecodeSplitRuns(symbols, holeRuns, holeSizes, handleRuns, kSource, kFunction);
        if (known > maxVertices) return false;
        SDecodedComponent out;
        DecodeComponent(symbols, holeSizes, offsets, maxVertices, out, kSource, kFunction);
        for (const auto& t : out.triangles)
            for (uint32_t c : t) EXPECT_LT(c, out.vertexCount);
        EXPECT_EQ(out.vertexTriangle.size(), out.vertexCount);
        return true;
    } catch (const CbExceptionStream& e) {
        EXPECT_EQ(e.GetFunction(), kFunction);
        return false;
    }
}
} // namespace

TEST(VnConnectivityDecode, SingleTriangle) {
    SDecodedComponent out;
    DecodeComponent({eSymbolE}, {3}, {}, 3, out, kSource, kFunction);
    ASSERT_EQ(out.triangles.size(), 1u);
    EXPECT_EQ(out.triangles[0], (Geometry::STriangleCorners{1, 0, 2}));
    EXPECT_EQ(out.vertexTriangle, (std::vector<uint32_t>{0, 0, 0}));
}

TEST(VnConnectivityDecode, SymbolsEndingBeforeTheFinalE) { EXPECT_THROW(decode({eSymbolC, eSymbolR}, {2}), CbExceptionStream); }

TEST(VnConnectivityDecode, EBeforeTheLastSymbol) { EXPECT_THROW(decode({eSymbolE, eSymbolE}, {3}), CbExceptionStream); }

TEST(VnConnectivityDecode, EmptyInputs) {
    EXPECT_THROW(decode({}, {3}), CbExceptionStream);
    EXPECT_THROW(decode({eSymbolE}, {}), CbExceptionStream);
    EXPECT_THROW(decode({eSymbolE}, {1}), CbExceptionStream);
}

TEST(VnConnectivityDecode, HoleSplitWithoutHoleSize) { EXPECT_THROW(decode({eSymbolSHole, eSymbolE, eSymbolE}, {2}), CbExceptionStream); }

TEST(VnConnectivityDecode, UnusedHoleSize) { EXPECT_THROW(decode({eSymbolE}, {3, 4}), CbExceptionStream); }

TEST(VnConnectivityDecode, VertexCountAboveLimit) {
    EXPECT_THROW(decode({eSymbolE}, {3}, {}, 2), CbExceptionStream);
    // more vertices than a connected component of so few triangles can have
    EXPECT_THROW(decode({eSymbolE}, {0xFFFFFFF0u}, {}, 0xFFFFFFFFu), CbExceptionStream);
    EXPECT_THROW(decode({eSymbolE}, {4}, {}, 100), CbExceptionStream);
}

TEST(VnConnectivityDecode, HandleTargetNeverReached) {
    EXPECT_THROW(decode({eSymbolC, eSymbolSHandle, eSymbolE}, {2}, {1000}), CbExceptionStream);
    EXPECT_THROW(decode({eSymbolC, eSymbolSHandle, eSymbolE}, {2}, {0}), CbExceptionStream);
    // an offset without a handle split
    EXPECT_THROW(decode({eSymbolE}, {3}, {1}), CbExceptionStream);
}

TEST(VnConnectivityDecode, CodesAboveTheAlphabet) {
    std::vector<uint8_t> symbols{eSymbolSHole};
    EXPECT_THROW(DecodeSplitRuns(symbols, {}, {3}, {}, kSource, kFunction), CbExceptionStream);
    EXPECT_THROW(decode({7}, {3}), CbExceptionStream);
    std::vector<uint8_t> plain{eSymbolE};
    EXPECT_THROW(DecodeSplitRuns(plain, {1}, {3}, {}, kSource, kFunction), CbExceptionStream); // runs without holes
}

TEST(VnConnectivityDecode, RandomSymbolStringsNeverCrash) {
    std::mt19937 rng(4242);
    int decoded = 0;
    for (int round = 0; round < 20000; ++round) {
        const size_t n = 1 + rng() % 40;
        std::vector<uint8_t> symbols(n);
        for (auto& s : symbols) s = static_cast<uint8_t>(rng() % 5);
        symbols.back() = eSymbolE;
        std::vector<uint32_t> holeSizes{static_cast<uint32_t>(2 + rng() % 5)};
        std::vector<uint32_t> holeRuns, handleRuns, offsets;
        for (unsigned h = rng() % 3; h > 0; --h) {
            holeRuns.push_back(rng() % 4);
            holeSizes.push_back(rng() % 7);
        }
        for (unsigned h = rng() % 3; h > 0; --h) {
            handleRuns.push_back(rng() % 4);
            offsets.push_back(rng() % 30);
        }
        decoded += tryDecode(symbols, holeRuns, holeSizes, handleRuns, offsets, 200);
    }
    EXPECT_GT(decoded, 0);
}

TEST(VnConnectivityDecode, MutatedValidComponentsNeverCrash) {
    std::mt19937 rng(77);
    const Geometry::CTriangulation mesh = VnTest::PunchHoles(VnTest::MakeHandleBody(3, 12, 12, 5), 3, 4, 2);
    SEncodedMesh enc;
    ASSERT_TRUE(EncodeMesh(mesh, enc));
    ASSERT_EQ(enc.components.size(), 1u);
    const SComponent& comp = enc.components[0];
    std::vector<uint8_t> symbols = comp.symbols;
    std::vector<uint32_t> holeRuns, handleRuns;
    EncodeSplitRuns(symbols, holeRuns, handleRuns);
    ASSERT_TRUE(tryDecode(symbols, holeRuns, comp.holeSizes, handleRuns, comp.handleOffsets, comp.vertexCount));
    for (int round = 0; round < 3000; ++round) {
        auto s = symbols;
        auto hs = comp.holeSizes;
        auto ho = comp.handleOffsets;
        auto hr = holeRuns;
        auto nr = handleRuns;
        switch (rng() % 6) {
        case 0: s[rng() % s.size()] = static_cast<uint8_t>(rng() % 5); break;
        case 1: s.resize(rng() % s.size()); break;
        case 2: hs[rng() % hs.size()] += static_cast<uint32_t>(rng() % 5) - 2; break;
        case 3: if (!ho.empty()) ho[rng() % ho.size()] += static_cast<uint32_t>(rng() % 9) - 4; break;
        case 4: if (!hr.empty()) hr[rng() % hr.size()] ^= 1; break;
        default: if (!nr.empty()) nr[rng() % nr.size()] ^= 1; break;
        }
        tryDecode(s, hr, hs, nr, ho, comp.vertexCount + static_cast<uint32_t>(rng() % 3));
    }
}

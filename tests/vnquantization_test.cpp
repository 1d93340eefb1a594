#include "vnbase/vnquantization.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace {

TEST(VnQuantizationBitExact, SpecialValuesRoundTripAndOrder) {
    VnFloatingPointQuantizationBitExact q;
    EXPECT_EQ(q.GetCodeWidth(), 32u);
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<float> ordered = {-inf, -1e30f, -1.f, -std::numeric_limits<float>::denorm_min(), -0.f, 0.f,
                                  std::numeric_limits<float>::denorm_min(), 1e-40f, 1.f, 3e38f, inf};
    for (size_t i = 0; i < ordered.size(); ++i) {
        EXPECT_EQ(std::bit_cast<uint32_t>(q.Unmap(q.Map(ordered[i]))), std::bit_cast<uint32_t>(ordered[i]));
        if (i) {
            EXPECT_LT(q.Map(ordered[i - 1]), q.Map(ordered[i]));
        }
    }
    EXPECT_EQ(q.Map(0.f), 0x80000000u);
    EXPECT_EQ(q.Map(-0.f), 0x7FFFFFFFu);
    for (uint32_t bits : {0x7FC00001u, 0xFFBFFFFFu, 0x7F800001u}) // NaN payloads
        EXPECT_EQ(std::bit_cast<uint32_t>(q.Unmap(q.Map(std::bit_cast<float>(bits)))), bits);
    std::mt19937 rng(4);
    for (int i = 0; i < 100000; ++i) {
        uint32_t c = rng();
        EXPECT_EQ(q.Map(q.Unmap(c)), c);
    }
}

TEST(VnQuantizationUniform, GridAndClamping) {
    VnFloatingPointQuantizationUniform q(-1.f, 3.f, 8.f);
    EXPECT_EQ(q.GetLargestCode(), 32u);
    EXPECT_EQ(q.Map(-1.f), 0u);
    EXPECT_EQ(q.Map(3.f), 32u);
    EXPECT_EQ(q.Map(-5.f), 0u);
    EXPECT_EQ(q.Map(100.f), 32u);
    EXPECT_EQ(q.Map(0.0624f), 8u);  // 8.49 rounds down
    EXPECT_EQ(q.Map(0.0626f), 9u);  // 8.5 rounds up
    EXPECT_EQ(q.Map(std::nanf("")), 0u);
    EXPECT_EQ(q.Map(std::numeric_limits<float>::infinity()), 32u);
    EXPECT_EQ(q.Map(-std::numeric_limits<float>::infinity()), 0u);
    EXPECT_FLOAT_EQ(q.Unmap(9), 0.125f);
    std::mt19937 rng(8);
    std::uniform_real_distribution<float> d(-1.f, 3.f);
    for (int i = 0; i < 10000; ++i) {
        float f = d(rng);
        EXPECT_LE(std::fabs(q.Unmap(q.Map(f)) - f), 0.5f / 8.f + 1e-6f);
    }
}

TEST(VnQuantizationUniform, HostileParametersStayDefined) {
    const float inf = std::numeric_limits<float>::infinity();
    VnFloatingPointQuantizationUniform huge(-3e38f, 3e38f, 1e30f);
    EXPECT_EQ(huge.GetLargestCode(), 4294967040u);
    EXPECT_EQ(huge.Map(3e38f), 4294967040u);
    VnFloatingPointQuantizationUniform nan(std::nanf(""), 1.f, 1.f);
    EXPECT_EQ(nan.GetLargestCode(), 0u);
    EXPECT_EQ(nan.Map(0.5f), 0u);
    VnFloatingPointQuantizationUniform inverted(5.f, 1.f, 2.f);
    EXPECT_EQ(inverted.GetLargestCode(), 0u);
    VnFloatingPointQuantizationUniform infinite(-inf, inf, 1.f);
    EXPECT_EQ(infinite.Map(0.f), infinite.GetLargestCode());
}

} // namespace

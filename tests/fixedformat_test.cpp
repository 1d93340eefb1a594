#include "detail/fixedformat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

namespace {

std::string fixed6(float v) {
    char buf[VnDetail::c_Fixed6MaxChars];
    return std::string(buf, VnDetail::AppendFixed6(buf, v));
}

// The reference: the C library's "%f" of the value promoted to double. The test process
// runs in the "C" locale, so the separator is a point.
std::string printfFixed(float v) {
    char buf[96];
    int n = std::snprintf(buf, sizeof buf, "%f", static_cast<double>(v));
    return std::string(buf, static_cast<size_t>(n));
}

float fromBits(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

} // namespace

TEST(FixedFormat, MatchesPrintfOnEdgeValues) {
    const float values[] = {0.f, -0.f, 1.f, -1.f, 0.5f, 0.1f, 1e-7f, -1e-7f, 4.9999997e-7f, 5e-7f, 1.5e-6f,
                            0.0078125f, 0.0234375f, 0.0390625f, 123456.789f, 16777216.f, 16777217.f, 1e12f,
                            5.49755814e11f, 1.1e12f, 3.4028235e38f, -3.4028235e38f,
                            std::numeric_limits<float>::denorm_min(), -std::numeric_limits<float>::denorm_min(),
                            std::numeric_limits<float>::min(), std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity()};
    for (float v : values) EXPECT_EQ(fixed6(v), printfFixed(v)) << v;
}

TEST(FixedFormat, TiesRoundToEvenLikePrintf) {
    // k / 128 has seven decimals ending in 5 when k is odd: an exact tie at six decimals.
    for (int k = -1024; k <= 1024; ++k) {
        float v = static_cast<float>(k) / 128.f;
        EXPECT_EQ(fixed6(v), printfFixed(v)) << k;
    }
}

TEST(FixedFormat, MatchesPrintfOnEveryExponent) {
    // Every exponent of the float range, several mantissas each, both signs.
    uint32_t seed = 0x9E3779B9u;
    for (uint32_t exponent = 0; exponent < 255; ++exponent)
        for (int i = 0; i < 64; ++i) {
            seed ^= seed << 13;
            seed ^= seed >> 17;
            seed ^= seed << 5;
            uint32_t bits = (seed & 0x807FFFFFu) | (exponent << 23);
            float v = fromBits(bits);
            ASSERT_EQ(fixed6(v), printfFixed(v)) << std::hex << bits;
        }
}

TEST(FixedFormat, NanIsSpelledAsByPrintf) {
    float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(fixed6(nan), printfFixed(nan));
    EXPECT_EQ(fixed6(-nan), printfFixed(-nan));
}

// The OBJ text primitives against the C library they stand in for: atof, atoi, "%f" and
// "%0.12f" must agree byte for byte (the test runs in the "C" locale, as gtest leaves it).
#include "detail/vnobjtext.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

float bitsToFloat(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}


TEST(VnObjTextParseFloat, AgreesWithAtofOnMalformedAndSpecialSpellings) {
    const std::vector<std::string> inputs = {
        "", "0", "-0", "1", "1.5", "-2.25e3", "1e", "1e+", "1.e5", ".5", "-.5", ".", "-", "+1.5", "abc", "1.5abc",
        "12/34", "0x1p3", "-0x1.8p1", "0x", "inf", "-Infinity", "nan", "1e400", "-1e400", "1e-400", "3.4028236e38",
        "1.17549435e-38", "1.4e-45", "7e-46", "0.1", "123456789012345678901234567890", "\v2.5", "1,5", "1e-2x",
        "000000000000000000000000000000000000000000000000000000000001.25", "9.999999999999999999999999e-1"};
    for (const std::string& s : inputs) {
        const float expected = static_cast<float>(std::atof(s.c_str()));
        // The in-place form reads the same token out of a longer line and stops at its end.
        const std::string line = s + "\t7 8";
        float inPlace = -1.f;
        const char* end = VnObjText::ParseFloatToken(line.data(), line.data() + line.size(), inPlace);
        EXPECT_EQ(end - line.data(), static_cast<std::ptrdiff_t>(s.size())) << s;
        for (const float got : {VnObjText::ParseFloat(s), inPlace}) {
            if (std::isnan(expected)) {
                EXPECT_TRUE(std::isnan(got)) << s;
            } else {
                EXPECT_EQ(std::memcmp(&expected, &got, sizeof got), 0) << "'" << s << "' atof " << expected << " got " << got;
            }
        }
    }
}

TEST(VnObjTextParseFloat, RoundsLikeAtofOnRandomDecimals) {
    std::mt19937_64 rng(7);
    char text[64];
    for (int i = 0; i < 20000; ++i) {
        // Shortest float spellings, long double-precision ones and random digit strings.
        const double d = std::ldexp(std::uniform_real_distribution<double>(-1, 1)(rng), static_cast<int>(rng() % 200) - 100);
        switch (i % 3) {
        case 0: std::snprintf(text, sizeof text, "%.9g", d); break;
        case 1: std::snprintf(text, sizeof text, "%.17g", d); break;
        default: std::snprintf(text, sizeof text, "%llu.%llue-%d", static_cast<unsigned long long>(rng() % 100000000),
                               static_cast<unsigned long long>(rng()), static_cast<int>(rng() % 40)); break;
        }
        const float expected = static_cast<float>(std::atof(text));
        const float got = VnObjText::ParseFloat(text);
        ASSERT_EQ(std::memcmp(&expected, &got, sizeof got), 0) << text;
    }
}

TEST(VnObjTextParseInt, AgreesWithAtoi) {
    const std::vector<std::string> inputs = {"", "0", "7", "-7", "+7", "12/5", "3//4", "x", " 42", "\t-3",
                                             "2147483647", "-2147483648", "2147483648", "99999999999",
                                             "-99999999999", "99999999999999999999999", "-", "--1"};
    for (const std::string& s : inputs) EXPECT_EQ(VnObjText::ParseInt(s), std::atoi(s.c_str())) << "'" << s << "'";
}

TEST(VnObjTextTokenizer, RunsOfBlanksAndTabsAreOneDelimiterAndTheEndKeepsAnsweringEmpty) {
    VnObjText::CTokenizer tok("f \t1/2  3\t\t4");
    EXPECT_EQ(tok.Next(), "f");
    EXPECT_EQ(tok.Next(), "1/2");
    EXPECT_EQ(tok.Next(), "3");
    EXPECT_EQ(tok.Next(), "4");
    EXPECT_EQ(tok.Next(), "");
    EXPECT_EQ(tok.Next(), "");
    EXPECT_EQ(VnObjText::Trim(" \t\r x y \r\n"), "x y");
    EXPECT_EQ(VnObjText::Trim(" \r\n"), "");
}

TEST(VnObjTextParseCorner, SinglePassAgreesWithAtoiOnTheTokenAndAfterItsFirstSlash) {
    std::vector<std::string> tokens = {"1", "12/7", "12//3", "12/7/3", "12/", "12x/3", "-1/-2/-3", "/5", "//5",
                                       "0/0", "+3/+4", "1234567890123456789/2", "99999999999/1", "7/x", "7/ 8", ""};
    std::mt19937 rng(3);
    const char alphabet[] = "0123456789//-+x";
    for (int i = 0; i < 20000; ++i) {
        std::string t;
        for (size_t n = rng() % 12; n > 0; --n) t += alphabet[rng() % (sizeof alphabet - 1)];
        tokens.push_back(t);
    }
    for (const std::string& token : tokens) {
        const std::string line = token + " 5\t6";
        VnObjText::SFaceCorner c;
        const char* end = VnObjText::ParseCorner(line.data(), line.data() + line.size(), c);
        const size_t tokenEnd = line.find_first_of(" \t");
        const std::string t = line.substr(0, tokenEnd);
        const size_t slash = t.find('/');
        const bool textured = slash != std::string::npos && (slash + 1 >= t.size() || t[slash + 1] != '/');
        ASSERT_EQ(end - line.data(), static_cast<std::ptrdiff_t>(tokenEnd)) << token;
        ASSERT_EQ(c.vertex, std::atoi(t.c_str())) << token;
        ASSERT_EQ(c.textured, textured) << token;
        ASSERT_EQ(c.texture, textured ? std::atoi(t.c_str() + slash + 1) : 0) << token;
    }
}

template <int Decimals> void expectFixedLikePrintf(float f) {
    char expected[128], got[VnObjText::c_FixedMaxChars + 1];
    std::snprintf(expected, sizeof expected, "%.*f", Decimals, static_cast<double>(f));
    char* end = VnObjText::AppendFixed<Decimals>(got, f);
    ASSERT_EQ(std::string(got, end), expected) << "bits " << std::hex << [&] {
        uint32_t b;
        std::memcpy(&b, &f, 4);
        return b;
    }();
}

TEST(VnObjTextAppendFixed, MatchesPrintfAtSixAndTwelveDecimals) {
    const std::vector<float> special = {0.f, -0.f, 0.5f, 1.f, -1.f, 2.5e-7f, 5e-7f, -5e-7f, 1.5e-6f, 0.0000005f,
                                        1e-13f, 5e-13f, FLT_MAX, -FLT_MAX, FLT_MIN, 1.4e-45f, 16777216.f, 9.3e6f,
                                        1e10f, 9.2e18f, 1e19f, INFINITY, -INFINITY, NAN};
    for (float f : special) {
        expectFixedLikePrintf<6>(f);
        expectFixedLikePrintf<12>(f);
    }
    std::mt19937 rng(11);
    for (int i = 0; i < 200000; ++i) {
        // Random bit patterns cover every exponent; the scaled ones hit the usual ranges.
        const float f = i % 2 ? bitsToFloat(rng()) : std::ldexp(static_cast<float>(rng() % 2000000) - 1e6f, -static_cast<int>(rng() % 30));
        expectFixedLikePrintf<6>(f);
        expectFixedLikePrintf<12>(f);
    }
}

} // namespace

#include "vnbase/vnlzma.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

std::vector<unsigned char> compress(const std::vector<unsigned char>& data, unsigned long setting = 2) {
    VnCompressLZMA c;
    EXPECT_NE(c.Compress(data.data(), static_cast<unsigned long>(data.size()), setting), 0);
    return {c.GetData(), c.GetData() + c.GetSize()};
}

TEST(VnLZMARoundTrip, EmptyWordsRandomAndRepetitive) {
    std::mt19937 rng(1);
    std::vector<std::vector<unsigned char>> inputs;
    inputs.push_back({});
    inputs.push_back({42});
    std::vector<unsigned char> words;
    for (uint32_t i = 0; i < 2000; ++i) {
        uint32_t w = i % 17;
        words.insert(words.end(), reinterpret_cast<unsigned char*>(&w), reinterpret_cast<unsigned char*>(&w) + 4);
    }
    inputs.push_back(words);
    std::vector<unsigned char> noise(70000);
    for (auto& b : noise) b = static_cast<unsigned char>(rng());
    inputs.push_back(noise);
    inputs.push_back(std::vector<unsigned char>(1 << 20, 0));
    for (const auto& in : inputs) {
        for (unsigned long setting : {0ul, 2ul, 9ul, 100ul}) {
            std::vector<unsigned char> packed = compress(in, setting);
            EXPECT_LE(packed.size(), VnDecompressLZMA::MaxBlockSize(in.size()));
            VnDecompressLZMA d(in.size());
            ASSERT_NE(d.Decompress(packed.data(), static_cast<unsigned long>(packed.size())), 0);
            ASSERT_EQ(d.GetSize(), in.size());
            EXPECT_TRUE(in.empty() || std::memcmp(d.GetData(), in.data(), in.size()) == 0);
        }
    }
    EXPECT_LT(compress(words).size(), words.size() / 10);
    EXPECT_LT(compress(std::vector<unsigned char>(1 << 20, 0)).size(), 1000u);
}

TEST(VnLZMAFailure, OutputCapRefusesForgedSizes) {
    std::vector<unsigned char> zeros(1 << 16, 0);
    std::vector<unsigned char> packed = compress(zeros);
    VnDecompressLZMA small(1000);
    EXPECT_EQ(small.Decompress(packed.data(), static_cast<unsigned long>(packed.size())), 0);
    EXPECT_EQ(small.GetSize(), 0u);
    // A recorded size that lies (larger or smaller than the real output) fails.
    for (uint32_t lie : {uint32_t(1 << 16) + 1, uint32_t(1 << 16) - 1, 0xFFFFFFFFu}) {
        std::vector<unsigned char> forged = packed;
        std::memcpy(forged.data() + 1, &lie, 4);
        VnDecompressLZMA d(uint64_t(1) << 33);
        EXPECT_EQ(d.Decompress(forged.data(), static_cast<unsigned long>(forged.size())), 0) << lie;
    }
}

TEST(VnLZMAFailure, TruncatedCorruptAndUnknownMethod) {
    std::vector<unsigned char> text;
    for (int i = 0; i < 5000; ++i) text.push_back(static_cast<unsigned char>("abcab"[i % 5] + i / 1000));
    std::vector<unsigned char> packed = compress(text);
    VnDecompressLZMA d(text.size());
    for (size_t n = 0; n < packed.size(); ++n)
        EXPECT_EQ(d.Decompress(packed.data(), static_cast<unsigned long>(n)), 0) << n;
    EXPECT_EQ(d.Decompress(nullptr, 10), 0);
    std::vector<unsigned char> method = packed;
    method[0] = 7;
    EXPECT_EQ(d.Decompress(method.data(), static_cast<unsigned long>(method.size())), 0);
    std::mt19937 rng(2);
    for (int i = 0; i < 200; ++i) {
        std::vector<unsigned char> flipped = packed;
        flipped[5 + rng() % (flipped.size() - 5)] ^= static_cast<unsigned char>(1 << (rng() % 8));
        if (d.Decompress(flipped.data(), static_cast<unsigned long>(flipped.size()))) {
            EXPECT_EQ(d.GetSize(), text.size());
        }
    }
}

} // namespace

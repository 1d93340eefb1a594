#include "vnbase/vnfloatcoder.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace {

struct SPair {
    float value, prediction;
};

// Writes the pairs through `makeWriter`, appends a sentinel, and checks that the reader
// gives back every value bit for bit and stops exactly at its block's end.
template <class MakeWriter, class MakeReader>
size_t roundTrip(const std::vector<SPair>& pairs, MakeWriter makeWriter, MakeReader makeReader) {
    CbStreamWriteBinaryMemory out;
    {
        auto writer = makeWriter(out);
        for (const SPair& p : pairs) writer->WriteValue(p.value, p.prediction);
        writer->Flush();
    }
    out << uint32_t{0x5EEDu};
    CbStreamReadBinaryMemory in(out.GetData().data(), out.GetSize());
    auto reader = makeReader(in);
    for (size_t i = 0; i < pairs.size(); ++i) {
        float v = reader->ReadValue(pairs[i].prediction);
        EXPECT_EQ(std::bit_cast<uint32_t>(v), std::bit_cast<uint32_t>(pairs[i].value)) << "value " << i;
        if (std::bit_cast<uint32_t>(v) != std::bit_cast<uint32_t>(pairs[i].value)) break;
    }
    uint32_t sentinel = 0;
    in >> sentinel;
    EXPECT_EQ(sentinel, 0x5EEDu);
    return out.GetSize() - 4;
}

size_t losslessRoundTrip(const std::vector<SPair>& pairs) {
    return roundTrip(
        pairs, [&](CbStreamWriteBinary& s) { return std::make_unique<VnStreamWriteCompressedFloatingPoint>(s, static_cast<unsigned>(pairs.size())); },
        [](CbStreamReadBinary& s) { return std::make_unique<VnStreamReadCompressedFloatingPoint>(s); });
}

size_t quantizedRoundTrip(const std::vector<SPair>& pairs, const VnFloatingPointQuantization& q, bool raw = false) {
    return roundTrip(
        pairs, [&](CbStreamWriteBinary& s) { return std::make_unique<VnStreamWriteCompressedFloatingPoint>(s, q, raw, 1000); },
        [&](CbStreamReadBinary& s) { return std::make_unique<VnStreamReadCompressedFloatingPoint>(s, q, raw); });
}

std::vector<float> specials() {
    const float inf = std::numeric_limits<float>::infinity();
    return {0.f, -0.f, inf, -inf, std::bit_cast<float>(0x7FC00123u), std::bit_cast<float>(0xFF800001u),
            std::numeric_limits<float>::denorm_min(), -std::numeric_limits<float>::denorm_min(),
            std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(), 1.f, -1.f};
}

TEST(VnFloatCoderLossless, ExtremeResidualsAndSpecialValues) {
    std::vector<SPair> pairs;
    for (float v : specials())
        for (float p : specials()) pairs.push_back({v, p});
    losslessRoundTrip(pairs);
}

TEST(VnFloatCoderLossless, AdversarialSequences) {
    std::mt19937 rng(12);
    std::vector<SPair> equal(3000, SPair{1.5f, 1.5f}), alternating, random, smooth;
    for (int i = 0; i < 3000; ++i) {
        alternating.push_back({i % 2 ? 1e30f : -1e-30f, i % 2 ? -1e-30f : 1e30f});
        random.push_back({std::bit_cast<float>(static_cast<uint32_t>(rng())), std::bit_cast<float>(static_cast<uint32_t>(rng()))});
        float x = std::sin(i * 0.01f);
        smooth.push_back({x, std::sin((i - 1) * 0.01f)});
    }
    size_t equalBytes = losslessRoundTrip(equal);
    EXPECT_LT(equalBytes, 100u);
    losslessRoundTrip(alternating);
    losslessRoundTrip(random);
    size_t smoothBytes = losslessRoundTrip(smooth);
    EXPECT_LT(smoothBytes, smooth.size() * 4 * 3 / 4); // well below raw floats
    losslessRoundTrip({});
}

TEST(VnFloatCoderQuantized, GridValuesAndEscapes) {
    VnFloatingPointQuantizationUniform q(-10.f, 10.f, 1024.f);
    std::mt19937 rng(13);
    std::uniform_real_distribution<float> d(-10.f, 10.f);
    std::vector<SPair> pairs;
    for (int i = 0; i < 20000; ++i) {
        float v = q.Unmap(q.Map(d(rng)));
        float p = i % 7 == 0 ? std::nanf("") : v + (d(rng) * 0.01f);
        pairs.push_back({v, p});
    }
    // Extremes of the code range and predictions far outside the box.
    pairs.push_back({q.Unmap(0), 1e30f});
    pairs.push_back({q.Unmap(q.GetLargestCode()), -1e30f});
    size_t bytes = quantizedRoundTrip(pairs, q);
    EXPECT_LT(bytes * 8.0 / pairs.size(), 16.0);
    // Values off the grid cannot be coded as codes: they must still come back exactly.
    std::vector<SPair> off = {{0.3f, 0.f}, {1e-7f, 0.f}, {std::numeric_limits<float>::infinity(), 0.f}, {std::nanf("7"), 1.f}};
    quantizedRoundTrip(off, q);
}

TEST(VnFloatCoderQuantized, BitExactQuantizerAndRawMode) {
    VnFloatingPointQuantizationBitExact q;
    std::vector<SPair> pairs;
    for (float v : specials())
        for (float p : specials()) pairs.push_back({v, p});
    quantizedRoundTrip(pairs, q);
    size_t raw = quantizedRoundTrip(pairs, q, true);
    EXPECT_GE(raw, pairs.size() * 4);
}

TEST(VnFloatCoderQuantized, ValueBoundHoldsForPerfectPredictions) {
    VnFloatingPointQuantizationUniform q(0.f, 1.f, 1024.f);
    const unsigned n = 1000000;
    CbStreamWriteBinaryMemory out;
    {
        VnStreamWriteCompressedFloatingPoint w(out, q, false, 1000);
        for (unsigned i = 0; i < n; ++i) w.WriteValue(0.5f, 0.5f);
    }
    CbStreamReadBinaryMemory in(out.GetData().data(), out.GetSize());
    VnStreamReadCompressedFloatingPoint r(in, q, false);
    EXPECT_LE(n, r.GetMaxValues());
    for (unsigned i = 0; i < n; ++i) ASSERT_EQ(r.ReadValue(0.5f), 0.5f);
}

TEST(VnFloatCoderFailure, TruncatedBlocksAndGarbage) {
    CbStreamWriteBinaryMemory out;
    {
        VnStreamWriteCompressedFloatingPoint w(out, 10);
        for (int i = 0; i < 10; ++i) w.WriteValue(i * 0.5f, 0.f);
    }
    std::vector<uint8_t> good = out.GetData();
    for (size_t n = 0; n < good.size(); ++n) {
        CbStreamReadBinaryMemory in(good.data(), n);
        EXPECT_THROW(VnStreamReadCompressedFloatingPoint r(in), CbExceptionStream) << n;
    }
    std::vector<uint8_t> flags = good;
    flags[4] = 0x80;
    CbStreamReadBinaryMemory in(flags.data(), flags.size());
    EXPECT_THROW(VnStreamReadCompressedFloatingPoint r(in), CbExceptionStream);
    // Random payloads decode to some values, past the end included, without reading out of bounds.
    std::mt19937 rng(14);
    VnFloatingPointQuantizationUniform q(0.f, 1.f, 100.f);
    for (int round = 0; round < 30; ++round) {
        CbStreamWriteBinaryMemory junk;
        std::vector<uint8_t> payload(5 + rng() % 30);
        for (auto& b : payload) b = static_cast<uint8_t>(rng());
        payload[0] &= 1;
        VnWriteBlock(junk, payload.data(), payload.size());
        CbStreamReadBinaryMemory jin(junk.GetData().data(), junk.GetSize());
        VnStreamReadCompressedFloatingPoint r(jin, q, false);
        for (int i = 0; i < 500; ++i) r.ReadValue(0.5f);
    }
}

} // namespace

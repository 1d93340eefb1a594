#include "vnbase/vnrangecoder.h"

#include <gtest/gtest.h>

#include <random>

namespace {

std::vector<uint32_t> roundTrip(const std::vector<uint32_t>& symbols, uint32_t alphabet, uint32_t adaptation, size_t* bytes = nullptr) {
    CbStreamWriteBinaryMemory out;
    {
        VnCompressRangeCoder coder(out, alphabet, adaptation);
        for (uint32_t s : symbols) coder.WriteSymbol(s);
        coder.Finish();
    }
    out << uint32_t{0xABCDEF01u}; // whatever follows the block must stay untouched
    if (bytes) *bytes = out.GetSize();
    CbStreamReadBinaryMemory in(out.GetData().data(), out.GetSize());
    VnDecompressRangeCoder decoder(in, alphabet);
    std::vector<uint32_t> back;
    for (size_t i = 0; i < symbols.size(); ++i) back.push_back(static_cast<uint32_t>(decoder.ReadSymbol()));
    uint32_t sentinel = 0;
    in >> sentinel;
    EXPECT_EQ(sentinel, 0xABCDEF01u);
    return back;
}

TEST(VnRangeCoderRoundTrip, AdversarialStrings) {
    std::mt19937 rng(7);
    for (uint32_t alphabet : {1u, 2u, 5u, 16u, 17u, 34u, 300u, 4096u}) {
        for (uint32_t adaptation : {0u, 1u, 16u, 1000u, 100000u}) {
            std::vector<uint32_t> equal(5000, alphabet - 1);
            std::vector<uint32_t> alternating, random, ramp;
            for (uint32_t i = 0; i < 5000; ++i) {
                alternating.push_back(i % 2 ? alphabet - 1 : 0);
                random.push_back(rng() % alphabet);
                ramp.push_back((i / 100) % alphabet);
            }
            for (const auto* s : {&equal, &alternating, &random, &ramp})
                EXPECT_EQ(roundTrip(*s, alphabet, adaptation), *s) << "alphabet " << alphabet << " adaptation " << adaptation;
        }
    }
}

TEST(VnRangeCoderRoundTrip, EmptyAndSingleSymbol) {
    EXPECT_TRUE(roundTrip({}, 5, 0).empty());
    EXPECT_EQ(roundTrip({4}, 5, 0), std::vector<uint32_t>{4});
}

TEST(VnRangeCoderRoundTrip, SkewedStringsCompress) {
    // Mostly C and R, as closed meshes produce: far below the 2.32 bits of a flat model.
    std::mt19937 rng(3);
    std::vector<uint32_t> s;
    for (int i = 0; i < 100000; ++i) s.push_back(rng() % 4 == 0 ? 3 : 0);
    size_t bytes = 0;
    EXPECT_EQ(roundTrip(s, 5, static_cast<uint32_t>(s.size() / 4), &bytes), s);
    EXPECT_LT(bytes * 8.0 / s.size(), 0.85); // entropy of 1/4 vs 3/4 is 0.811
    // The order-1 model catches strict alternation almost for free.
    std::vector<uint32_t> alt;
    for (int i = 0; i < 100000; ++i) alt.push_back(i % 2 ? 0 : 3);
    EXPECT_EQ(roundTrip(alt, 5, 0, &bytes), alt);
    EXPECT_LT(bytes, 450u); // the model floor costs 0.0227 bits a symbol at best
}

// Readers refuse symbol counts above MaxSymbols(payload) before allocating; the most
// compressible honest strings must stay below that bound or valid streams would be refused.
TEST(VnRangeCoderModel, SymbolBoundHoldsForTheMostSkewedStrings) {
    for (uint32_t alphabet : {2u, 5u, 16u, 34u}) {
        const uint32_t n = 2000000;
        CbStreamWriteBinaryMemory out;
        {
            VnCompressRangeCoder coder(out, alphabet, n / 4);
            for (uint32_t i = 0; i < n; ++i) coder.WriteSymbol(0);
        }
        CbStreamReadBinaryMemory in(out.GetData().data(), out.GetSize());
        VnDecompressRangeCoder decoder(in, alphabet);
        EXPECT_LE(n, decoder.GetMaxSymbols()) << alphabet;
        EXPECT_GT(n, decoder.GetMaxSymbols() / 2) << "the bound should be tight enough to mean something";
        for (uint32_t i = 0; i < n; ++i) ASSERT_EQ(decoder.ReadSymbol(), 0u);
    }
}

TEST(VnRangeCoderModel, CallerModelsAndBits) {
    CbStreamWriteBinaryMemory out;
    std::mt19937 rng(11);
    std::vector<uint32_t> values;
    {
        VnCompressRangeCoder coder(out, 34, 64);
        VnProbabilityModelQuasiStatic a(34, 64), b(34, 64);
        for (int i = 0; i < 3000; ++i) {
            uint32_t v = rng() % 34;
            values.push_back(v);
            coder.WriteSymbol(v, i % 3 ? a : b);
        }
    }
    CbStreamReadBinaryMemory in(out.GetData().data(), out.GetSize());
    VnDecompressRangeCoder decoder(in, 34);
    VnProbabilityModelQuasiStatic a(34, 64), b(34, 64);
    for (int i = 0; i < 3000; ++i) ASSERT_EQ(decoder.ReadSymbol(i % 3 ? a : b), values[i]);
}

TEST(VnRangeCoderCore, BitsAndDecisionsInterleaved) {
    std::mt19937 rng(5);
    VnRangeEncoder enc;
    VnBitModel m;
    VnProbabilityModelQuasiStatic model(7, 0);
    std::vector<uint32_t> v;
    for (int i = 0; i < 20000; ++i) {
        uint32_t bits = 1 + rng() % 16, x = rng() & ((1u << bits) - 1), b = (rng() % 10) == 0, s = rng() % 7;
        v.insert(v.end(), {bits, x, b, s});
        enc.EncodeBits(x, bits);
        enc.EncodeBit(b, m);
        enc.EncodeSymbol(s, model);
    }
    std::vector<uint8_t> bytes = enc.Finish();
    VnRangeDecoder dec(bytes);
    VnBitModel m2;
    VnProbabilityModelQuasiStatic model2(7, 0);
    for (size_t i = 0; i < v.size(); i += 4) {
        ASSERT_EQ(dec.DecodeBits(v[i]), v[i + 1]);
        ASSERT_EQ(dec.DecodeBit(m2), v[i + 2]);
        ASSERT_EQ(dec.DecodeSymbol(model2), v[i + 3]);
    }
}

TEST(VnRangeCoderFailure, BadArgumentsAndBlocks) {
    CbStreamWriteBinaryMemory out;
    EXPECT_THROW(VnCompressRangeCoder(out, 0, 0), CbExceptionPreconditionViolation);
    EXPECT_THROW(VnCompressRangeCoder(out, 4097, 0), CbExceptionPreconditionViolation);
    {
        VnCompressRangeCoder coder(out, 5, 0);
        EXPECT_THROW(coder.WriteSymbol(5), CbExceptionPreconditionViolation);
        coder.WriteSymbol(2);
    }
    std::vector<uint8_t> good = out.GetData();
    // Every truncated prefix fails as a stream error.
    for (size_t n = 0; n < good.size(); ++n) {
        CbStreamReadBinaryMemory in(good.data(), n);
        EXPECT_THROW(VnDecompressRangeCoder(in, 5), CbExceptionStream) << n;
    }
    // A forged length far beyond the data.
    std::vector<uint8_t> forged = good;
    forged[3] = 0x7F;
    CbStreamReadBinaryMemory in(forged.data(), forged.size());
    EXPECT_THROW(VnDecompressRangeCoder(in, 5), CbExceptionStream);
    // An unknown context kind.
    std::vector<uint8_t> kind = good;
    kind[8] = 9;
    CbStreamReadBinaryMemory in2(kind.data(), kind.size());
    EXPECT_THROW(VnDecompressRangeCoder(in2, 5), CbExceptionStream);
}

TEST(VnRangeCoderFailure, GarbageDecodesToValidSymbols) {
    std::mt19937 rng(9);
    for (int round = 0; round < 50; ++round) {
        CbStreamWriteBinaryMemory out;
        std::vector<uint8_t> payload(5 + rng() % 40);
        for (auto& b : payload) b = static_cast<uint8_t>(rng());
        payload[4] = static_cast<uint8_t>(rng() % 2);
        VnWriteBlock(out, payload.data(), payload.size());
        CbStreamReadBinaryMemory in(out.GetData().data(), out.GetSize());
        VnDecompressRangeCoder decoder(in, 5);
        for (int i = 0; i < 1000; ++i) ASSERT_LT(decoder.ReadSymbol(), 5u);
    }
}

} // namespace

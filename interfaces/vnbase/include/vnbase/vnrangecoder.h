#pragma once
// Adaptive range coding of symbol strings.
//
// The coder is byte oriented: 64-bit low with a carry cache, 32-bit range, renormalised
// a byte at a time (the carry is propagated through a run of pending 0xFF bytes, so the
// output never needs to be patched). Frequencies come from VnProbabilityModelQuasiStatic,
// whose table always sums to 2^15 so that the division of the classic coder becomes a shift.
// Binary decisions use 12-bit adaptive probabilities, and raw bits are coded by shifting.
//
// On a stream every coder block is self-delimiting: u32 payload byte count, then the
// payload. A decoder consumes exactly its block up front, so it can never read into the
// next block, and past the end of its payload it only sees zero bytes.
//
// Compressed block of VnCompressRangeCoder: u32 adaptation, u8 context kind (0: one model,
// 1: one model per previous symbol), then the range-coded bytes.
#include <cstdint>
#include <span>
#include <vector>

#include "basepool/cbstreambinary.h"

class VnProbabilityModelQuasiStatic {
public:
    static constexpr uint32_t kTotalBits = 15;
    static constexpr uint32_t kMaxAlphabet = 4096;
    // With two symbols or more, no symbol is ever coded in fewer bits than this: -log2(1 - 1/64).
    static constexpr double kMinSymbolBits = 0.0227;
    // The most symbols of an alphabet of two or more that `payloadBytes` of range-coded
    // output can hold; a decoder refuses larger counts before allocating for them.
    static constexpr uint64_t MaxSymbols(uint64_t payloadBytes) { return (payloadBytes + 8) * 8 * 45; }

    // `adaptation` caps the number of symbols between two rebuilds of the table; 0 picks a
    // default. Rebuilds start every few symbols and their period doubles up to the cap, so
    // the model learns fast at first and then costs almost nothing.
    // Throws CbExceptionPreconditionViolation for an alphabet of 0 or above kMaxAlphabet.
    VnProbabilityModelQuasiStatic(uint32_t alphabetSize, uint32_t adaptation);

    uint32_t GetAlphabetSize() const { return m_alphabet; }
    uint32_t Cumulative(uint32_t symbol) const { return m_cum[symbol]; }
    uint32_t Frequency(uint32_t symbol) const { return m_cum[symbol + 1] - m_cum[symbol]; }
    // The symbol whose interval holds `target` (< 2^15).
    uint32_t FindSymbol(uint32_t target) const {
        uint32_t s = m_lookup[target >> kLookupShift];
        while (m_cum[s + 1] <= target) ++s;
        return s;
    }
    void Update(uint32_t symbol) {
        ++m_counts[symbol];
        if (--m_untilRescale == 0) rescale();
    }

private:
    static constexpr uint32_t kLookupShift = 8;
    void rescale();

    uint32_t m_alphabet;
    uint32_t m_periodCap;
    uint32_t m_period;
    uint32_t m_untilRescale;
    std::vector<uint32_t> m_counts;
    std::vector<uint32_t> m_cum; // alphabet + 1 entries, m_cum[alphabet] == 2^15
    std::vector<uint16_t> m_lookup;
};

// Adaptive probability of a binary decision (of the bit being 0), 12 bits.
struct VnBitModel {
    uint16_t p0 = 2048;
};

// The arithmetic core, writing to memory.
class VnRangeEncoder {
public:
    VnRangeEncoder() = default;
    void Reserve(size_t bytes) { m_out.reserve(bytes); }
    void Encode(uint32_t cumulative, uint32_t frequency) {
        uint32_t r = m_range >> VnProbabilityModelQuasiStatic::kTotalBits;
        m_low += static_cast<uint64_t>(r) * cumulative;
        m_range = r * frequency;
        normalize();
    }
    void EncodeSymbol(uint32_t symbol, VnProbabilityModelQuasiStatic& model) {
        Encode(model.Cumulative(symbol), model.Frequency(symbol));
        model.Update(symbol);
    }
    void EncodeBit(uint32_t bit, VnBitModel& m) {
        uint32_t bound = (m_range >> 12) * m.p0;
        if (bit == 0) {
            m_range = bound;
            m.p0 = static_cast<uint16_t>(m.p0 + ((4096 - m.p0) >> 4));
        } else {
            m_low += bound;
            m_range -= bound;
            m.p0 = static_cast<uint16_t>(m.p0 - (m.p0 >> 4));
        }
        normalize();
    }
    // Codes the low `bits` bits of `value` with equal probability; bits <= 16.
    void EncodeBits(uint32_t value, uint32_t bits) {
        m_range >>= bits;
        m_low += static_cast<uint64_t>(m_range) * (value & ((1u << bits) - 1));
        normalize();
    }
    // Flushes the coder state and returns the complete output.
    const std::vector<uint8_t>& Finish();
    size_t GetSize() const { return m_out.size(); }

private:
    void normalize() {
        while (m_range < (1u << 24)) {
            m_range <<= 8;
            shiftLow();
        }
    }
    void shiftLow();

    std::vector<uint8_t> m_out;
    uint64_t m_low = 0;
    uint32_t m_range = 0xFFFFFFFFu;
    uint8_t m_cache = 0;
    uint64_t m_cacheSize = 1;
    bool m_finished = false;
};

// The arithmetic core, reading from memory it does not own.
class VnRangeDecoder {
public:
    VnRangeDecoder() = default;
    explicit VnRangeDecoder(std::span<const uint8_t> bytes) { Start(bytes); }
    void Start(std::span<const uint8_t> bytes);
    uint32_t DecodeSymbol(VnProbabilityModelQuasiStatic& model) {
        uint32_t r = m_range >> VnProbabilityModelQuasiStatic::kTotalBits;
        uint32_t target = m_code / r;
        // Only a corrupt stream gets here with a target past the table; clamp it so the
        // result is still a valid symbol.
        if (target >= (1u << VnProbabilityModelQuasiStatic::kTotalBits))
            target = (1u << VnProbabilityModelQuasiStatic::kTotalBits) - 1;
        uint32_t s = model.FindSymbol(target);
        m_code -= r * model.Cumulative(s);
        m_range = r * model.Frequency(s);
        normalize();
        model.Update(s);
        return s;
    }
    uint32_t DecodeBit(VnBitModel& m) {
        uint32_t bound = (m_range >> 12) * m.p0;
        uint32_t bit;
        if (m_code < bound) {
            m_range = bound;
            m.p0 = static_cast<uint16_t>(m.p0 + ((4096 - m.p0) >> 4));
            bit = 0;
        } else {
            m_code -= bound;
            m_range -= bound;
            m.p0 = static_cast<uint16_t>(m.p0 - (m.p0 >> 4));
            bit = 1;
        }
        normalize();
        return bit;
    }
    uint32_t DecodeBits(uint32_t bits) {
        m_range >>= bits;
        uint32_t v = m_code / m_range;
        if (v >> bits) v = (1u << bits) - 1; // corrupt input only
        m_code -= v * m_range;
        normalize();
        return v;
    }

private:
    uint8_t nextByte() { return m_cur < m_end ? *m_cur++ : 0; }
    void normalize() {
        while (m_range < (1u << 24)) {
            m_range <<= 8;
            m_code = (m_code << 8) | nextByte();
        }
    }
    const uint8_t* m_cur = nullptr;
    const uint8_t* m_end = nullptr;
    uint32_t m_code = 0;
    uint32_t m_range = 0xFFFFFFFFu;
};

// Writes one self-delimiting block (u32 byte count, then the bytes).
void VnWriteBlock(CbStreamWriteBinary& stream, const void* data, size_t size);
// Reads one block written by VnWriteBlock. A count above `maxBytes`, or above what the stream
// still holds, throws CbExceptionStream before anything is allocated; the bytes are read in
// chunks, so a stream of unknown size never makes it allocate more than it delivers.
std::vector<uint8_t> VnReadBlock(CbStreamReadBinary& stream, uint64_t maxBytes);

// Range coder over a stream with its own model(s).
class VnCompressRangeCoder {
public:
    // Codes symbols below `alphabetSize`; `adaptation` as for the model (0 is legal).
    // Throws CbExceptionPreconditionViolation for an alphabet the model refuses.
    VnCompressRangeCoder(CbStreamWriteBinary& stream, unsigned long alphabetSize, unsigned long adaptation);
    // Finishes the code unless Finish ran or an exception is unwinding (a write error in a
    // destructor cannot be reported, so call Finish to see it).
    ~VnCompressRangeCoder();
    VnCompressRangeCoder(const VnCompressRangeCoder&) = delete;
    VnCompressRangeCoder& operator=(const VnCompressRangeCoder&) = delete;

    // Codes with the coder's own models: one per previous symbol for small alphabets.
    void WriteSymbol(unsigned long symbol);
    // Codes with a caller's model (which must have this coder's alphabet size).
    void WriteSymbol(unsigned long symbol, VnProbabilityModelQuasiStatic& model);
    // The first of the coder's own models.
    VnProbabilityModelQuasiStatic& GetModel() { return m_models.front(); }
    // Writes the block; later calls do nothing. Throws CbExceptionStream on a write error.
    void Finish();

private:
    CbStreamWriteBinary& m_stream;
    uint32_t m_alphabet;
    uint32_t m_adaptation;
    bool m_order1;
    uint32_t m_previous = 0;
    std::vector<VnProbabilityModelQuasiStatic> m_models;
    VnRangeEncoder m_encoder;
    bool m_finished = false;
};

class VnDecompressRangeCoder {
public:
    // Reads the whole block of the matching VnCompressRangeCoder. Throws CbExceptionStream
    // when the block is truncated or malformed.
    VnDecompressRangeCoder(CbStreamReadBinary& stream, unsigned long alphabetSize);
    VnDecompressRangeCoder(const VnDecompressRangeCoder&) = delete;
    VnDecompressRangeCoder& operator=(const VnDecompressRangeCoder&) = delete;

    // Always returns a symbol below the alphabet size, whatever the bytes were.
    unsigned long ReadSymbol();
    unsigned long ReadSymbol(VnProbabilityModelQuasiStatic& model);
    VnProbabilityModelQuasiStatic& GetModel() { return m_models.front(); }
    // Bytes of the block read (count word included), and the most symbols it can hold.
    uint64_t GetBlockSize() const { return m_block.size() + 4; }
    uint64_t GetMaxSymbols() const { return VnProbabilityModelQuasiStatic::MaxSymbols(m_block.size()); }

private:
    std::vector<uint8_t> m_block;
    uint32_t m_alphabet;
    bool m_order1 = false;
    uint32_t m_previous = 0;
    std::vector<VnProbabilityModelQuasiStatic> m_models;
    VnRangeDecoder m_decoder;
};

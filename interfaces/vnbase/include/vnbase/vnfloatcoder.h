#pragma once
// Compressed coding of float values against a prediction.
//
// Design. Each value is coded as the difference between its code and the code of its
// prediction under a quantiser (the uniform grid, or the bit-exact order-preserving map when
// no quantiser is given), taken as a signed 32-bit residual d. A residual is sent as:
//   1. its bit length n = bit_width(|d|) (0..32) as one symbol of a quasi-static range-coder
//      model; the model is chosen by the context (n1 + n2 + 1) / 2 of the two previous bit
//      lengths of the same stream, since residual magnitudes come in smooth runs along a
//      traversal;
//   2. for n >= 1 its sign, an adaptive binary decision per n;
//   3. the two bits below the leading one, adaptive binary decisions per n and prefix
//      (residuals are roughly Laplacian, so small mantissas are more likely);
//   4. the remaining n - 3 bits unmodelled.
// A value that the quantiser cannot reproduce exactly (not one of its reconstructed values)
// is sent as an escape symbol followed by its 32 raw bits, so ReadValue always returns
// exactly what WriteValue was given.
//
// Each coder writes one self-delimiting block (u32 byte count, then: u8 flags, bit 0 raw;
// u32 adaptation; range-coded bytes). In raw mode every value is its 32 float bits, without
// modelling. The reader takes the flags and the adaptation from its block.
#include <cstdint>
#include <vector>

#include "basepool/cbstreambinary.h"
#include "vnbase/vnquantization.h"
#include "vnbase/vnrangecoder.h"

// Modelling state shared by the writer and the reader; both must evolve it identically.
class VnFloatResidualModels {
public:
    static constexpr uint32_t kLengthSymbols = 34; // bit lengths 0..32, then the escape
    static constexpr uint32_t kEscape = 33;
    static constexpr uint32_t kContexts = 33;

    explicit VnFloatResidualModels(uint32_t adaptation);
    VnProbabilityModelQuasiStatic& LengthModel() { return m_length[(m_n1 + m_n2 + 1) >> 1]; }
    VnBitModel& Sign(uint32_t n) { return m_sign[n]; }
    VnBitModel& Mantissa(uint32_t n, uint32_t prefix) { return m_mantissa[n][prefix]; }
    void Push(uint32_t n) {
        m_n2 = m_n1;
        m_n1 = n;
    }

private:
    std::vector<VnProbabilityModelQuasiStatic> m_length;
    VnBitModel m_sign[33];
    VnBitModel m_mantissa[33][4];
    uint32_t m_n1 = 0, m_n2 = 0;
};

class VnStreamWriteCompressedFloatingPoint {
public:
    // Codes values of `quantizer` (which must outlive the coder). `raw` stores plain float
    // bits; `adaptation` caps the model's rebuild period (0: default).
    VnStreamWriteCompressedFloatingPoint(CbStreamWriteBinary& stream, const VnFloatingPointQuantization& quantizer,
                                         bool raw, unsigned int adaptation);
    // Lossless coder for arbitrary floats; `count` is the expected number of values.
    VnStreamWriteCompressedFloatingPoint(CbStreamWriteBinary& stream, unsigned int count);
    // Flushes unless Flush ran or an exception is unwinding.
    ~VnStreamWriteCompressedFloatingPoint();
    VnStreamWriteCompressedFloatingPoint(const VnStreamWriteCompressedFloatingPoint&) = delete;
    VnStreamWriteCompressedFloatingPoint& operator=(const VnStreamWriteCompressedFloatingPoint&) = delete;

    void WriteValue(float value, float prediction);
    // Writes the block to the stream; later calls do nothing. Throws CbExceptionStream.
    void Flush();
    // Bytes of the block (count word included), valid after Flush.
    size_t GetBlockSize() const { return m_blockSize; }

private:
    uint32_t code(float value) const;

    CbStreamWriteBinary& m_stream;
    const VnFloatingPointQuantization* m_quantizer; // null: bit exact
    const VnFloatingPointQuantizationUniform* m_uniform;
    bool m_raw;
    uint32_t m_adaptation;
    VnFloatResidualModels m_models;
    VnRangeEncoder m_encoder;
    bool m_flushed = false;
    size_t m_blockSize = 0;
};

class VnStreamReadCompressedFloatingPoint {
public:
    // Reads the whole block of the matching writer. The stored flags win over `raw`, which
    // is accepted for symmetry. Throws CbExceptionStream on a truncated or malformed block.
    VnStreamReadCompressedFloatingPoint(CbStreamReadBinary& stream, const VnFloatingPointQuantization& quantizer, bool raw);
    explicit VnStreamReadCompressedFloatingPoint(CbStreamReadBinary& stream);
    VnStreamReadCompressedFloatingPoint(const VnStreamReadCompressedFloatingPoint&) = delete;
    VnStreamReadCompressedFloatingPoint& operator=(const VnStreamReadCompressedFloatingPoint&) = delete;

    // Never fails: a corrupt block yields some values, never an out-of-bounds read.
    float ReadValue(float prediction);
    // Bytes of the block read (count word included), and the most values it can hold: a
    // caller refuses larger counts before allocating for them.
    uint64_t GetBlockSize() const { return m_block.size() + 4; }
    uint64_t GetMaxValues() const;

private:
    static std::vector<uint8_t> readBlock(CbStreamReadBinary& stream);
    uint32_t code(float value) const;
    float value(uint32_t code) const;

    const VnFloatingPointQuantization* m_quantizer;
    const VnFloatingPointQuantizationUniform* m_uniform;
    std::vector<uint8_t> m_block;
    bool m_raw = false;
    VnFloatResidualModels m_models;
    VnRangeDecoder m_decoder;
};

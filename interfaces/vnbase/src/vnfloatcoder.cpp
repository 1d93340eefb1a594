#include "vnbase/vnfloatcoder.h"

#include <algorithm>
#include <bit>
#include <exception>

namespace {
constexpr const char* kSource = "vnlibraries/vnbase/vnfloatcoder";
constexpr uint32_t kDefaultAdaptation = 1024;
constexpr size_t kHeader = 5;
constexpr uint8_t kFlagRaw = 1;
// Reservation hint per value (about what a lossless value costs), bounded.
constexpr size_t kReserveCap = 1u << 22;

using BitExact = VnFloatingPointQuantizationBitExact;

uint32_t readU32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

const VnFloatingPointQuantizationUniform* asUniform(const VnFloatingPointQuantization* q) {
    return q && q->GetKind() == VnFloatingPointQuantization::eUniform ? static_cast<const VnFloatingPointQuantizationUniform*>(q)
                                                                       : nullptr;
}
} // namespace

VnFloatResidualModels::VnFloatResidualModels(uint32_t adaptation)
    : m_length(kContexts, VnProbabilityModelQuasiStatic(kLengthSymbols, adaptation)) {}

// ---- writer ----

VnStreamWriteCompressedFloatingPoint::VnStreamWriteCompressedFloatingPoint(CbStreamWriteBinary& stream,
                                                                           const VnFloatingPointQuantization& quantizer,
                                                                           bool raw, unsigned int adaptation)
    : m_stream(stream), m_quantizer(&quantizer), m_uniform(asUniform(&quantizer)), m_raw(raw), m_adaptation(adaptation),
      m_models(adaptation) {}

VnStreamWriteCompressedFloatingPoint::VnStreamWriteCompressedFloatingPoint(CbStreamWriteBinary& stream, unsigned int count)
    : m_stream(stream), m_quantizer(nullptr), m_uniform(nullptr), m_raw(false), m_adaptation(kDefaultAdaptation),
      m_models(kDefaultAdaptation) {
    m_encoder.Reserve(std::min<size_t>(static_cast<size_t>(count) * 3, kReserveCap));
}

VnStreamWriteCompressedFloatingPoint::~VnStreamWriteCompressedFloatingPoint() {
    if (m_flushed || std::uncaught_exceptions() > 0) return;
    try {
        Flush();
    } catch (const CbException&) {
        // Cannot be reported from a destructor; callers who care call Flush.
    }
}

uint32_t VnStreamWriteCompressedFloatingPoint::code(float value) const {
    if (m_uniform) return m_uniform->mapInline(value);
    if (!m_quantizer || m_quantizer->GetKind() == VnFloatingPointQuantization::eLogarithmic) return BitExact::MapBits(value);
    return m_quantizer->Map(value);
}

void VnStreamWriteCompressedFloatingPoint::WriteValue(float value, float prediction) {
    uint32_t bits = std::bit_cast<uint32_t>(value);
    if (m_raw) {
        m_encoder.EncodeBits(bits & 0xFFFFu, 16);
        m_encoder.EncodeBits(bits >> 16, 16);
        return;
    }
    uint32_t c = code(value);
    if (m_uniform && std::bit_cast<uint32_t>(m_uniform->Unmap(c)) != bits) {
        m_encoder.EncodeSymbol(VnFloatResidualModels::kEscape, m_models.LengthModel());
        m_encoder.EncodeBits(bits & 0xFFFFu, 16);
        m_encoder.EncodeBits(bits >> 16, 16);
        m_models.Push(32);
        return;
    }
    uint32_t d = c - code(prediction);
    uint32_t negative = d >> 31;
    uint32_t magnitude = negative ? 0u - d : d;
    uint32_t n = static_cast<uint32_t>(std::bit_width(magnitude));
    m_encoder.EncodeSymbol(n, m_models.LengthModel());
    m_models.Push(n);
    if (n == 0) return;
    m_encoder.EncodeBit(negative, m_models.Sign(n));
    // Bits below the leading one, from the top: two modelled, the rest raw.
    int below = static_cast<int>(n) - 1;
    uint32_t prefix = 1;
    for (int k = 0; k < 2 && below > 0; ++k) {
        uint32_t bit = (magnitude >> (below - 1)) & 1u;
        m_encoder.EncodeBit(bit, m_models.Mantissa(n, prefix));
        prefix = (prefix << 1) | bit;
        --below;
    }
    while (below > 16) {
        below -= 16;
        m_encoder.EncodeBits(magnitude >> below, 16);
    }
    if (below > 0) m_encoder.EncodeBits(magnitude, static_cast<uint32_t>(below));
}

void VnStreamWriteCompressedFloatingPoint::Flush() {
    if (m_flushed) return;
    m_flushed = true;
    const std::vector<uint8_t>& bytes = m_encoder.Finish();
    m_stream << static_cast<uint32_t>(bytes.size() + kHeader);
    m_stream << static_cast<uint8_t>(m_raw ? kFlagRaw : 0) << m_adaptation;
    m_stream.WriteBuffer(bytes.data(), bytes.size());
    m_blockSize = 4 + kHeader + bytes.size();
}

// ---- reader ----

std::vector<uint8_t> VnStreamReadCompressedFloatingPoint::readBlock(CbStreamReadBinary& stream) {
    std::vector<uint8_t> block = VnReadBlock(stream, 0xFFFFFFFFu);
    if (block.size() < kHeader || (block[0] & ~kFlagRaw) != 0)
        throw CbExceptionStream(kSource, __LINE__, "VnStreamReadCompressedFloatingPoint::VnStreamReadCompressedFloatingPoint");
    return block;
}

VnStreamReadCompressedFloatingPoint::VnStreamReadCompressedFloatingPoint(CbStreamReadBinary& stream,
                                                                         const VnFloatingPointQuantization& quantizer, bool)
    : m_quantizer(&quantizer), m_uniform(asUniform(&quantizer)), m_block(readBlock(stream)), m_raw(m_block[0] & kFlagRaw),
      m_models(readU32(m_block.data() + 1)) {
    m_decoder.Start(std::span<const uint8_t>(m_block).subspan(kHeader));
}

VnStreamReadCompressedFloatingPoint::VnStreamReadCompressedFloatingPoint(CbStreamReadBinary& stream)
    : m_quantizer(nullptr), m_uniform(nullptr), m_block(readBlock(stream)), m_raw(m_block[0] & kFlagRaw),
      m_models(readU32(m_block.data() + 1)) {
    m_decoder.Start(std::span<const uint8_t>(m_block).subspan(kHeader));
}

uint32_t VnStreamReadCompressedFloatingPoint::code(float v) const {
    if (m_uniform) return m_uniform->mapInline(v);
    if (!m_quantizer || m_quantizer->GetKind() == VnFloatingPointQuantization::eLogarithmic) return BitExact::MapBits(v);
    return m_quantizer->Map(v);
}

float VnStreamReadCompressedFloatingPoint::value(uint32_t c) const {
    if (m_uniform) return m_uniform->Unmap(c);
    if (!m_quantizer || m_quantizer->GetKind() == VnFloatingPointQuantization::eLogarithmic) return BitExact::UnmapBits(c);
    return m_quantizer->Unmap(c);
}

float VnStreamReadCompressedFloatingPoint::ReadValue(float prediction) {
    if (m_raw) {
        uint32_t low = m_decoder.DecodeBits(16);
        return std::bit_cast<float>(low | m_decoder.DecodeBits(16) << 16);
    }
    uint32_t n = m_decoder.DecodeSymbol(m_models.LengthModel());
    if (n == VnFloatResidualModels::kEscape) {
        m_models.Push(32);
        uint32_t low = m_decoder.DecodeBits(16);
        return std::bit_cast<float>(low | m_decoder.DecodeBits(16) << 16);
    }
    m_models.Push(n);
    uint32_t magnitude = 0;
    if (n > 0) {
        uint32_t negative = m_decoder.DecodeBit(m_models.Sign(n));
        int below = static_cast<int>(n) - 1;
        uint32_t prefix = 1;
        for (int k = 0; k < 2 && below > 0; ++k) {
            prefix = (prefix << 1) | m_decoder.DecodeBit(m_models.Mantissa(n, prefix));
            --below;
        }
        magnitude = prefix;
        while (below > 16) {
            below -= 16;
            magnitude = (magnitude << 16) | m_decoder.DecodeBits(16);
        }
        if (below > 0) magnitude = (magnitude << below) | m_decoder.DecodeBits(static_cast<uint32_t>(below));
        if (negative) magnitude = 0u - magnitude;
    }
    return value(code(prediction) + magnitude);
}

uint64_t VnStreamReadCompressedFloatingPoint::GetMaxValues() const {
    // Raw values take 32 bits each; modelled ones at least one length symbol.
    if (m_raw) return (m_block.size() + 8) / 4;
    return VnProbabilityModelQuasiStatic::MaxSymbols(m_block.size());
}

#include "vnbase/vnrangecoder.h"

#include <algorithm>
#include <exception>

namespace {
constexpr const char* kSource = "vnlibraries/vnbase/vnrangecoder";
constexpr uint32_t kTotal = 1u << VnProbabilityModelQuasiStatic::kTotalBits;
constexpr uint32_t kFirstPeriod = 16;
constexpr uint32_t kDefaultPeriodCap = 1024;
// Past this many symbols the counts are halved, so old statistics fade out slowly and the
// sums stay far from overflow.
constexpr uint32_t kCountLimit = 1u << 16;
// Order-1 contexts are worth it only while the tables stay small.
constexpr uint32_t kMaxOrder1Alphabet = 16;
// Reading a block of unknown size grows the buffer at most by this much per step.
constexpr size_t kReadChunk = 1u << 16;
} // namespace

VnProbabilityModelQuasiStatic::VnProbabilityModelQuasiStatic(uint32_t alphabetSize, uint32_t adaptation)
    : m_alphabet(alphabetSize) {
    if (alphabetSize == 0 || alphabetSize > kMaxAlphabet)
        throw CbExceptionPreconditionViolation(kSource, __LINE__, "VnProbabilityModelQuasiStatic::VnProbabilityModelQuasiStatic");
    m_periodCap = adaptation == 0 ? kDefaultPeriodCap : std::clamp<uint32_t>(adaptation, kFirstPeriod, kCountLimit / 2);
    m_period = std::min(kFirstPeriod, m_periodCap);
    m_untilRescale = m_period;
    m_counts.assign(m_alphabet, 0);
    m_cum.resize(m_alphabet + 1);
    m_lookup.resize(kTotal >> kLookupShift);
    rescale();
}

void VnProbabilityModelQuasiStatic::rescale() {
    uint64_t sum = 0;
    for (uint32_t c : m_counts) sum += c;
    // Every symbol keeps a floor frequency, and the floors of all symbols but one add up to
    // at least 1/64 of the total: no symbol ever costs less than kMinSymbolBits, which bounds
    // how many symbols a block of a given size can honestly hold. The rest is shared in
    // proportion to the counts.
    uint32_t floor = m_alphabet > 1 ? std::max<uint32_t>(1, (kTotal / 64 + m_alphabet - 2) / (m_alphabet - 1)) : 1;
    uint32_t spare = kTotal - floor * m_alphabet;
    uint32_t cum = 0;
    uint32_t best = 0;
    for (uint32_t s = 0; s < m_alphabet; ++s) {
        m_cum[s] = cum;
        uint32_t f = floor + (sum ? static_cast<uint32_t>(static_cast<uint64_t>(m_counts[s]) * spare / sum) : spare / m_alphabet);
        cum += f;
        if (m_counts[s] > m_counts[best]) best = s;
    }
    // Rounding leftovers go to the most frequent symbol, where they cost the least.
    uint32_t left = kTotal - cum;
    for (uint32_t s = best + 1; s <= m_alphabet; ++s) m_cum[s] += left;
    m_cum[m_alphabet] = kTotal;

    uint32_t s = 0;
    for (uint32_t i = 0; i < m_lookup.size(); ++i) {
        uint32_t target = i << kLookupShift;
        while (m_cum[s + 1] <= target) ++s;
        m_lookup[i] = static_cast<uint16_t>(s);
    }

    if (sum > kCountLimit)
        for (uint32_t& c : m_counts) c = (c + 1) >> 1;
    m_period = std::min(m_period * 2, m_periodCap);
    m_untilRescale = m_period;
}

void VnRangeEncoder::shiftLow() {
    if (static_cast<uint32_t>(m_low) < 0xFF000000u || (m_low >> 32) != 0) {
        uint8_t carry = static_cast<uint8_t>(m_low >> 32);
        uint8_t pending = m_cache;
        do {
            m_out.push_back(static_cast<uint8_t>(pending + carry));
            pending = 0xFF;
        } while (--m_cacheSize != 0);
        m_cache = static_cast<uint8_t>(m_low >> 24);
    }
    ++m_cacheSize;
    m_low = (m_low & 0x00FFFFFFu) << 8;
}

const std::vector<uint8_t>& VnRangeEncoder::Finish() {
    if (!m_finished) {
        for (int i = 0; i < 5; ++i) shiftLow();
        m_finished = true;
    }
    return m_out;
}

void VnRangeDecoder::Start(std::span<const uint8_t> bytes) {
    m_cur = bytes.data();
    m_end = bytes.data() + bytes.size();
    m_range = 0xFFFFFFFFu;
    m_code = 0;
    // The encoder's first byte is the empty cache and always 0.
    for (int i = 0; i < 5; ++i) m_code = (m_code << 8) | nextByte();
}

void VnWriteBlock(CbStreamWriteBinary& stream, const void* data, size_t size) {
    if (size > 0xFFFFFFFFu) throw CbExceptionStream(kSource, __LINE__, "VnWriteBlock");
    stream << static_cast<uint32_t>(size);
    stream.WriteBuffer(data, size);
}

std::vector<uint8_t> VnReadBlock(CbStreamReadBinary& stream, uint64_t maxBytes) {
    uint32_t size = 0;
    stream >> size;
    uint64_t left = stream.GetBytesLeft();
    if (size > maxBytes || (left != CbStreamRead::kUnknownSize && size > left))
        throw CbExceptionStream(kSource, __LINE__, "VnReadBlock");
    std::vector<uint8_t> bytes;
    size_t done = 0;
    while (done < size) {
        size_t step = std::min<size_t>(size - done, left != CbStreamRead::kUnknownSize ? size : std::max(done, kReadChunk));
        bytes.resize(done + step);
        if (stream.ReadBuffer(bytes.data() + done, step) != step) throw CbExceptionStream(kSource, __LINE__, "VnReadBlock");
        done += step;
    }
    return bytes;
}

VnCompressRangeCoder::VnCompressRangeCoder(CbStreamWriteBinary& stream, unsigned long alphabetSize, unsigned long adaptation)
    : m_stream(stream), m_alphabet(static_cast<uint32_t>(alphabetSize)), m_adaptation(static_cast<uint32_t>(adaptation)),
      m_order1(alphabetSize >= 2 && alphabetSize <= kMaxOrder1Alphabet) {
    if (alphabetSize == 0 || alphabetSize > VnProbabilityModelQuasiStatic::kMaxAlphabet)
        throw CbExceptionPreconditionViolation(kSource, __LINE__, "VnCompressRangeCoder::VnCompressRangeCoder");
    m_models.assign(m_order1 ? m_alphabet : 1, VnProbabilityModelQuasiStatic(m_alphabet, m_adaptation));
}

VnCompressRangeCoder::~VnCompressRangeCoder() {
    if (m_finished || std::uncaught_exceptions() > 0) return;
    try {
        Finish();
    } catch (const CbException&) {
        // Nothing can be reported from here; callers who care call Finish themselves.
    }
}

void VnCompressRangeCoder::WriteSymbol(unsigned long symbol) {
    if (symbol >= m_alphabet) throw CbExceptionPreconditionViolation(kSource, __LINE__, "VnCompressRangeCoder::WriteSymbol");
    m_encoder.EncodeSymbol(static_cast<uint32_t>(symbol), m_models[m_order1 ? m_previous : 0]);
    m_previous = static_cast<uint32_t>(symbol);
}

void VnCompressRangeCoder::WriteSymbol(unsigned long symbol, VnProbabilityModelQuasiStatic& model) {
    if (symbol >= model.GetAlphabetSize())
        throw CbExceptionPreconditionViolation(kSource, __LINE__, "VnCompressRangeCoder::WriteSymbol");
    m_encoder.EncodeSymbol(static_cast<uint32_t>(symbol), model);
}

void VnCompressRangeCoder::Finish() {
    if (m_finished) return;
    m_finished = true;
    const std::vector<uint8_t>& code = m_encoder.Finish();
    m_stream << static_cast<uint32_t>(code.size() + 5);
    m_stream << m_adaptation << static_cast<uint8_t>(m_order1 ? 1 : 0);
    m_stream.WriteBuffer(code.data(), code.size());
}

VnDecompressRangeCoder::VnDecompressRangeCoder(CbStreamReadBinary& stream, unsigned long alphabetSize)
    : m_alphabet(static_cast<uint32_t>(alphabetSize)) {
    if (alphabetSize == 0 || alphabetSize > VnProbabilityModelQuasiStatic::kMaxAlphabet)
        throw CbExceptionPreconditionViolation(kSource, __LINE__, "VnDecompressRangeCoder::VnDecompressRangeCoder");
    m_block = VnReadBlock(stream, 0xFFFFFFFFu);
    if (m_block.size() < 5) throw CbExceptionStream(kSource, __LINE__, "VnDecompressRangeCoder::VnDecompressRangeCoder");
    uint32_t adaptation = static_cast<uint32_t>(m_block[0]) | static_cast<uint32_t>(m_block[1]) << 8 |
                          static_cast<uint32_t>(m_block[2]) << 16 | static_cast<uint32_t>(m_block[3]) << 24;
    uint8_t kind = m_block[4];
    if (kind > 1 || (kind == 1 && (alphabetSize < 2 || alphabetSize > kMaxOrder1Alphabet)))
        throw CbExceptionStream(kSource, __LINE__, "VnDecompressRangeCoder::VnDecompressRangeCoder");
    m_order1 = kind == 1;
    m_models.assign(m_order1 ? m_alphabet : 1, VnProbabilityModelQuasiStatic(m_alphabet, adaptation));
    m_decoder.Start(std::span<const uint8_t>(m_block).subspan(5));
}

unsigned long VnDecompressRangeCoder::ReadSymbol() {
    m_previous = m_decoder.DecodeSymbol(m_models[m_order1 ? m_previous : 0]);
    return m_previous;
}

unsigned long VnDecompressRangeCoder::ReadSymbol(VnProbabilityModelQuasiStatic& model) {
    return m_decoder.DecodeSymbol(model);
}

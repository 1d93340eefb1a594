#include "vnbase/vnlzma.h"

#include <algorithm>
#include <cstring>
#include <lzma.h>

namespace {
constexpr unsigned char kMethodStored = 0;
constexpr unsigned char kMethodLZMA2 = 1;
constexpr size_t kHeader = 5;

// Both sides derive the same filter from the uncompressed size, so nothing beyond the
// size has to travel with the block.
// The dictionary never exceeds kMaxDictionary, so a decoder never needs more either.
constexpr uint64_t kMaxDictionary = 8u << 20;
// The output grows by at most this much before the decoder has proved it needs more.
constexpr size_t kOutputStep = 1u << 16;

bool makeOptions(lzma_options_lzma& options, uint32_t preset, uint64_t uncompressed) {
    if (lzma_lzma_preset(&options, preset)) return false;
    uint64_t cap = std::min<uint64_t>(options.dict_size, kMaxDictionary);
    options.dict_size = static_cast<uint32_t>(std::clamp<uint64_t>(uncompressed, LZMA_DICT_SIZE_MIN, cap));
    return true;
}

void putU32(unsigned char* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
uint32_t getU32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

// The decoder always uses the preset of the default setting: for raw LZMA2 only the
// dictionary size matters when decoding.
constexpr uint32_t kDecoderPreset = 2;
} // namespace

int VnCompressLZMA::Compress(const unsigned char* data, unsigned long size, unsigned long setting) {
    m_out.clear();
    if (size > 0 && !data) return 0;
    lzma_options_lzma options;
    if (!makeOptions(options, static_cast<uint32_t>(std::min<unsigned long>(setting, 9)), size)) return 0;
    lzma_filter filters[2] = {{LZMA_FILTER_LZMA2, &options}, {LZMA_VLI_UNKNOWN, nullptr}};
    size_t bound = lzma_stream_buffer_bound(size);
    m_out.resize(kHeader + bound);
    size_t written = 0;
    lzma_ret ret = size ? lzma_raw_buffer_encode(filters, nullptr, data, size, m_out.data() + kHeader, &written, bound)
                        : LZMA_BUF_ERROR;
    if (ret == LZMA_OK && written < size) {
        m_out[0] = kMethodLZMA2;
        m_out.resize(kHeader + written);
    } else {
        // Incompressible, empty or refused: store the bytes as they are.
        m_out[0] = kMethodStored;
        m_out.resize(kHeader + size);
        if (size) std::memcpy(m_out.data() + kHeader, data, size);
    }
    putU32(m_out.data() + 1, static_cast<uint32_t>(size));
    return 1;
}

int VnDecompressLZMA::Decompress(const unsigned char* data, unsigned long size) {
    m_out.clear();
    if (!data || size < kHeader) return 0;
    uint32_t expected = getU32(data + 1);
    if (expected > m_limit) return 0;
    const unsigned char* payload = data + kHeader;
    size_t payloadSize = size - kHeader;
    if (data[0] == kMethodStored) {
        if (payloadSize != expected) return 0;
        m_out.assign(payload, payload + payloadSize);
        return 1;
    }
    if (data[0] != kMethodLZMA2 || expected == 0) return 0;
    lzma_options_lzma options;
    if (!makeOptions(options, kDecoderPreset, expected)) return 0;
    options.dict_size = static_cast<uint32_t>(std::clamp<uint64_t>(expected, LZMA_DICT_SIZE_MIN, kMaxDictionary));
    lzma_filter filters[2] = {{LZMA_FILTER_LZMA2, &options}, {LZMA_VLI_UNKNOWN, nullptr}};
    lzma_stream stream = LZMA_STREAM_INIT;
    if (lzma_raw_decoder(&stream, filters) != LZMA_OK) return 0;
    // Grow the output only as the decoder fills it, so a recorded size that lies costs
    // no more memory than the payload can really produce.
    stream.next_in = payload;
    stream.avail_in = payloadSize;
    size_t produced = 0;
    lzma_ret ret = LZMA_OK;
    while (ret == LZMA_OK && produced < expected) {
        size_t grow = std::min<size_t>(expected - produced, std::max(produced, kOutputStep));
        m_out.resize(produced + grow);
        stream.next_out = m_out.data() + produced;
        stream.avail_out = grow;
        ret = lzma_code(&stream, LZMA_FINISH);
        produced = m_out.size() - stream.avail_out;
        if (ret == LZMA_OK && stream.avail_out != 0) break; // stalled: input exhausted
    }
    // The payload must end exactly where the output does: one more call sees its end marker.
    if (ret == LZMA_OK && produced == expected) {
        uint8_t extra = 0;
        stream.next_out = &extra;
        stream.avail_out = 1;
        ret = lzma_code(&stream, LZMA_FINISH);
        if (stream.avail_out == 0) ret = LZMA_DATA_ERROR;
    }
    bool ok = ret == LZMA_STREAM_END && produced == expected && stream.avail_in == 0;
    lzma_end(&stream);
    if (!ok) {
        m_out.clear();
        return 0;
    }
    return 1;
}

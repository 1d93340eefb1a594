#include "vnio/vnjpegwriter.h"

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>

// jpeglib.h uses FILE and size_t without including their headers, hence <cstdio> first.
#include <jpeglib.h>
#include <jerror.h>

namespace {

constexpr const char* c_SourceFile = "vnlibraries/vnio/vnjpegwriter";
constexpr const char* c_Function = "VnJPEGWriter::Serialize";

// Failure lines of Serialize, as documented in the header.
enum EFailure : uint32_t {
    eFailNone = 0,
    eFailBufferSize = 89,
    eFailCreate = 98,
    eFailSettings = 124,
    eFailSubsampling = 142,
    eFailDimensions = 149,
    eFailStride = 159,
    eFailImageSize = 163,
    eFailCompress = 166,
    eFailNoOutput = 180,
};

[[noreturn]] void fail(uint32_t line) { throw CbException(c_SourceFile, line, c_Function); }

int libjpegQuality(float quality) {
    return std::clamp(static_cast<int>(std::lround(quality * 100.f)), 1, 100);
}

// Horizontal and vertical sampling factors of the luma component; chroma stays at 1x1.
void lumaSampling(VnJPEGWriter::EChromaSubSampling s, int& h, int& v) {
    switch (s) {
    case VnJPEGWriter::eChromaSubSampling422: h = 2; v = 1; break;
    case VnJPEGWriter::eChromaSubSampling420: h = 2; v = 2; break;
    default: h = 1; v = 1; break;
    }
}

struct SEncodeInput {
    const unsigned char* pixels;
    uint32_t width, height;
    unsigned channels;
    int quality; // libjpeg scale
    VnJPEGWriter::EChromaSubSampling subsampling;
};

// libjpeg reports fatal errors through error_exit, which must not return. It is C code, so
// a C++ exception must not travel through it: the handler jumps back to the setjmp in
// CCompressor::run, which turns the phase reached into a failure line.
struct SErrorManager {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
};

void onErrorExit(j_common_ptr cinfo) { std::longjmp(reinterpret_cast<SErrorManager*>(cinfo->err)->jump, 1); }
// Warnings and traces would go to stderr; a library has no business printing.
void onOutputMessage(j_common_ptr) {}

// Collects the encoded bytes in one malloc'd block that the compressor owns, so that the
// block is freed on every path whatever state libjpeg was left in. Growth doubles.
struct SGrowingDestination {
    jpeg_destination_mgr pub;
    unsigned char* data;
    size_t capacity;
    size_t initialCapacity;
};

bool growDestination(SGrowingDestination& d, size_t capacity) {
    void* p = std::realloc(d.data, capacity);
    if (!p) return false; // the old block stays valid and owned
    d.data = static_cast<unsigned char*>(p);
    d.capacity = capacity;
    return true;
}

void onInitDestination(j_compress_ptr cinfo) {
    auto& d = *reinterpret_cast<SGrowingDestination*>(cinfo->dest);
    if (!d.data && !growDestination(d, d.initialCapacity)) ERREXIT1(cinfo, JERR_OUT_OF_MEMORY, 0);
    d.pub.next_output_byte = d.data;
    d.pub.free_in_buffer = d.capacity;
}

// Called when the whole block is full.
boolean onEmptyOutputBuffer(j_compress_ptr cinfo) {
    auto& d = *reinterpret_cast<SGrowingDestination*>(cinfo->dest);
    const size_t used = d.capacity;
    if (used > SIZE_MAX / 2 || !growDestination(d, used * 2)) ERREXIT1(cinfo, JERR_OUT_OF_MEMORY, 1);
    d.pub.next_output_byte = d.data + used;
    d.pub.free_in_buffer = d.capacity - used;
    return TRUE;
}

void onTermDestination(j_compress_ptr) {}

// One compression: owns the libjpeg object and the output block, releases both in the
// destructor. run() holds the setjmp and therefore no objects with destructors.
class CCompressor {
public:
    CCompressor() = default;
    CCompressor(const CCompressor&) = delete;
    CCompressor& operator=(const CCompressor&) = delete;
    ~CCompressor() {
        if (m_created) jpeg_destroy_compress(&m_cinfo);
        std::free(m_dest.data);
    }

    // Returns eFailNone or the failure line.
    uint32_t run(const SEncodeInput& in);

    const unsigned char* data() const { return m_dest.data; }
    size_t size() const { return m_dest.data ? m_dest.capacity - m_dest.pub.free_in_buffer : 0; }

private:
    jpeg_compress_struct m_cinfo{};
    SErrorManager m_error{};
    SGrowingDestination m_dest{};
    bool m_created = false;
    // The failure line that an error raised now would mean. Read after longjmp, hence
    // volatile.
    volatile uint32_t m_phase = eFailCreate;
};

uint32_t CCompressor::run(const SEncodeInput& in) {
    m_cinfo.err = jpeg_std_error(&m_error.pub);
    m_error.pub.error_exit = onErrorExit;
    m_error.pub.output_message = onOutputMessage;
    if (setjmp(m_error.jump)) return m_phase;

    m_phase = eFailCreate;
    jpeg_create_compress(&m_cinfo);
    m_created = true;

    m_phase = eFailSettings;
    // Start near the size a photographic image usually reaches, so that few doublings follow.
    const uint64_t rawBytes = uint64_t(in.width) * in.height * in.channels;
    m_dest.initialCapacity = static_cast<size_t>(std::clamp<uint64_t>(rawBytes / 8, 4096, uint64_t(16) << 20));
    m_dest.pub.init_destination = onInitDestination;
    m_dest.pub.empty_output_buffer = onEmptyOutputBuffer;
    m_dest.pub.term_destination = onTermDestination;
    m_cinfo.dest = &m_dest.pub;
    m_cinfo.image_width = in.width;
    m_cinfo.image_height = in.height;
    m_cinfo.input_components = static_cast<int>(in.channels);
    m_cinfo.in_color_space = in.channels == 1 ? JCS_GRAYSCALE : JCS_EXT_BGR;
    jpeg_set_defaults(&m_cinfo);
    jpeg_set_quality(&m_cinfo, in.quality, TRUE);

    if (in.channels == 3) {
        m_phase = eFailSubsampling;
        int h = 1, v = 1;
        lumaSampling(in.subsampling, h, v);
        m_cinfo.comp_info[0].h_samp_factor = h;
        m_cinfo.comp_info[0].v_samp_factor = v;
        for (int c = 1; c < 3; ++c) m_cinfo.comp_info[c].h_samp_factor = m_cinfo.comp_info[c].v_samp_factor = 1;
    }

    // Dimension limits are checked here; the header is written too.
    m_phase = eFailDimensions;
    jpeg_start_compress(&m_cinfo, TRUE);

    // A size test that passed in 32 bits may have wrapped: only 64-bit products tell.
    const uint64_t stride = uint64_t(in.channels) * in.width;
    if (stride > 0xFFFFFFFFull) return eFailStride;
    if (stride * in.height > 0xFFFFFFFFull) return eFailImageSize;

    m_phase = eFailCompress;
    constexpr uint32_t c_RowBatch = 32;
    JSAMPROW rows[c_RowBatch];
    while (m_cinfo.next_scanline < in.height) {
        const uint32_t first = m_cinfo.next_scanline;
        const uint32_t count = std::min(c_RowBatch, in.height - first);
        for (uint32_t i = 0; i < count; ++i)
            // libjpeg takes non-const rows but only reads them.
            rows[i] = const_cast<JSAMPROW>(in.pixels + (first + i) * stride);
        if (jpeg_write_scanlines(&m_cinfo, rows, count) == 0) return eFailCompress; // never suspends; guard anyway
    }
    jpeg_finish_compress(&m_cinfo);
    return eFailNone;
}

} // namespace

VnJPEGWriter::VnJPEGWriter(const CbArray<unsigned char>& pixels, uint32_t width, uint32_t height)
    : m_pixels(pixels), m_width(width), m_height(height) {}

void VnJPEGWriter::SetQuality(float quality) {
    if (!(quality > 0.f)) m_fQuality = 0.f;
    else if (quality > 1.f) m_fQuality = 1.f;
    else m_fQuality = quality;
}

void VnJPEGWriter::Serialize(CbStreamWriteBinary& stream) {
    // 32-bit arithmetic on purpose: a wrapped product is caught by the 64-bit checks later.
    const uint32_t size = static_cast<uint32_t>(m_pixels.GetSize());
    const uint32_t area = m_width * m_height;
    if (size != getNumberOfChannels() * area) {
        if (size != area) fail(eFailBufferSize);
        m_bGrey = true;
    }

    const SEncodeInput in{m_pixels.GetData(), m_width, m_height, getNumberOfChannels(), libjpegQuality(m_fQuality),
                          m_eChromaSubSampling};
    CCompressor compressor;
    if (const uint32_t line = compressor.run(in)) fail(line);
    if (compressor.size() == 0) fail(eFailNoOutput);
    stream.WriteBuffer(compressor.data(), compressor.size());
}

#include "vnio/vnjpegwriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <limits>
#include <vector>

#include <jpeglib.h>

namespace {

struct SDecoded {
    bool ok = false;
    uint32_t width = 0, height = 0;
    int components = 0;
    J_COLOR_SPACE colorSpace = JCS_UNKNOWN;
    int lumaH = 0, lumaV = 0;       // sampling factors of component 0
    std::vector<uint16_t> lumaQuant; // quantisation table of component 0
    std::vector<uint8_t> pixels;     // BGR or grey, as the writer's input layout
};

struct STestErrorManager {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
};

void testErrorExit(j_common_ptr cinfo) { std::longjmp(reinterpret_cast<STestErrorManager*>(cinfo->err)->jump, 1); }
void testOutputMessage(j_common_ptr) {}

// Decodes with libjpeg into the writer's own pixel layout; `ok` is false on any error.
void decodeInto(const std::vector<uint8_t>& jpeg, SDecoded& out, jpeg_decompress_struct& cinfo, STestErrorManager& err) {
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = testErrorExit;
    err.pub.output_message = testOutputMessage;
    if (setjmp(err.jump)) return;
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
    jpeg_read_header(&cinfo, TRUE);
    out.components = cinfo.num_components;
    out.colorSpace = cinfo.jpeg_color_space;
    out.lumaH = cinfo.comp_info[0].h_samp_factor;
    out.lumaV = cinfo.comp_info[0].v_samp_factor;
    const JQUANT_TBL* q = cinfo.quant_tbl_ptrs[cinfo.comp_info[0].quant_tbl_no];
    if (q) out.lumaQuant.assign(q->quantval, q->quantval + DCTSIZE2);
    if (out.components == 3) cinfo.out_color_space = JCS_EXT_BGR;
    jpeg_start_decompress(&cinfo);
    out.width = cinfo.output_width;
    out.height = cinfo.output_height;
    const size_t stride = size_t(out.width) * cinfo.output_components;
    out.pixels.assign(stride * out.height, 0);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = out.pixels.data() + cinfo.output_scanline * stride;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    out.ok = true;
}

SDecoded decode(const std::vector<uint8_t>& jpeg) {
    SDecoded out;
    jpeg_decompress_struct cinfo{};
    STestErrorManager err{};
    decodeInto(jpeg, out, cinfo, err);
    jpeg_destroy_decompress(&cinfo);
    return out;
}

std::vector<uint8_t> encode(VnJPEGWriter& writer) {
    CbStreamWriteBinaryMemory stream;
    writer.Serialize(stream);
    return stream.TakeData();
}

// A smooth colour image: gradients and a low-frequency wave, BGR.
CbArray<unsigned char> smoothImage(uint32_t w, uint32_t h, unsigned channels) {
    CbArray<unsigned char> px;
    px.SetSize(static_cast<int>(w * h * channels));
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            for (unsigned c = 0; c < channels; ++c) {
                const double v = 128 + 90 * std::sin(0.05 * x + 0.9 * c) * std::cos(0.04 * y - 0.5 * c);
                px[static_cast<int>((y * w + x) * channels + c)] = static_cast<unsigned char>(std::lround(v));
            }
    return px;
}

// Pseudo-random bytes: compresses badly, so quality shows in the size.
CbArray<unsigned char> noiseImage(uint32_t w, uint32_t h, unsigned channels) {
    CbArray<unsigned char> px;
    px.SetSize(static_cast<int>(w * h * channels));
    uint32_t state = 12345;
    for (auto& b : px) {
        state = state * 1664525u + 1013904223u;
        b = static_cast<unsigned char>(state >> 24);
    }
    return px;
}

double psnr(const CbArray<unsigned char>& a, const std::vector<uint8_t>& b) {
    EXPECT_EQ(static_cast<size_t>(a.GetSize()), b.size());
    double se = 0;
    for (size_t i = 0; i < b.size(); ++i) {
        const double d = double(a[static_cast<int>(i)]) - double(b[i]);
        se += d * d;
    }
    const double mse = se / double(b.size());
    return mse == 0 ? std::numeric_limits<double>::infinity() : 10 * std::log10(255.0 * 255.0 / mse);
}

// Runs Serialize on a stream that already holds bytes; expects the documented exception
// with `line` and the stream left exactly as it was.
void expectFailure(VnJPEGWriter& writer, uint32_t line) {
    CbStreamWriteBinaryMemory stream;
    stream << uint32_t(0xCAFEF00D);
    try {
        writer.Serialize(stream);
        ADD_FAILURE() << "no exception, expected line " << line;
    } catch (const CbException& e) {
        EXPECT_STREQ(e.GetClassName(), "CbException");
        EXPECT_EQ(e.GetSourceFile(), "vnlibraries/vnio/vnjpegwriter");
        EXPECT_EQ(e.GetFunction(), "VnJPEGWriter::Serialize");
        EXPECT_EQ(e.GetLine(), line);
    }
    EXPECT_EQ(stream.GetSize(), 4u);
}

} // namespace

TEST(VnJPEGWriterEncode, TinyColourAndGreyBuffersPickTheirChannelCount) {
    CbArray<unsigned char> colour = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120};
    VnJPEGWriter colourWriter(colour, 2, 2);
    const SDecoded c = decode(encode(colourWriter));
    ASSERT_TRUE(c.ok);
    EXPECT_EQ(c.width, 2u);
    EXPECT_EQ(c.height, 2u);
    EXPECT_EQ(c.components, 3);
    EXPECT_EQ(c.colorSpace, JCS_YCbCr);

    CbArray<unsigned char> grey = {0, 85, 170, 255};
    VnJPEGWriter greyWriter(grey, 2, 2);
    const SDecoded g = decode(encode(greyWriter));
    ASSERT_TRUE(g.ok);
    EXPECT_EQ(g.width, 2u);
    EXPECT_EQ(g.height, 2u);
    EXPECT_EQ(g.components, 1);
    EXPECT_EQ(g.colorSpace, JCS_GRAYSCALE);
}

TEST(VnJPEGWriterEncode, SmoothImagesSurviveAtDefaultQuality) {
    // Odd sizes exercise the partial blocks at the right and bottom edges.
    for (unsigned channels : {3u, 1u}) {
        const uint32_t w = 131, h = 77;
        const CbArray<unsigned char> px = smoothImage(w, h, channels);
        VnJPEGWriter writer(px, w, h);
        EXPECT_FLOAT_EQ(writer.GetQuality(), 0.9f);
        const SDecoded d = decode(encode(writer));
        ASSERT_TRUE(d.ok);
        EXPECT_EQ(d.width, w);
        EXPECT_EQ(d.height, h);
        EXPECT_EQ(d.components, static_cast<int>(channels));
        EXPECT_GT(psnr(px, d.pixels), 35.0) << channels << " channels";
    }
}

TEST(VnJPEGWriterEncode, ChannelOrderIsBlueGreenRed) {
    // A pure red image must decode red, not blue.
    const uint32_t w = 16, h = 16;
    CbArray<unsigned char> px;
    for (uint32_t i = 0; i < w * h; ++i) {
        px.Add(0);
        px.Add(0);
        px.Add(255);
    }
    VnJPEGWriter writer(px, w, h);
    const SDecoded d = decode(encode(writer));
    ASSERT_TRUE(d.ok);
    EXPECT_LT(d.pixels[0], 20);
    EXPECT_LT(d.pixels[1], 20);
    EXPECT_GT(d.pixels[2], 235);
}

TEST(VnJPEGWriterEncode, SubsamplingSetsTheLumaSamplingFactors) {
    const CbArray<unsigned char> px = smoothImage(32, 32, 3);
    struct SCase {
        int value, h, v;
    };
    for (SCase c : {SCase{0, 1, 1}, SCase{1, 2, 1}, SCase{2, 2, 2}, SCase{3, 1, 1}, SCase{-1, 1, 1}}) {
        VnJPEGWriter writer(px, 32, 32);
        writer.SetChromaSubsampling(static_cast<VnJPEGWriter::EChromaSubSampling>(c.value));
        EXPECT_EQ(writer.GetChromaSubsampling(), c.value);
        const SDecoded d = decode(encode(writer));
        ASSERT_TRUE(d.ok);
        EXPECT_EQ(d.lumaH, c.h) << "enumerator " << c.value;
        EXPECT_EQ(d.lumaV, c.v) << "enumerator " << c.value;
        EXPECT_GT(psnr(px, d.pixels), 30.0);
    }
}

TEST(VnJPEGWriterEncode, GreyIgnoresSubsampling) {
    const CbArray<unsigned char> px = smoothImage(16, 16, 1);
    VnJPEGWriter writer(px, 16, 16);
    writer.SetChromaSubsampling(VnJPEGWriter::eChromaSubSampling420);
    const SDecoded d = decode(encode(writer));
    ASSERT_TRUE(d.ok);
    EXPECT_EQ(d.components, 1);
    EXPECT_EQ(d.lumaH, 1);
    EXPECT_EQ(d.lumaV, 1);
}

TEST(VnJPEGWriterEncode, RepeatedSerializeIsDeterministicAndAppends) {
    const CbArray<unsigned char> px = smoothImage(40, 24, 3);
    VnJPEGWriter writer(px, 40, 24);
    CbStreamWriteBinaryMemory stream;
    writer.Serialize(stream);
    const std::vector<uint8_t> first = stream.GetData();
    writer.Serialize(stream);
    const std::vector<uint8_t>& both = stream.GetData();
    ASSERT_EQ(both.size(), 2 * first.size());
    EXPECT_TRUE(std::equal(first.begin(), first.end(), both.begin() + first.size()));
    // A complete JPEG stream: start and end markers.
    EXPECT_EQ(first[0], 0xFF);
    EXPECT_EQ(first[1], 0xD8);
    EXPECT_EQ(first[first.size() - 2], 0xFF);
    EXPECT_EQ(first.back(), 0xD9);
}

TEST(VnJPEGWriterQuality, SetQualityClamps) {
    CbArray<unsigned char> px;
    VnJPEGWriter writer(px, 0, 0);
    writer.SetQuality(1.5f);
    EXPECT_EQ(writer.GetQuality(), 1.f);
    writer.SetQuality(-1.f);
    EXPECT_EQ(writer.GetQuality(), 0.f);
    writer.SetQuality(0.f);
    EXPECT_EQ(writer.GetQuality(), 0.f);
    writer.SetQuality(1.f);
    EXPECT_EQ(writer.GetQuality(), 1.f);
    writer.SetQuality(0.37f);
    EXPECT_EQ(writer.GetQuality(), 0.37f);
    writer.SetQuality(std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(writer.GetQuality(), 0.f);
    writer.SetQuality(std::numeric_limits<float>::infinity());
    EXPECT_EQ(writer.GetQuality(), 1.f);
}

// The luma quantisation table that libjpeg itself derives from a 1..100 quality.
std::vector<uint16_t> referenceLumaTable(int quality) {
    jpeg_compress_struct cinfo{};
    jpeg_error_mgr err{};
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_compress(&cinfo);
    cinfo.in_color_space = JCS_RGB;
    cinfo.input_components = 3;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    std::vector<uint16_t> t(cinfo.quant_tbl_ptrs[0]->quantval, cinfo.quant_tbl_ptrs[0]->quantval + DCTSIZE2);
    jpeg_destroy_compress(&cinfo);
    return t;
}

TEST(VnJPEGWriterQuality, QualityMapsToTheEncoderScale) {
    const CbArray<unsigned char> px = smoothImage(16, 16, 3);
    struct SCase {
        float quality;
        int expected;
    };
    for (SCase c : {SCase{0.f, 1}, SCase{0.004f, 1}, SCase{0.006f, 1}, SCase{0.5f, 50}, SCase{0.755f, 76},
                    SCase{0.9f, 90}, SCase{1.f, 100}, SCase{7.f, 100}}) {
        VnJPEGWriter writer(px, 16, 16);
        writer.SetQuality(c.quality);
        const SDecoded d = decode(encode(writer));
        ASSERT_TRUE(d.ok);
        EXPECT_EQ(d.lumaQuant, referenceLumaTable(c.expected)) << "quality " << c.quality;
    }
}

TEST(VnJPEGWriterQuality, HigherQualityNeverShrinksTheFile) {
    const CbArray<unsigned char> px = noiseImage(64, 64, 3);
    size_t previous = 0;
    for (float q : {0.f, 0.25f, 0.5f, 0.75f, 0.9f, 1.f}) {
        VnJPEGWriter writer(px, 64, 64);
        writer.SetQuality(q);
        const size_t size = encode(writer).size();
        EXPECT_GT(size, previous) << "quality " << q;
        previous = size;
    }
}

TEST(VnJPEGWriterChannels, OnceGreyAWriterStaysGreyAndRejectsColour) {
    CbArray<unsigned char> px = smoothImage(8, 8, 3);
    VnJPEGWriter writer(px, 8, 8);
    EXPECT_EQ(decode(encode(writer)).components, 3);

    px = smoothImage(8, 8, 1);
    EXPECT_EQ(decode(encode(writer)).components, 1);
    // A second grey buffer must stay grey (and not be read as three times its size).
    px = noiseImage(8, 8, 1);
    const SDecoded again = decode(encode(writer));
    ASSERT_TRUE(again.ok);
    EXPECT_EQ(again.components, 1);
    EXPECT_EQ(again.pixels.size(), 64u);

    px = smoothImage(8, 8, 3);
    expectFailure(writer, 89);
    // The failure leaves the writer grey.
    px = smoothImage(8, 8, 1);
    EXPECT_EQ(decode(encode(writer)).components, 1);
}

TEST(VnJPEGWriterFailures, BufferSizeMatchingNeitherLayout) {
    CbArray<unsigned char> px = {1, 2, 3, 4, 5};
    VnJPEGWriter writer(px, 2, 2);
    expectFailure(writer, 89);
    px.SetSize(0);
    expectFailure(writer, 89);
    px.SetSize(13);
    expectFailure(writer, 89);
}

TEST(VnJPEGWriterFailures, DimensionsTheEncoderRejects) {
    CbArray<unsigned char> empty;
    VnJPEGWriter zeroWidth(empty, 0, 5);
    expectFailure(zeroWidth, 149);
    VnJPEGWriter zeroHeight(empty, 5, 0);
    expectFailure(zeroHeight, 149);

    CbArray<unsigned char> row;
    row.SetSize(65501);
    VnJPEGWriter tooWide(row, 65501, 1);
    expectFailure(tooWide, 149);
    VnJPEGWriter tooTall(row, 1, 65501);
    expectFailure(tooTall, 149);

    // The largest side the encoder accepts still works.
    row.SetSize(65500);
    VnJPEGWriter widest(row, 65500, 1);
    const SDecoded d = decode(encode(widest));
    ASSERT_TRUE(d.ok);
    EXPECT_EQ(d.width, 65500u);
    EXPECT_EQ(d.components, 1);
}

TEST(VnJPEGWriterFailures, SizeMatchThatWrappedIn32BitsIsRejected) {
    // 3 * 37838 * 37838 = 4295142732 wraps to 175436 in 32 bits, so a buffer of that size
    // passes the size test as colour; only the 64-bit image size shows the truth.
    const uint32_t side = 37838;
    const uint32_t wrapped = 3u * side * side;
    ASSERT_EQ(wrapped, 175436u);
    CbArray<unsigned char> px;
    px.SetSize(static_cast<int>(wrapped));
    VnJPEGWriter writer(px, side, side);
    expectFailure(writer, 163);
}

TEST(VnJPEGWriterFailures, StreamErrorsPassThrough) {
    const CbArray<unsigned char> px = smoothImage(32, 32, 3);
    VnJPEGWriter writer(px, 32, 32);
    CbStreamWriteBinaryLimited stream(16);
    EXPECT_THROW(writer.Serialize(stream), CbExceptionStream);
    // The writer is still usable afterwards.
    EXPECT_TRUE(decode(encode(writer)).ok);
}

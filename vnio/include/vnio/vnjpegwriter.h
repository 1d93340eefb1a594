#pragma once
// VnJPEGWriter: encodes a raw 8-bit pixel buffer, grey or colour, as a baseline JPEG image
// and writes the JPEG bytes to a binary stream.
//
// Pixel layout: rows from top to bottom without padding; a colour pixel is three bytes in
// the order blue, green, red, a grey pixel one byte. Whether the buffer is grey or colour
// is decided from its size at each Serialize call (see Serialize).
#include <cstdint>

#include "basepool/cbarray.h"
#include "basepool/cbstreambinary.h"

class VnJPEGWriter {
public:
    // How the two chroma planes of a colour image are sampled against the luma plane.
    // Values outside this list encode as 4:4:4.
    enum EChromaSubSampling : int {
        eChromaSubSampling444 = 0, // full chroma resolution
        eChromaSubSampling422 = 1, // chroma halved horizontally
        eChromaSubSampling420 = 2, // chroma halved in both directions
    };

    // The buffer is not copied: it must outlive the writer, and it may be refilled or
    // resized between Serialize calls.
    VnJPEGWriter(const CbArray<unsigned char>& pixels, uint32_t width, uint32_t height);
    // A temporary buffer would dangle before the first Serialize.
    VnJPEGWriter(CbArray<unsigned char>&&, uint32_t, uint32_t) = delete;
    virtual ~VnJPEGWriter() = default;
    VnJPEGWriter(const VnJPEGWriter&) = delete;
    VnJPEGWriter& operator=(const VnJPEGWriter&) = delete;

    // Quality in [0, 1]; values <= 0 (and NaN) store 0, values > 1 store 1. Default 0.9.
    // The encoder's 1..100 scale is reached as clamp(round(quality * 100), 1, 100), so the
    // mapping is monotonic and 0 and 0.01 both give the encoder's lowest setting.
    void SetQuality(float quality);
    float GetQuality() const { return m_fQuality; }

    // Default 4:4:4. Ignored for grey images, which have no chroma.
    void SetChromaSubsampling(EChromaSubSampling subsampling) { m_eChromaSubSampling = subsampling; }
    EChromaSubSampling GetChromaSubsampling() const { return m_eChromaSubSampling; }

    // Encodes the buffer and appends the complete JPEG byte stream to `stream`.
    //
    // The buffer size s is compared, in unsigned 32-bit arithmetic, first with
    // channels x width x height for the channel count left by the previous call (3 for a
    // new writer), then with width x height: the first match keeps the current grey or
    // colour state, the second makes the image grey. So a writer that has once been given
    // a grey buffer rejects a colour buffer of the same dimensions.
    //
    // Every failure throws CbException("vnlibraries/vnio/vnjpegwriter", line,
    // "VnJPEGWriter::Serialize") with one of these lines:
    //   89  s is neither channels x width x height nor width x height
    //   98  the encoder could not be set up
    //   124 the quality or colour settings were rejected
    //   142 the chroma subsampling was rejected
    //   149 the encoder rejected the dimensions (zero, or above 65500 on a side)
    //   159 a row is longer than 0xFFFFFFFF bytes
    //   163 the image is larger than 0xFFFFFFFF bytes (a 32-bit size match that wrapped)
    //   166 compression failed (including running out of memory for the output)
    //   180 the encoder produced no bytes
    // Nothing reaches `stream` unless encoding succeeded; the encoded bytes are then
    // written with one WriteBuffer call, whose CbExceptionStream passes through.
    void Serialize(CbStreamWriteBinary& stream);

private:
    unsigned getNumberOfChannels() const { return m_bGrey ? 1u : 3u; }

    bool m_bGrey = false;
    float m_fQuality = 0.9f;
    EChromaSubSampling m_eChromaSubSampling = eChromaSubSampling444;
    const CbArray<unsigned char>& m_pixels;
    uint32_t m_width;
    uint32_t m_height;
};

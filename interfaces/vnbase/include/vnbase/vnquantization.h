#pragma once
// Floating-point quantisers: a float maps to an unsigned code and back.
//
// Uniform: Map(f) = clamp(floor((f - min) * scale + 0.5), 0, largest code), computed in
// float; Unmap(c) = min + c / scale. The largest code is the code of max. Non-finite or
// out-of-range arguments never make the arithmetic undefined: they clamp.
//
// Logarithmic<23, 7> (bit exact): the code is the float's 32 bits turned into an unsigned
// number that orders like the float's value (complemented when negative, top bit set when
// positive), so Unmap(Map(f)) restores every float bit for bit, NaN payloads included.
#include <bit>
#include <cmath>
#include <cstdint>

class VnFloatingPointQuantization {
public:
    enum EKind { eUniform, eLogarithmic };
    virtual ~VnFloatingPointQuantization() = default;
    virtual uint32_t Map(float value) const = 0;
    virtual float Unmap(uint32_t code) const = 0;
    virtual uint32_t GetLargestCode() const = 0;
    virtual EKind GetKind() const = 0;
};

class VnFloatingPointQuantizationUniform final : public VnFloatingPointQuantization {
public:
    VnFloatingPointQuantizationUniform(float min, float max, float scale);
    uint32_t Map(float value) const override { return mapInline(value); }
    float Unmap(uint32_t code) const override { return m_min + static_cast<float>(code) / m_scale; }
    uint32_t GetLargestCode() const override { return m_largest; }
    EKind GetKind() const override { return eUniform; }
    float GetMin() const { return m_min; }
    float GetMax() const { return m_max; }
    float GetScale() const { return m_scale; }

    uint32_t mapInline(float value) const {
        float x = std::floor((value - m_min) * m_scale + 0.5f);
        if (!(x > 0.f)) return 0; // NaN included
        if (x >= m_largestAsFloat) return m_largest;
        return static_cast<uint32_t>(x);
    }

private:
    float m_min, m_max, m_scale;
    uint32_t m_largest;
    float m_largestAsFloat;
};

template <int MantissaBits, int ExponentBits> class VnFloatingPointQuantizationLogarithmic final : public VnFloatingPointQuantization {
public:
    static uint32_t MapBits(float value) {
        uint32_t b = std::bit_cast<uint32_t>(value);
        return (b & 0x80000000u) ? ~b : (b ^ 0x80000000u);
    }
    static float UnmapBits(uint32_t code) {
        return std::bit_cast<float>((code & 0x80000000u) ? (code ^ 0x80000000u) : ~code);
    }
    uint32_t Map(float value) const override { return MapBits(value); }
    float Unmap(uint32_t code) const override { return UnmapBits(code); }
    uint32_t GetLargestCode() const override { return 0xFFFFFFFFu; }
    EKind GetKind() const override { return eLogarithmic; }
    uint32_t GetCodeWidth() const { return m_codeWidth; }

private:
    uint32_t m_codeWidth = 32;
};

using VnFloatingPointQuantizationBitExact = VnFloatingPointQuantizationLogarithmic<23, 7>;

#pragma once
// A colour packed in one 32-bit word: blue bits 0-7, green 8-15, red 16-23, alpha 24-31.
#include <cstdint>

class VnColorRGBA {
public:
    uint32_t m_value = 0;

    constexpr VnColorRGBA() = default;
    constexpr explicit VnColorRGBA(uint32_t packed) : m_value(packed) {}
    constexpr VnColorRGBA(uint8_t r, uint8_t g, uint8_t b, uint8_t a = 255)
        : m_value(uint32_t(b) | (uint32_t(g) << 8) | (uint32_t(r) << 16) | (uint32_t(a) << 24)) {}

    constexpr uint8_t GetRed() const { return uint8_t(m_value >> 16); }
    constexpr uint8_t GetGreen() const { return uint8_t(m_value >> 8); }
    constexpr uint8_t GetBlue() const { return uint8_t(m_value); }
    constexpr uint8_t GetAlpha() const { return uint8_t(m_value >> 24); }
    constexpr uint32_t GetValue() const { return m_value; }
    friend constexpr bool operator==(VnColorRGBA a, VnColorRGBA b) { return a.m_value == b.m_value; }

    // Each channel of [0, 1] is clamped and rounded to the nearest of 0..255.
    static uint32_t ConvertToUInt32(float r, float g, float b, float a);

    static const VnColorRGBA c_WHITE;
    static const VnColorRGBA c_BLACK;
};
static_assert(sizeof(VnColorRGBA) == 4);

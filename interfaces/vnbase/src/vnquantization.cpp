#include "vnbase/vnquantization.h"

namespace {
// The largest float below 2^32: codes past it cannot be represented as unsigned.
constexpr float kCodeCeiling = 4294967040.0f;
} // namespace

VnFloatingPointQuantizationUniform::VnFloatingPointQuantizationUniform(float min, float max, float scale)
    : m_min(min), m_max(max), m_scale(scale) {
    float top = std::floor((max - min) * scale + 0.5f);
    if (!(top > 0.f)) top = 0.f;
    if (top > kCodeCeiling) top = kCodeCeiling;
    m_largest = static_cast<uint32_t>(top);
    m_largestAsFloat = top;
}

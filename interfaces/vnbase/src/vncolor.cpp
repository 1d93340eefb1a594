#include "vnbase/vncolor.h"

#include <cmath>

const VnColorRGBA VnColorRGBA::c_WHITE(255, 255, 255, 255);
const VnColorRGBA VnColorRGBA::c_BLACK(0, 0, 0, 255);

namespace {
uint32_t channel(float v) {
    if (!(v > 0.f)) return 0; // NaN and negatives
    if (v >= 1.f) return 255;
    return static_cast<uint32_t>(std::lround(v * 255.f));
}
} // namespace

uint32_t VnColorRGBA::ConvertToUInt32(float r, float g, float b, float a) {
    return channel(b) | (channel(g) << 8) | (channel(r) << 16) | (channel(a) << 24);
}

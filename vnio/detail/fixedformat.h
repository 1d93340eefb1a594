#pragma once
// printf "%f" for 32-bit floats, without printf.
//
// The text formats that write six-decimal fixed notation (OFF, the legacy ASCII STL) must
// produce exactly the bytes that "%f" gives for the float promoted to double in the "C"
// locale, and must do so fast enough to write hundreds of megabytes a second. A float is
// m * 2^e with m < 2^24, so value * 10^6 = m * 10^6 * 2^e is an exact integer product
// (< 2^44) shifted by e: rounding it to an integer (ties to even, as the C library does)
// is exact integer arithmetic. Values too large for that (|x| >= 2^63), infinities and
// NaNs take std::to_chars, which also prints the C library's spelling.
#include <charconv>
#include <cstdint>
#include <cstring>

namespace VnDetail {

// Longest text AppendFixed6 produces: sign, 39 integer digits, point, six decimals.
constexpr size_t c_Fixed6MaxChars = 48;

// Writes value as "%f" would into out (room for c_Fixed6MaxChars) and returns the end.
inline char* AppendFixed6(char* out, float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const uint32_t exponentField = (bits >> 23) & 0xFFu;
    const uint64_t fraction = bits & 0x7FFFFFu;
    uint64_t mantissa = exponentField ? (fraction | 0x800000u) : fraction;
    int exponent = exponentField ? static_cast<int>(exponentField) - 150 : -149;
    uint64_t scaled; // round(|value| * 10^6)
    if (exponentField == 0xFFu || exponent > 39) {
        return std::to_chars(out, out + c_Fixed6MaxChars, static_cast<double>(value), std::chars_format::fixed, 6).ptr;
    }
    if (exponent >= 0) {
        // Integral: m * 2^e < 2^63, no fraction digits to round.
        uint64_t integral = mantissa << exponent;
        if (bits >> 31) *out++ = '-';
        out = std::to_chars(out, out + 24, integral).ptr;
        std::memcpy(out, ".000000", 7);
        return out + 7;
    }
    const int shift = -exponent;
    const uint64_t product = mantissa * 1000000u;
    if (shift >= 64) {
        scaled = 0; // product < 2^44 is far below half of 2^shift
    } else {
        scaled = product >> shift;
        const uint64_t rest = product & ((uint64_t(1) << shift) - 1);
        const uint64_t half = uint64_t(1) << (shift - 1);
        if (rest > half || (rest == half && (scaled & 1))) ++scaled;
    }
    if (bits >> 31) *out++ = '-';
    out = std::to_chars(out, out + 24, scaled / 1000000u).ptr;
    *out++ = '.';
    uint32_t decimals = static_cast<uint32_t>(scaled % 1000000u);
    for (int i = 5; i >= 0; --i) {
        out[i] = static_cast<char>('0' + decimals % 10);
        decimals /= 10;
    }
    return out + 6;
}

} // namespace VnDetail

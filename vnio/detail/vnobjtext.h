#pragma once
// Text primitives of the OBJ and MTL reader and writer: trimming, the blank/tab tokeniser,
// numbers with the C library's atof/atoi prefix rules, and fixed-point printing that matches
// "%f" / "%0.12f" byte for byte. Everything works in the classic "C" locale by construction.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <locale.h>
#include <string>
#include <string_view>

namespace VnObjText {

inline bool IsCSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

inline bool IsTokenEnd(const char* p, const char* e) { return p == e || *p == ' ' || *p == '\t'; }

inline std::string_view Trim(std::string_view s) {
    size_t b = 0, e = s.size();
    while (b < e && IsCSpace(s[b])) ++b;
    while (e > b && IsCSpace(s[e - 1])) --e;
    return s.substr(b, e - b);
}

// Splits on blanks and tabs; runs of them count as one, and an exhausted line keeps
// answering with an empty token.
class CTokenizer {
public:
    explicit CTokenizer(std::string_view line) : m_cur(line.data()), m_end(line.data() + line.size()) {}
    // Where the next token search starts, and the end of the line.
    const char* Cursor() const { return m_cur; }
    const char* End() const { return m_end; }
    void SetCursor(const char* p) { m_cur = p; }
    // Skips blanks and tabs; false when the line is exhausted.
    bool SkipBlanks() {
        while (m_cur < m_end && (*m_cur == ' ' || *m_cur == '\t')) ++m_cur;
        return m_cur < m_end;
    }
    std::string_view Next() {
        while (m_cur < m_end && (*m_cur == ' ' || *m_cur == '\t')) ++m_cur;
        const char* b = m_cur;
        while (m_cur < m_end && *m_cur != ' ' && *m_cur != '\t') ++m_cur;
        return {b, static_cast<size_t>(m_cur - b)};
    }

private:
    const char* m_cur;
    const char* m_end;
};

// strtod in the "C" locale on a copy of the token (the C call needs a terminator).
inline double StrtodC(std::string_view token) {
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    char small[96];
    std::string big;
    const char* text;
    if (token.size() < sizeof small) {
        std::memcpy(small, token.data(), token.size());
        small[token.size()] = '\0';
        text = small;
    } else {
        big.assign(token);
        text = big.c_str();
    }
    return strtod_l(text, nullptr, c_locale);
}

// atof narrowed to float: the longest numeric prefix counts, no number reads as 0. Plain
// decimals take the correctly rounded std::from_chars; hex floats, infinities, leading
// white space or '+', and out-of-range values go to strtod, which gives the same double.
inline float ParseFloat(std::string_view token) {
    const char* b = token.data();
    const char* e = b + token.size();
    const char* q = b;
    if (q < e && *q == '-') ++q;
    if (q < e && ((*q >= '0' && *q <= '9') || *q == '.')) {
        const bool hex = *q == '0' && q + 1 < e && (q[1] == 'x' || q[1] == 'X');
        if (!hex) {
            double v;
            auto r = std::from_chars(b, e, v, std::chars_format::general);
            if (r.ec == std::errc()) return static_cast<float>(v);
        }
    }
    if (token.empty()) return 0.f;
    return static_cast<float>(StrtodC(token));
}

// atoi as the C library does it: white space, sign, digits; strtol's saturation, then the
// narrowing to int.
inline int ParseInt(std::string_view token) {
    const char* p = token.data();
    const char* e = p + token.size();
    while (p < e && IsCSpace(*p)) ++p;
    bool negative = false;
    if (p < e && (*p == '-' || *p == '+')) negative = *p++ == '-';
    uint64_t v = 0;
    bool saturated = false;
    for (; p < e && *p >= '0' && *p <= '9'; ++p) {
        if (v > (uint64_t(INT64_MAX) - 9) / 10) saturated = true;
        if (!saturated) v = v * 10 + static_cast<uint64_t>(*p - '0');
    }
    int64_t s;
    if (saturated) s = negative ? INT64_MIN : INT64_MAX;
    else s = negative ? -static_cast<int64_t>(v) : static_cast<int64_t>(v);
    return static_cast<int>(static_cast<uint32_t>(static_cast<uint64_t>(s)));
}

// ParseFloat of the token starting at p (it runs to the next blank or tab, or e); returns the
// token's end. A plain number that fills its token is parsed in place, without a search for
// the token's end first.
inline const char* ParseFloatToken(const char* p, const char* e, float& out) {
    const char* q = p;
    if (q < e && *q == '-') ++q;
    if (q < e && ((*q >= '0' && *q <= '9') || *q == '.') && !(*q == '0' && q + 1 < e && (q[1] == 'x' || q[1] == 'X'))) {
        double v;
        auto r = std::from_chars(p, e, v, std::chars_format::general);
        if (r.ec == std::errc() && IsTokenEnd(r.ptr, e)) {
            out = static_cast<float>(v);
            return r.ptr;
        }
    }
    const char* end = p;
    while (!IsTokenEnd(end, e)) ++end;
    out = ParseFloat(std::string_view(p, static_cast<size_t>(end - p)));
    return end;
}

// One corner of an "f" line: the vertex number is atoi of the token, the texture number
// atoi of the text after its first '/' unless another '/' follows at once.
struct SFaceCorner {
    int vertex = 0;
    int texture = 0;
    bool textured = false;
};

// Reads an unsigned run of 1 to 18 digits at q (no overflow is possible); false, leaving q
// alone, for anything else.
inline bool ParseDigits(const char*& q, const char* e, int& out) {
    const char* s = q;
    uint64_t v = 0;
    while (q < e && static_cast<unsigned>(*q - '0') < 10 && q - s < 18) v = v * 10 + static_cast<unsigned>(*q++ - '0');
    if (q == s || (q < e && static_cast<unsigned>(*q - '0') < 10)) {
        q = s;
        return false;
    }
    out = static_cast<int>(static_cast<uint32_t>(v));
    return true;
}

// Parses the corner token starting at p (it runs to the next blank or tab, or e) and returns
// its end. Plain digit forms ("12", "12/7", "12//3", "12/7/3") take a single pass; every other
// spelling goes through ParseInt on the token, with the same results.
inline const char* ParseCorner(const char* p, const char* e, SFaceCorner& c) {
    c = SFaceCorner();
    const char* q = p;
    if (ParseDigits(q, e, c.vertex)) {
        if (IsTokenEnd(q, e)) return q;
        if (*q == '/') {
            ++q;
            bool plain = true;
            if (IsTokenEnd(q, e)) {
                c.textured = true; // "12/": the texture number reads as 0
                return q;
            }
            if (*q != '/') {
                plain = ParseDigits(q, e, c.texture);
                c.textured = plain;
            }
            if (plain) {
                while (!IsTokenEnd(q, e)) ++q; // the normal number is not used
                return q;
            }
        }
    }
    const char* end = p;
    while (!IsTokenEnd(end, e)) ++end;
    const std::string_view token(p, static_cast<size_t>(end - p));
    c = SFaceCorner();
    c.vertex = ParseInt(token);
    const size_t slash = token.find('/');
    if (slash != std::string_view::npos && (slash + 1 >= token.size() || token[slash + 1] != '/')) {
        c.texture = ParseInt(token.substr(slash + 1));
        c.textured = true;
    }
    return end;
}

// Longest text AppendFixed produces: sign, 39 integer digits, point, up to 12 decimals.
constexpr size_t c_FixedMaxChars = 64;

// Writes value (a float promoted to double) as "%.<Decimals>f" would, and returns the end.
// A float is m * 2^e with m < 2^24, and m * 5^12 < 2^52, so value * 10^Decimals is exact in
// double for Decimals <= 12: rounding it to an integer (ties to even, as the C library does)
// is the exact decimal rounding. Values whose scaled form leaves the 63-bit range, infinities
// and NaNs take std::to_chars, which gives the same bytes.
template <int Decimals> inline char* AppendFixed(char* out, float value) {
    static_assert(Decimals >= 1 && Decimals <= 12);
    constexpr double scale = [] {
        double s = 1;
        for (int i = 0; i < Decimals; ++i) s *= 10;
        return s;
    }();
    constexpr uint64_t divisor = static_cast<uint64_t>(scale);
    const double magnitude = std::fabs(static_cast<double>(value)) * scale;
    if (!(magnitude < 9.0e18))
        return std::to_chars(out, out + c_FixedMaxChars, static_cast<double>(value), std::chars_format::fixed, Decimals).ptr;
    const uint64_t scaled = static_cast<uint64_t>(std::nearbyint(magnitude));
    if (std::signbit(value)) *out++ = '-';
    out = std::to_chars(out, out + 24, scaled / divisor).ptr;
    *out++ = '.';
    uint64_t decimals = scaled % divisor;
    for (int i = Decimals - 1; i >= 0; --i) {
        out[i] = static_cast<char>('0' + decimals % 10);
        decimals /= 10;
    }
    return out + Decimals;
}

inline char* AppendUInt(char* out, uint64_t value) { return std::to_chars(out, out + 24, value).ptr; }

} // namespace VnObjText

#include "basepool/cbstring.h"

#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <locale.h>
#include <vector>

namespace {
void appendUtf8(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

locale_t classicLocale() {
    static locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return loc;
}
} // namespace

CStringA CbWideToUtf8(std::wstring_view w) {
    std::string out;
    out.reserve(w.size());
    for (size_t i = 0; i < w.size(); ++i) {
        char32_t c = static_cast<char32_t>(w[i]);
        // wchar_t may hold UTF-16 surrogate pairs when the text came through a 16-bit channel.
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < w.size()) {
            char32_t lo = static_cast<char32_t>(w[i + 1]);
            if (lo >= 0xDC00 && lo <= 0xDFFF) {
                c = 0x10000 + ((c - 0xD800) << 10) + (lo - 0xDC00);
                ++i;
            }
        }
        appendUtf8(out, c);
    }
    return CStringA(std::move(out));
}

CStringW CbUtf8ToWide(std::string_view s) {
    std::wstring out;
    out.reserve(s.size());
    size_t i = 0;
    while (i < s.size()) {
        unsigned char b = static_cast<unsigned char>(s[i]);
        char32_t c;
        size_t len;
        if (b < 0x80) { c = b; len = 1; }
        else if ((b & 0xE0) == 0xC0) { c = b & 0x1F; len = 2; }
        else if ((b & 0xF0) == 0xE0) { c = b & 0x0F; len = 3; }
        else if ((b & 0xF8) == 0xF0) { c = b & 0x07; len = 4; }
        else { out.push_back(0xFFFD); ++i; continue; }
        if (i + len > s.size()) { out.push_back(0xFFFD); ++i; continue; }
        bool ok = true;
        for (size_t k = 1; k < len; ++k) {
            unsigned char cb = static_cast<unsigned char>(s[i + k]);
            if ((cb & 0xC0) != 0x80) { ok = false; break; }
            c = (c << 6) | (cb & 0x3F);
        }
        if (!ok) { out.push_back(0xFFFD); ++i; continue; }
        out.push_back(static_cast<wchar_t>(c));
        i += len;
    }
    return CStringW(std::move(out));
}

CStringA CbFormatA(const char* format, ...) {
    locale_t previous = uselocale(classicLocale());
    char small[256];
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(small, sizeof(small), format, args);
    va_end(args);
    CStringA result;
    if (n >= 0 && static_cast<size_t>(n) < sizeof(small)) {
        result.assign(small, static_cast<size_t>(n));
    } else if (n >= 0) {
        std::vector<char> big(static_cast<size_t>(n) + 1);
        std::vsnprintf(big.data(), big.size(), format, copy);
        result.assign(big.data(), static_cast<size_t>(n));
    }
    va_end(copy);
    uselocale(previous);
    return result;
}

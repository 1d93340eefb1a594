#include "vnbase/vnstreamreadascii.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace {
constexpr const char* kSource = "vnlibraries/vnbase/vnstreamreadascii";
inline bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }
} // namespace

template <class S> bool VnStreamReadASCIIT<S>::ReadLine(std::string_view& line) {
    ensure();
    if (m_atEnd) {
        line = {};
        return false;
    }
    const char* lf = static_cast<const char*>(std::memchr(m_cur, '\n', static_cast<size_t>(m_end - m_cur)));
    if (lf) {
        line = std::string_view(m_cur, static_cast<size_t>(lf - m_cur));
        m_cur = lf + 1;
        return true;
    }
    // The line runs past the window: gather it in the scratch buffer.
    m_scratch.assign(m_cur, m_end);
    m_cur = m_end;
    for (;;) {
        if (!refill()) {
            m_cur = m_end; // nothing more; the end flag is set by the next read
            break;
        }
        lf = static_cast<const char*>(std::memchr(m_cur, '\n', static_cast<size_t>(m_end - m_cur)));
        if (lf) {
            m_scratch.append(m_cur, lf);
            m_cur = lf + 1;
            break;
        }
        m_scratch.append(m_cur, m_end);
        m_cur = m_end;
    }
    line = m_scratch;
    return true;
}

template <class S> std::string_view VnStreamReadASCIIT<S>::ReadToken() {
    // Skip whitespace and comments.
    for (;;) {
        ensure();
        if (m_atEnd) return {};
        char c = *m_cur;
        if (isSpace(c)) {
            ++m_cur;
        } else if (c == '#') {
            while (true) {
                ensure();
                if (m_atEnd || *m_cur == '\n' || *m_cur == '\r') break;
                ++m_cur;
            }
        } else {
            break;
        }
    }
    m_scratch.clear();
    for (;;) {
        const char* p = m_cur;
        while (p < m_end && !isSpace(*p) && *p != '#') ++p;
        if (p < m_end) {
            if (m_scratch.empty()) {
                std::string_view tok(m_cur, static_cast<size_t>(p - m_cur));
                m_cur = p;
                return tok;
            }
            m_scratch.append(m_cur, p);
            m_cur = p;
            return m_scratch;
        }
        m_scratch.append(m_cur, p);
        m_cur = p;
        ensure();
        if (m_atEnd) return m_scratch;
    }
}

template <class S> uint32_t VnStreamReadASCIIT<S>::ReadUnsigned() {
    std::string_view tok = ReadToken();
    if (tok.empty() || tok[0] == '-' || tok[0] == '+') throw CbExceptionStream(kSource, __LINE__, "VnStreamReadASCIIT::ReadUnsigned");
    uint64_t v = 0;
    auto [ptr, ec] = std::from_chars(tok.data(), tok.data() + tok.size(), v);
    if (ec != std::errc() || ptr != tok.data() + tok.size() || v > 0xFFFFFFFFull)
        throw CbExceptionStream(kSource, __LINE__, "VnStreamReadASCIIT::ReadUnsigned");
    return static_cast<uint32_t>(v);
}

template <class S> float VnStreamReadASCIIT<S>::ReadFloat() {
    std::string_view tok = ReadToken();
    const char* b = tok.data();
    const char* e = b + tok.size();
    if (b != e && *b == '+') {
        ++b; // from_chars refuses a leading plus that C accepts
        // ...but only one sign: without this, "+-1" would parse as -1.
        if (b != e && *b == '-') throw CbExceptionStream(kSource, __LINE__, "VnStreamReadASCIIT::ReadFloat");
    }
    double v = 0;
    auto [ptr, ec] = std::from_chars(b, e, v);
    if (tok.empty() || ptr != e || (ec != std::errc() && ec != std::errc::result_out_of_range))
        throw CbExceptionStream(kSource, __LINE__, "VnStreamReadASCIIT::ReadFloat");
    if (ec == std::errc::result_out_of_range) {
        // Out of range for double: C gives +-HUGE_VAL or a denormal/zero; keep the sign.
        bool neg = tok[0] == '-';
        // A huge exponent overflows, a tiny one underflows.
        const char* ex = static_cast<const char*>(std::memchr(tok.data(), 'e', tok.size()));
        if (!ex) ex = static_cast<const char*>(std::memchr(tok.data(), 'E', tok.size()));
        bool tiny = ex && ex + 1 < e && ex[1] == '-';
        v = tiny ? 0.0 : HUGE_VAL;
        if (neg) v = -v;
    }
    return static_cast<float>(v);
}

template class VnStreamReadASCIIT<CStringA>;

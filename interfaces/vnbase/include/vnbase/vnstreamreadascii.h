#pragma once
// Narrow text input, one character at a time, with a line reader and a number extractor
// built on the same window. The current character is valid while IsEnd() is false.
//
// Lines: ReadLine returns the characters up to the next LF (the LF is consumed, not
// returned; a CR before it is kept, callers that accept CR LF trim it). A last line
// without LF is returned like any other; the end flag is set only by a read that finds
// no character at all.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "basepool/cbexception.h"
#include "basepool/cbstring.h"

template <class S> class VnStreamReadASCIIT {
public:
    virtual ~VnStreamReadASCIIT() = default;

    bool IsEnd() { ensure(); return m_atEnd; }
    // The current character; only meaningful while !IsEnd().
    char GetChar() { ensure(); return m_atEnd ? '\0' : *m_cur; }
    // Advances to the next character, setting the end flag when none is left.
    void Next() {
        ensure();
        if (!m_atEnd) ++m_cur;
    }

    // The characters buffered now, from the current one on; empty only at the end of the
    // data. Lets tokenisers scan without a call per character; Advance(n) consumes n of them.
    std::string_view Window() {
        ensure();
        return std::string_view(m_cur, static_cast<size_t>(m_end - m_cur));
    }
    void Advance(size_t n) { m_cur += n; }

    // Reads the next line into `line` (see above). Returns false, with the end flag set,
    // when no character was left.
    bool ReadLine(S& line) {
        std::string_view v;
        if (!ReadLine(v)) { line.clear(); return false; }
        line.assign(v.data(), v.size());
        return true;
    }
    // Zero-copy form: the view stays valid until the next read of any kind.
    bool ReadLine(std::string_view& line);

    // Number extraction: skips whitespace and '#' comments (to the end of the line), then
    // parses one token in the "C" locale. A partial token, a sign on an unsigned value, a
    // value above 2^32 - 1 or the end of the data throws CbExceptionStream.
    uint32_t ReadUnsigned();
    float ReadFloat();
    // The next whitespace-delimited token after skipping whitespace and comments; empty at end.
    std::string_view ReadToken();

protected:
    // Makes more characters available in [m_cur, m_end); returns false at the end of data.
    virtual bool refill() = 0;
    const char* m_cur = nullptr;
    const char* m_end = nullptr;

private:
    void ensure() {
        if (m_cur == m_end && !m_atEnd && !refill()) m_atEnd = true;
    }
    bool m_atEnd = false;
    std::string m_scratch;
};

// Reads text held in memory (copied).
class VnStreamReadASCIIMemory : public VnStreamReadASCIIT<CStringA> {
public:
    explicit VnStreamReadASCIIMemory(std::string_view text) : m_text(text) {
        m_cur = m_text.data();
        m_end = m_cur + m_text.size();
    }

protected:
    bool refill() override { return false; }

private:
    std::string m_text;
};

extern template class VnStreamReadASCIIT<CStringA>;

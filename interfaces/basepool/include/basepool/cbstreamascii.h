#pragma once
// Narrow text output. Writes append characters without terminator and chain; the stream
// keeps a window so that small writes are an inline copy.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "basepool/cbexception.h"
#include "basepool/cbstring.h"

template <class S> class CbStreamWriteASCIIT {
public:
    virtual ~CbStreamWriteASCIIT() = default;
    void Write(const char* text, size_t count) {
        if (count <= static_cast<size_t>(m_end - m_cur)) {
            if (count) std::memcpy(m_cur, text, count);
            m_cur += count;
            return;
        }
        writeSlow(text, count);
    }
    CbStreamWriteASCIIT& operator<<(const char* text) {
        if (text) Write(text, std::strlen(text));
        return *this;
    }
    CbStreamWriteASCIIT& operator<<(const S& text) {
        Write(text.data(), text.size());
        return *this;
    }
    CbStreamWriteASCIIT& operator<<(std::string_view text) {
        Write(text.data(), text.size());
        return *this;
    }
    // Pushes buffered text to the sink; throws CbExceptionStream when the sink fails.
    virtual void Flush() {}

protected:
    virtual void writeSlow(const char* text, size_t count) = 0;
    char* m_cur = nullptr;
    char* m_end = nullptr;
};

// Collects text in memory.
class CbStreamWriteASCIIMemory : public CbStreamWriteASCIIT<CStringA> {
public:
    CbStreamWriteASCIIMemory() = default;
    CbStreamWriteASCIIMemory(const CbStreamWriteASCIIMemory&) = delete;
    CbStreamWriteASCIIMemory& operator=(const CbStreamWriteASCIIMemory&) = delete;
    const std::string& GetText() {
        m_text.resize(m_size + static_cast<size_t>(m_cur - m_window));
        m_size = m_text.size();
        m_window = m_cur = m_end = nullptr;
        return m_text;
    }

protected:
    void writeSlow(const char* text, size_t count) override {
        m_size += static_cast<size_t>(m_cur - m_window);
        size_t need = m_size + count;
        if (need > m_text.size()) m_text.resize(std::max(need, m_text.size() * 2 + 4096));
        if (count) std::memcpy(m_text.data() + m_size, text, count);
        m_size = need;
        m_window = m_cur = m_text.data() + m_size;
        m_end = m_text.data() + m_text.size();
    }

private:
    std::string m_text;
    size_t m_size = 0;        // bytes committed before the current window
    char* m_window = nullptr; // start of the current window
};

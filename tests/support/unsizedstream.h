#pragma once
// A memory source that does not know its size, like a pipe.
#include <algorithm>
#include <cstring>
#include <string>

#include "basepool/cbstreambinary.h"

namespace VnTest {

// Readers given this source cannot size buffers from the bytes left; they must grow them
// with what actually arrives.
class CStreamReadUnsized : public CbStreamReadBinary {
public:
    explicit CStreamReadUnsized(std::string bytes) : m_bytes(std::move(bytes)) {}

protected:
    size_t readSlow(void* buffer, size_t count) override {
        size_t n = std::min(count, m_bytes.size() - m_at);
        std::memcpy(buffer, m_bytes.data() + m_at, n);
        m_at += n;
        return n;
    }

private:
    std::string m_bytes;
    size_t m_at = 0;
};

} // namespace VnTest

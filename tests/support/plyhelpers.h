#pragma once
// Byte builders and stream wrappers for the PLY suites.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "basepool/cbstreambinary.h"
#include "support/unsizedstream.h"

namespace VnTest {

// Appends text and raw values in either byte order, to build PLY bodies by hand.
class CPlyBytes {
public:
    CPlyBytes& Text(const std::string& s) {
        m_bytes += s;
        return *this;
    }
    template <class T> CPlyBytes& Le(T v) { return put(v, false); }
    template <class T> CPlyBytes& Be(T v) { return put(v, true); }
    const std::string& Str() const { return m_bytes; }

private:
    template <class T> CPlyBytes& put(T v, bool bigEndian) {
        char b[sizeof(T)];
        std::memcpy(b, &v, sizeof(T));
        if (bigEndian != (std::endian::native == std::endian::big))
            for (size_t i = 0; i < sizeof(T) / 2; ++i) std::swap(b[i], b[sizeof(T) - 1 - i]);
        m_bytes.append(b, sizeof(T));
        return *this;
    }
    std::string m_bytes;
};

// True when the shell finds `program` on the PATH.
bool HaveProgram(const std::string& program);
// Runs a shell command and returns its standard output.
std::string RunCommand(const std::string& command);

} // namespace VnTest

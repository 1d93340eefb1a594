#pragma once
// A refillable window over a byte stream for the PLY reader. The reader works on pointers
// into the window and asks for more only at the edges, so the hot loops see plain memory.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "basepool/cbstreambinary.h"

namespace VnPlyCodec {

class CInput {
public:
    static constexpr size_t kChunk = size_t(1) << 18;

    explicit CInput(CbStreamRead& stream) : m_stream(stream), m_buffer(kChunk) { m_pos = m_end = m_buffer.data(); }

    const uint8_t* Pos() const { return m_pos; }
    const uint8_t* End() const { return m_end; }
    size_t Available() const { return static_cast<size_t>(m_end - m_pos); }
    void SetPos(const uint8_t* p) { m_pos = p; }
    void Advance(size_t n) { m_pos += n; }
    bool StreamEnded() const { return m_ended; }

    // Makes at least `n` bytes readable from Pos() unless the stream ends first; returns
    // the bytes readable. `n` is bounded by the callers (a row or a header line).
    size_t Require(size_t n) {
        if (Available() >= n) return Available();
        while (Available() < n && !m_ended) refill(n);
        return Available();
    }
    // Reads at least one more byte unless the stream has ended; false at the end.
    bool More() {
        if (m_ended) return false;
        size_t before = Available();
        refill(before + 1);
        return Available() > before;
    }
    // Skips `n` bytes; returns how many could be skipped.
    uint64_t Skip(uint64_t n) {
        uint64_t done = 0;
        while (done < n) {
            if (m_pos == m_end && !More()) break;
            size_t step = static_cast<size_t>(std::min<uint64_t>(n - done, Available()));
            m_pos += step;
            done += step;
        }
        return done;
    }

    // Offset of `p` (a pointer into the window) from the start of the stream.
    uint64_t OffsetOf(const uint8_t* p) const { return m_base + static_cast<uint64_t>(p - m_buffer.data()); }
    uint64_t Offset() const { return OffsetOf(m_pos); }
    // Bytes from Pos() to the end of the stream, or CbStreamRead::kUnknownSize.
    uint64_t BytesLeft() const {
        uint64_t rest = m_ended ? 0 : m_stream.GetBytesLeft();
        return rest == CbStreamRead::kUnknownSize ? rest : rest + Available();
    }

    // Line numbers for text: counts the newlines of bytes before `p`, so a message can say
    // where a token was. Only the bytes dropped from the window are counted as it moves.
    void TrackLines(bool on) { m_trackLines = on; }
    uint64_t LineOf(const uint8_t* p) const {
        return 1 + m_lines +
               static_cast<uint64_t>(std::count(static_cast<const uint8_t*>(m_buffer.data()), p, uint8_t('\n')));
    }

private:
    void refill(size_t want) {
        size_t keep = Available();
        uint8_t* base = m_buffer.data();
        if (m_trackLines)
            m_lines += static_cast<uint64_t>(std::count(static_cast<const uint8_t*>(base), m_pos, uint8_t('\n')));
        m_base += static_cast<uint64_t>(m_pos - base);
        if (keep && m_pos != base) std::memmove(base, m_pos, keep);
        if (m_buffer.size() < want) {
            m_buffer.resize(std::max(want, m_buffer.size() * 2));
            base = m_buffer.data();
        }
        size_t room = m_buffer.size() - keep;
        size_t got = m_stream.ReadBuffer(base + keep, room);
        if (got < room) m_ended = true;
        m_pos = base;
        m_end = base + keep + got;
    }

    CbStreamRead& m_stream;
    std::vector<uint8_t> m_buffer;
    const uint8_t* m_pos = nullptr;
    const uint8_t* m_end = nullptr;
    uint64_t m_base = 0;  // stream offset of m_buffer[0]
    uint64_t m_lines = 0; // newlines before m_buffer[0]
    bool m_ended = false;
    bool m_trackLines = true;
};

} // namespace VnPlyCodec

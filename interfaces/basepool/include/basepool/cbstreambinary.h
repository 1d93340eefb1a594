#pragma once
// Typed little-endian binary streams. Values travel in their natural width without
// padding; `long`/`unsigned long` travel as 4 bytes. A narrow string is a u32 byte count
// plus the bytes; a wide string a u32 count of UTF-16 code units plus UTF-16LE.
//
// Both streams keep a window of bytes (`m_cur`..`m_end`) so that typed reads and writes
// are an inline copy; concrete sources and sinks only refill or drain the window.
#include <bit>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "basepool/cbexception.h"
#include "basepool/cbstring.h"

class CbStreamRead {
public:
    virtual ~CbStreamRead() = default;
    // Reads the u32 written by WriteVersion and returns it; a value above `version`
    // throws CbExceptionWrongFileVersion.
    uint32_t ReadAndCompareVersion(uint32_t version);
    // Fills `buffer` with up to `count` bytes; returns how many were read (short at the end).
    size_t ReadBuffer(void* buffer, size_t count) {
        if (count <= static_cast<size_t>(m_end - m_cur)) {
            if (count) std::memcpy(buffer, m_cur, count);
            m_cur += count;
            return count;
        }
        return readSlow(buffer, count);
    }
    // Bytes left when the source size is known, else kUnknownSize.
    static constexpr uint64_t kUnknownSize = std::numeric_limits<uint64_t>::max();
    virtual uint64_t GetBytesLeft() const { return kUnknownSize; }
    // How many of `count` claimed elements, each at least `minBytes` long, the bytes left can
    // hold: all a reader may reserve on the strength of a count. A source of unknown size
    // vouches for none, and the reader grows with what arrives.
    uint64_t GetReservable(uint64_t count, uint64_t minBytes) const {
        const uint64_t left = GetBytesLeft();
        if (left == kUnknownSize) return 0;
        return minBytes ? std::min(count, left / minBytes) : count;
    }

protected:
    // Serves a read that the window cannot satisfy; returns the bytes delivered.
    virtual size_t readSlow(void* buffer, size_t count) = 0;
    const uint8_t* m_cur = nullptr;
    const uint8_t* m_end = nullptr;
};

class CbStreamReadBinary : public CbStreamRead {
public:
    CbStreamReadBinary& operator>>(bool& v);
    CbStreamReadBinary& operator>>(char& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(signed char& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(unsigned char& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(short& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(unsigned short& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(int& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(unsigned int& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(long& v);
    CbStreamReadBinary& operator>>(unsigned long& v);
    CbStreamReadBinary& operator>>(long long& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(unsigned long long& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(float& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(double& v) { return readRaw(v); }
    CbStreamReadBinary& operator>>(std::string& v);
    CbStreamReadBinary& operator>>(std::wstring& v);
    CbStreamReadBinary& operator>>(CStringA& v) { return *this >> static_cast<std::string&>(v); }
    CbStreamReadBinary& operator>>(CStringW& v) { return *this >> static_cast<std::wstring&>(v); }

    // Reads exactly `count` bytes or throws CbExceptionStream.
    void ReadExact(void* buffer, size_t count);

private:
    template <class T> CbStreamReadBinary& readRaw(T& v) {
        static_assert(std::endian::native == std::endian::little, "little-endian host assumed");
        ReadExact(&v, sizeof(T));
        return *this;
    }
};

class CbStreamWrite {
public:
    virtual ~CbStreamWrite() = default;
    // Writes all bytes or throws CbExceptionStream.
    void WriteBuffer(const void* buffer, size_t count) {
        if (count <= static_cast<size_t>(m_end - m_cur)) {
            if (count) std::memcpy(m_cur, buffer, count);
            m_cur += count;
            return;
        }
        writeSlow(buffer, count);
    }
    void WriteVersion(uint32_t version) { WriteBuffer(&version, 4); }
    // Pushes buffered bytes to the sink.
    virtual void Flush() {}

protected:
    virtual void writeSlow(const void* buffer, size_t count) = 0;
    uint8_t* m_cur = nullptr;
    uint8_t* m_end = nullptr;
};

class CbStreamWriteBinary : public CbStreamWrite {
public:
    CbStreamWriteBinary& operator<<(bool v) { uint8_t b = v ? 1 : 0; return writeRaw(b); }
    CbStreamWriteBinary& operator<<(char v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(signed char v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(unsigned char v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(short v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(unsigned short v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(int v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(unsigned int v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(long v) { return writeRaw(static_cast<int32_t>(v)); }
    CbStreamWriteBinary& operator<<(unsigned long v) { return writeRaw(static_cast<uint32_t>(v)); }
    CbStreamWriteBinary& operator<<(long long v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(unsigned long long v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(float v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(double v) { return writeRaw(v); }
    CbStreamWriteBinary& operator<<(const char* v);
    CbStreamWriteBinary& operator<<(const wchar_t* v);
    CbStreamWriteBinary& operator<<(const std::string& v);
    CbStreamWriteBinary& operator<<(const std::wstring& v);

private:
    template <class T> CbStreamWriteBinary& writeRaw(const T& v) {
        WriteBuffer(&v, sizeof(T));
        return *this;
    }
};

// Reads from caller memory (not owned) or from an owned copy.
class CbStreamReadBinaryMemory : public CbStreamReadBinary {
public:
    CbStreamReadBinaryMemory(const void* data, size_t size);
    explicit CbStreamReadBinaryMemory(std::vector<uint8_t> owned);
    uint64_t GetBytesLeft() const override { return static_cast<uint64_t>(m_end - m_cur); }
    size_t GetPosition() const { return static_cast<size_t>(m_cur - m_begin); }

protected:
    size_t readSlow(void* buffer, size_t count) override;

private:
    std::vector<uint8_t> m_owned;
    const uint8_t* m_begin;
};

// Writes into a growing byte vector.
class CbStreamWriteBinaryMemory : public CbStreamWriteBinary {
public:
    CbStreamWriteBinaryMemory();
    CbStreamWriteBinaryMemory(const CbStreamWriteBinaryMemory&) = delete;
    CbStreamWriteBinaryMemory& operator=(const CbStreamWriteBinaryMemory&) = delete;
    // The bytes written so far.
    const std::vector<uint8_t>& GetData();
    std::vector<uint8_t> TakeData();
    size_t GetSize() const;

protected:
    void writeSlow(const void* buffer, size_t count) override;
    // Appends without a write window, so every write reaches writeSlow.
    void appendUnbuffered(const void* buffer, size_t count);
    void disableWindow() { m_cur = m_end = nullptr; m_windowed = false; }

private:
    std::vector<uint8_t> m_data; // capacity region; the live bytes are [0, m_size)
    size_t m_size = 0;
    bool m_windowed = true;
    void syncSize();
};

// A sink that fails every write after `limit` bytes: lets tests drive writers into their
// stream-failure paths.
class CbStreamWriteBinaryLimited : public CbStreamWriteBinaryMemory {
public:
    explicit CbStreamWriteBinaryLimited(size_t limit) : m_limit(limit) { disableWindow(); }

protected:
    void writeSlow(const void* buffer, size_t count) override;

private:
    size_t m_limit;
};

#include "basepool/cbstreambinary.h"

#include <algorithm>

namespace {
constexpr const char* kSource = "basepool/cbstreambinary";

// Strings are bounded by what the stream can still deliver; an unknown-size source gets
// a generous fixed ceiling so that a forged count cannot allocate without bound.
constexpr uint64_t kMaxStringUnknownSource = 1u << 28;

void checkCount(const CbStreamRead& s, uint64_t bytes, const char* function) {
    uint64_t left = s.GetBytesLeft();
    uint64_t limit = left == CbStreamRead::kUnknownSize ? kMaxStringUnknownSource : left;
    if (bytes > limit) throw CbExceptionStream(kSource, __LINE__, function);
}
} // namespace

uint32_t CbStreamRead::ReadAndCompareVersion(uint32_t version) {
    uint32_t stored = 0;
    if (ReadBuffer(&stored, 4) != 4) throw CbExceptionStream(kSource, __LINE__, "CbStreamRead::ReadAndCompareVersion");
    if (stored > version) throw CbExceptionWrongFileVersion(kSource, __LINE__, "CbStreamRead::ReadAndCompareVersion");
    return stored;
}

void CbStreamReadBinary::ReadExact(void* buffer, size_t count) {
    if (ReadBuffer(buffer, count) != count) throw CbExceptionStream(kSource, __LINE__, "CbStreamReadBinary::operator>>");
}

CbStreamReadBinary& CbStreamReadBinary::operator>>(bool& v) {
    uint8_t b;
    ReadExact(&b, 1);
    v = b != 0;
    return *this;
}

CbStreamReadBinary& CbStreamReadBinary::operator>>(long& v) {
    int32_t w;
    ReadExact(&w, 4);
    v = w;
    return *this;
}

CbStreamReadBinary& CbStreamReadBinary::operator>>(unsigned long& v) {
    uint32_t w;
    ReadExact(&w, 4);
    v = w;
    return *this;
}

CbStreamReadBinary& CbStreamReadBinary::operator>>(std::string& v) {
    uint32_t n;
    *this >> n;
    checkCount(*this, n, "CbStreamReadBinary::operator>>");
    std::string s(n, '\0');
    ReadExact(s.data(), n);
    v = std::move(s);
    return *this;
}

CbStreamReadBinary& CbStreamReadBinary::operator>>(std::wstring& v) {
    uint32_t n;
    *this >> n;
    checkCount(*this, uint64_t(n) * 2, "CbStreamReadBinary::operator>>");
    std::vector<uint16_t> units(n);
    ReadExact(units.data(), size_t(n) * 2);
    std::wstring s;
    s.reserve(n);
    for (size_t i = 0; i < units.size(); ++i) {
        char32_t c = units[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (units[i + 1] - 0xDC00);
            ++i;
        }
        s.push_back(static_cast<wchar_t>(c));
    }
    v = std::move(s);
    return *this;
}

CbStreamWriteBinary& CbStreamWriteBinary::operator<<(const char* v) { return *this << std::string(v ? v : ""); }
CbStreamWriteBinary& CbStreamWriteBinary::operator<<(const wchar_t* v) { return *this << std::wstring(v ? v : L""); }

CbStreamWriteBinary& CbStreamWriteBinary::operator<<(const std::string& v) {
    if (v.size() > 0xFFFFFFFFu) throw CbExceptionStream(kSource, __LINE__, "CbStreamWriteBinary::operator<<");
    *this << static_cast<uint32_t>(v.size());
    WriteBuffer(v.data(), v.size());
    return *this;
}

CbStreamWriteBinary& CbStreamWriteBinary::operator<<(const std::wstring& v) {
    std::vector<uint16_t> units;
    units.reserve(v.size());
    for (wchar_t w : v) {
        char32_t c = static_cast<char32_t>(w);
        if (c >= 0x10000 && c <= 0x10FFFF) {
            c -= 0x10000;
            units.push_back(static_cast<uint16_t>(0xD800 + (c >> 10)));
            units.push_back(static_cast<uint16_t>(0xDC00 + (c & 0x3FF)));
        } else {
            units.push_back(static_cast<uint16_t>(c > 0x10FFFF ? 0xFFFD : c));
        }
    }
    *this << static_cast<uint32_t>(units.size());
    WriteBuffer(units.data(), units.size() * 2);
    return *this;
}

CbStreamReadBinaryMemory::CbStreamReadBinaryMemory(const void* data, size_t size) {
    m_begin = static_cast<const uint8_t*>(data);
    m_cur = m_begin;
    m_end = m_begin + size;
}

CbStreamReadBinaryMemory::CbStreamReadBinaryMemory(std::vector<uint8_t> owned) : m_owned(std::move(owned)) {
    m_begin = m_owned.data();
    m_cur = m_begin;
    m_end = m_begin + m_owned.size();
}

size_t CbStreamReadBinaryMemory::readSlow(void* buffer, size_t count) {
    size_t n = std::min(count, static_cast<size_t>(m_end - m_cur));
    if (n) std::memcpy(buffer, m_cur, n);
    m_cur += n;
    return n;
}

CbStreamWriteBinaryMemory::CbStreamWriteBinaryMemory() {
    m_data.resize(4096);
    m_cur = m_data.data();
    m_end = m_cur + m_data.size();
}

void CbStreamWriteBinaryMemory::syncSize() {
    if (m_windowed) m_size = static_cast<size_t>(m_cur - m_data.data());
}

void CbStreamWriteBinaryMemory::writeSlow(const void* buffer, size_t count) {
    syncSize();
    size_t need = m_size + count;
    if (need > m_data.size()) m_data.resize(std::max(need, m_data.size() * 2));
    if (count) std::memcpy(m_data.data() + m_size, buffer, count);
    m_size = need;
    if (m_windowed) {
        m_cur = m_data.data() + m_size;
        m_end = m_data.data() + m_data.size();
    }
}

void CbStreamWriteBinaryMemory::appendUnbuffered(const void* buffer, size_t count) {
    CbStreamWriteBinaryMemory::writeSlow(buffer, count);
}

const std::vector<uint8_t>& CbStreamWriteBinaryMemory::GetData() {
    syncSize();
    m_data.resize(m_size);
    if (m_windowed) {
        m_cur = m_data.data() + m_size;
        m_end = m_cur;
    }
    return m_data;
}

std::vector<uint8_t> CbStreamWriteBinaryMemory::TakeData() {
    GetData();
    std::vector<uint8_t> out = std::move(m_data);
    m_data.clear();
    m_size = 0;
    if (m_windowed) m_cur = m_end = nullptr;
    return out;
}

size_t CbStreamWriteBinaryMemory::GetSize() const {
    return m_windowed ? static_cast<size_t>(m_cur - m_data.data()) : m_size;
}

void CbStreamWriteBinaryLimited::writeSlow(const void* buffer, size_t count) {
    if (GetSize() + count > m_limit) throw CbExceptionStream(kSource, __LINE__, "CbStreamWriteBinaryLimited::WriteBuffer");
    appendUnbuffered(buffer, count);
}

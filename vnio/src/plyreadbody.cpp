// PLY body decoding: ASCII, binary little-endian and binary big-endian, into the requested
// buffers. Rows whose layout is plain copies (the usual float positions, byte colours and
// uchar-counted int indices of a little-endian file) take a block path; everything else
// goes value by value through the converting path.
#include <algorithm>
#include <bit>
#include <charconv>
#include <limits>
#include <stdexcept>

#include "detail/plycodec.h"
#include "detail/plyinput.h"
#include "detail/plyrequest.h"
#include "detail/plyvalues.h"

namespace VnPlyCodec {

// Where one property of an element goes: nowhere (sink < 0) or a column of a request.
struct CReader::SSlot {
    EType type = EType::eNone;
    EType countType = EType::eNone;
    int sink = -1;
    uint32_t column = 0;
};

namespace {

constexpr size_t kMaxToken = 4096;

// The rows of one request, allocated up front when the bytes left vouch for the count and
// grown as rows arrive when the stream cannot tell its size.
struct SSink {
    CReader::SRequest* request = nullptr;
    SBuffer* buffer = nullptr;
    size_t valueSize = 0;
    size_t rowBytes = 0; // 0 for lists of free length
    uint64_t total = 0;
    uint64_t capacity = 0;

    uint8_t* Row(uint64_t row) {
        if (row >= capacity) grow(row + 1);
        return buffer->bytes.data() + row * rowBytes;
    }
    void Reserve(uint64_t rows) {
        if (rows > capacity) grow(rows);
    }
    void grow(uint64_t rows) {
        capacity = std::min(total, std::max({rows, capacity * 2, uint64_t(4096)}));
        buffer->bytes.resize(static_cast<size_t>(capacity * rowBytes));
    }
};

struct SElementPlan {
    std::vector<CReader::SSlot> slots;
    std::vector<SSink> sinks;
};

[[noreturn]] void bodyError(const SElement& e, uint64_t row, const std::string& where, const std::string& what) {
    throw std::runtime_error("PLY element " + e.name + " row " + std::to_string(row) + " (" + where + "): " + what);
}

std::string valueText(const SProperty& p, EType out) { return "a value of " + p.name + " does not fit " + NameOf(out); }

// Slots and sinks of one element; checks that the declared rows can be in the bytes left
// before any buffer is sized from the count.
SElementPlan planElement(const SElement& e, size_t elementIndex,
                         std::vector<std::unique_ptr<CReader::SRequest>>& requests, bool ascii, uint64_t bytesLeft) {
    SElementPlan plan;
    plan.slots.resize(e.properties.size());
    for (size_t i = 0; i < e.properties.size(); ++i) {
        plan.slots[i].type = e.properties[i].type;
        plan.slots[i].countType = e.properties[i].countType;
    }
    for (auto& r : requests) {
        if (r->element != elementIndex) continue;
        SSink s;
        s.request = r.get();
        s.buffer = r->buffer.get();
        s.valueSize = SizeOf(r->type);
        s.rowBytes = (r->list && r->listSize == 0) ? 0 : s.valueSize * r->buffer->valuesPerRow;
        s.total = e.count;
        for (size_t c = 0; c < r->properties.size(); ++c) {
            plan.slots[r->properties[c]].sink = static_cast<int>(plan.sinks.size());
            plan.slots[r->properties[c]].column = static_cast<uint32_t>(c);
        }
        plan.sinks.push_back(s);
    }
    // The least a row can take: one byte per token plus a separator in text, the value
    // bytes in binary. Lists of a fixed requested length must hold that many values.
    uint64_t minRow = 0;
    for (const CReader::SSlot& s : plan.slots) {
        uint64_t fixedList = (s.countType != EType::eNone && s.sink >= 0) ? plan.sinks[s.sink].request->listSize : 0;
        if (ascii)
            minRow += 2 * (1 + fixedList);
        else if (s.countType == EType::eNone)
            minRow += SizeOf(s.type);
        else
            minRow += SizeOf(s.countType) + fixedList * SizeOf(s.type);
    }
    if (minRow && e.count > std::numeric_limits<uint64_t>::max() / minRow)
        throw std::runtime_error("PLY element " + e.name + " declares an impossible row count " +
                                 std::to_string(e.count));
    bool known = bytesLeft != CbStreamRead::kUnknownSize;
    // The last text token may go without a separator.
    uint64_t room = known && ascii ? bytesLeft + 1 : bytesLeft;
    if (known && minRow && e.count > room / minRow)
        throw std::runtime_error("PLY element " + e.name + " declares " + std::to_string(e.count) +
                                 " rows of at least " + std::to_string(minRow) + " bytes, but only " +
                                 std::to_string(bytesLeft) + " bytes are left");
    for (SSink& s : plan.sinks) {
        s.buffer->bytes.clear();
        s.buffer->listCounts.clear();
        if (s.rowBytes == 0) continue;
        if (known) s.Reserve(e.count);
    }
    return plan;
}

inline bool isSep(char c) { return static_cast<unsigned char>(c) <= ' '; }

// Token access over the input window. `m_limit` stops just after the last separator in the
// window (or at the end of the stream), so a number is never cut at the window's edge.
class CTokens {
public:
    explicit CTokens(CInput& in) : m_in(in) { sync(); }
    ~CTokens() { m_in.SetPos(reinterpret_cast<const uint8_t*>(m_p)); }

    // Moves to the start of the next token; false at the end of the data.
    bool Next() {
        for (;;) {
            while (m_p < m_limit && isSep(*m_p)) ++m_p;
            if (m_p < m_limit) return true;
            if (!refill()) return false;
        }
    }
    void SkipToken() {
        while (m_p < m_limit && !isSep(*m_p)) ++m_p;
    }
    // Parses the token at the cursor as T; false when it is not one whole number of T.
    template <class T> bool Parse(T& v) {
        const char* p = m_p;
        if (*p == '+' && p + 1 < m_limit && !isSep(p[1])) ++p;
        auto r = std::from_chars(p, m_limit, v);
        if constexpr (std::is_floating_point_v<T>) {
            if (r.ec == std::errc::result_out_of_range && r.ptr != p) {
                // Too small or too large for a float: decide through a double, which holds
                // anything a text file sensibly carries.
                if constexpr (std::is_same_v<T, float>) {
                    double d;
                    auto rd = std::from_chars(p, m_limit, d);
                    if (rd.ec != std::errc()) return false;
                    v = static_cast<float>(d);
                    r = {rd.ptr, std::errc()};
                }
            }
        }
        if (r.ec != std::errc() || (r.ptr != m_limit && !isSep(*r.ptr))) return false;
        m_p = r.ptr;
        return true;
    }
    // The cursor, to name a token in a message after it has been consumed.
    const char* Mark() const { return m_p; }
    std::string Where() const { return Where(m_p); }
    std::string Where(const char* at) const {
        return "line " + std::to_string(m_in.LineOf(reinterpret_cast<const uint8_t*>(at)));
    }
    std::string Token(const char* at) const {
        const char* e = at;
        while (e < m_limit && !isSep(*e) && e - at < 40) ++e;
        std::string quoted(1, '"');
        quoted.append(at, static_cast<size_t>(e - at));
        quoted += '"';
        return quoted;
    }

private:
    void sync() {
        m_p = reinterpret_cast<const char*>(m_in.Pos());
        const char* end = reinterpret_cast<const char*>(m_in.End());
        m_limit = end;
        if (!m_in.StreamEnded()) {
            while (m_limit > m_p && !isSep(m_limit[-1])) --m_limit;
        }
    }
    bool refill() {
        m_in.SetPos(reinterpret_cast<const uint8_t*>(m_p));
        if (m_in.Available() > kMaxToken)
            throw std::runtime_error("PLY " + Where() + ": token longer than " + std::to_string(kMaxToken) + " bytes");
        bool more = m_in.More();
        sync();
        return more || m_p < m_limit;
    }

    CInput& m_in;
    const char* m_p = nullptr;
    const char* m_limit = nullptr;
};

[[noreturn]] void badValue(const CTokens& t, const char* at, const SElement& e, const SProperty& p, uint64_t row,
                           EType out) {
    bodyError(e, row, t.Where(at),
              "bad value " + t.Token(at) + " of " + p.name + " (declared " + NameOf(p.type) + ", read as " +
                  NameOf(out) + ")");
}

// Parses one text value declared as `file` and stores it as `out` at `dst`.
bool parseAsciiValue(CTokens& t, EType file, EType out, uint8_t* dst) {
    switch (file) {
    case EType::eFloat32: {
        float f;
        if (!t.Parse(f)) return false;
        if (out == EType::eFloat32) {
            std::memcpy(dst, &f, 4);
            return true;
        }
        return StoreFromDouble(out, f, dst);
    }
    case EType::eFloat64: {
        double d;
        return t.Parse(d) && StoreFromDouble(out, d, dst);
    }
    default: {
        int64_t i;
        if (!t.Parse(i)) return false;
        // The value must fit the declared type as well as the requested one.
        uint8_t tmp[8];
        if (!StoreFromDouble(file, double(i), tmp)) return false;
        return StoreFromDouble(out, double(i), dst);
    }
    }
}

// A list length in text: an integer that fits the declared count type.
bool parseAsciiCount(CTokens& t, EType countType, uint64_t& count) {
    int64_t i;
    uint8_t tmp[8];
    if (!t.Parse(i) || i < 0 || !StoreFromDouble(countType, double(i), tmp)) return false;
    count = static_cast<uint64_t>(i);
    return true;
}

} // namespace

void CReader::Read() {
    if (m_read) throw std::invalid_argument("PLY body read twice");
    m_read = true;
    if (m_requests.empty()) return;
    size_t last = 0;
    for (const auto& r : m_requests) last = std::max(last, r->element);
    if (m_format == EFormat::eAscii) {
        readAscii(last);
    } else {
        m_input->TrackLines(false);
        readBinary(last);
    }
}

void CReader::readAscii(size_t last) {
    CInput& in = *m_input;
    for (size_t ei = 0; ei <= last; ++ei) {
        const SElement& e = m_elements[ei];
        if (e.properties.empty()) continue;
        SElementPlan plan = planElement(e, ei, m_requests, true, in.BytesLeft());
        CTokens t(in);
        auto need = [&](uint64_t row) {
            if (!t.Next()) bodyError(e, row, t.Where(), "unexpected end of file");
        };
        for (uint64_t row = 0; row < e.count; ++row) {
            for (size_t pi = 0; pi < plan.slots.size(); ++pi) {
                const SSlot& s = plan.slots[pi];
                const SProperty& p = e.properties[pi];
                need(row);
                if (s.countType == EType::eNone) {
                    if (s.sink < 0) {
                        t.SkipToken();
                        continue;
                    }
                    SSink& k = plan.sinks[s.sink];
                    uint8_t* dst = k.Row(row) + s.column * k.valueSize;
                    const char* at = t.Mark();
                    if (!parseAsciiValue(t, s.type, k.request->type, dst)) badValue(t, at, e, p, row, k.request->type);
                    continue;
                }
                uint64_t n;
                if (!parseAsciiCount(t, s.countType, n))
                    bodyError(e, row, t.Where(), "bad list length " + t.Token(t.Mark()) + " of " + p.name);
                if (s.sink < 0) {
                    for (uint64_t j = 0; j < n; ++j) {
                        need(row);
                        t.SkipToken();
                    }
                    continue;
                }
                SSink& k = plan.sinks[s.sink];
                uint32_t fixed = k.request->listSize;
                if (fixed && n != fixed)
                    bodyError(e, row, t.Where(),
                              "list " + p.name + " has " + std::to_string(n) + " values, expected " +
                                  std::to_string(fixed));
                if (!fixed) k.buffer->listCounts.push_back(static_cast<uint32_t>(n));
                for (uint64_t j = 0; j < n; ++j) {
                    need(row);
                    // Lists of free length grow with the values actually present, never
                    // with the length a file claims.
                    uint8_t* dst;
                    if (fixed) {
                        dst = k.Row(row) + j * k.valueSize;
                    } else {
                        size_t at = k.buffer->bytes.size();
                        k.buffer->bytes.resize(at + k.valueSize);
                        dst = k.buffer->bytes.data() + at;
                    }
                    const char* at = t.Mark();
                    if (!parseAsciiValue(t, s.type, k.request->type, dst)) badValue(t, at, e, p, row, k.request->type);
                }
            }
        }
        for (SSink& k : plan.sinks) {
            k.buffer->count = e.count;
            if (k.rowBytes) k.buffer->bytes.resize(static_cast<size_t>(e.count * k.rowBytes));
        }
    }
}

namespace {

// Copies a few bytes whose count is known only at run time; the common sizes become
// single moves.
inline void copySmall(uint8_t* dst, const uint8_t* src, size_t n) {
    switch (n) {
    case 1: *dst = *src; return;
    case 3: std::memcpy(dst, src, 3); return;
    case 4: std::memcpy(dst, src, 4); return;
    case 8: std::memcpy(dst, src, 8); return;
    case 12: std::memcpy(dst, src, 12); return;
    case 16: std::memcpy(dst, src, 16); return;
    default: std::memcpy(dst, src, n); return;
    }
}

// One run of a block row copy: bytes of consecutive properties that land side by side.
struct SCopy {
    size_t src = 0;
    int sink = 0;
    size_t dst = 0;
    size_t size = 0;
};

std::string byteWhere(const CInput& in, const uint8_t* p) { return "byte offset " + std::to_string(in.OffsetOf(p)); }

// Reads a list length of `type` (host order after swapping); false when negative or not
// an integer.
inline bool loadCount(EType type, const uint8_t* p, bool swap, uint64_t& n) {
    uint8_t tmp[8];
    size_t size = SizeOf(type);
    if (swap)
        SwapInto(p, size, tmp);
    else
        std::memcpy(tmp, p, size);
    double d = LoadAsDouble(type, tmp);
    if (!(d >= 0)) return false;
    n = static_cast<uint64_t>(d);
    return true;
}

} // namespace

namespace {

void readListBlock(CInput& in, const SElement& e, SSink& k, bool signCheck) {
    const SProperty& p = e.properties[0];
    const size_t countSize = SizeOf(p.countType);
    const size_t size = SizeOf(p.type);
    const uint32_t expected = k.request->listSize;
    const size_t values = expected * size;
    const size_t rowSize = countSize + values;
    auto badCount = [&](uint64_t row, const uint8_t* at) {
        uint64_t n = 0;
        if (!loadCount(p.countType, at, false, n))
            bodyError(e, row, byteWhere(in, at), "negative length of list " + p.name);
        bodyError(e, row, byteWhere(in, at),
                  "list " + p.name + " has " + std::to_string(n) + " values, expected " + std::to_string(expected));
    };
    auto countOk = [&](const uint8_t* at) {
        if (countSize == 1) return *at == expected;
        uint64_t n = 0;
        return loadCount(p.countType, at, false, n) && n == expected;
    };
    uint64_t row = 0;
    while (row < e.count) {
        if (in.Available() < rowSize) {
            if (in.Require(countSize) < countSize) bodyError(e, row, byteWhere(in, in.Pos()), "unexpected end of file");
            if (!countOk(in.Pos())) badCount(row, in.Pos());
            if (in.Require(rowSize) < rowSize) bodyError(e, row, byteWhere(in, in.Pos()), "unexpected end of file");
        }
        uint64_t n = std::min<uint64_t>(in.Available() / rowSize, e.count - row);
        k.Reserve(row + n);
        const uint8_t* src = in.Pos();
        uint8_t* dst = k.buffer->bytes.data() + row * k.rowBytes;
        for (uint64_t i = 0; i < n; ++i, src += rowSize, dst += values) {
            if (!countOk(src)) badCount(row + i, src);
            copySmall(dst, src + countSize, values);
            if (signCheck) {
                // Little-endian: the top bit of a value is the top bit of its last byte.
                uint8_t high = 0;
                for (uint32_t j = 0; j < expected; ++j) high |= src[countSize + j * size + size - 1];
                if (high & 0x80) bodyError(e, row + i, byteWhere(in, src), valueText(p, k.request->type));
            }
        }
        in.Advance(static_cast<size_t>(n * rowSize));
        row += n;
    }
}

} // namespace

void CReader::readBinary(size_t last) {
    CInput& in = *m_input;
    const bool swap = (m_format == EFormat::eBinaryBigEndian) != (std::endian::native == std::endian::big);
    for (size_t ei = 0; ei <= last; ++ei) {
        const SElement& e = m_elements[ei];
        if (e.properties.empty() || e.count == 0) continue;
        SElementPlan plan = planElement(e, ei, m_requests, false, in.BytesLeft());
        bool scalarRows =
            std::none_of(e.properties.begin(), e.properties.end(), [](const SProperty& p) { return p.IsList(); });
        size_t rowSize = 0;
        for (const SProperty& p : e.properties) rowSize += p.IsList() ? 0 : SizeOf(p.type);

        if (scalarRows && plan.sinks.empty()) {
            // Nothing wanted here: the rows are skipped as one block.
            if (in.Skip(e.count * rowSize) != e.count * rowSize)
                bodyError(e, e.count - 1, byteWhere(in, in.Pos()), "unexpected end of file");
            continue;
        }

        // Block path: rows of scalars whose requested values need no conversion.
        bool block = scalarRows && !swap;
        std::vector<SCopy> copies;
        if (block) {
            size_t offset = 0;
            for (size_t pi = 0; pi < plan.slots.size(); ++pi) {
                const SSlot& s = plan.slots[pi];
                size_t size = SizeOf(s.type);
                if (s.sink >= 0) {
                    const SSink& k = plan.sinks[s.sink];
                    if (k.request->type != s.type) block = false;
                    size_t dst = s.column * k.valueSize;
                    if (!copies.empty() && copies.back().sink == s.sink &&
                        copies.back().src + copies.back().size == offset &&
                        copies.back().dst + copies.back().size == dst)
                        copies.back().size += size;
                    else
                        copies.push_back({offset, s.sink, dst, size});
                }
                offset += size;
            }
        }
        // Block path for lists: an element that is one list of fixed length whose values
        // need no conversion, or only a sign check (int indices asked for as unsigned).
        bool listBlock = false, signCheck = false;
        if (!swap && e.properties.size() == 1 && e.properties[0].IsList() && plan.slots[0].sink >= 0) {
            const CReader::SRequest& r = *plan.sinks[0].request;
            EType file = e.properties[0].type;
            bool sameWidthIntegers = IsInteger(file) && IsInteger(r.type) && SizeOf(file) == SizeOf(r.type);
            listBlock = r.listSize > 0 && (file == r.type || sameWidthIntegers);
            signCheck = file != r.type;
        }
        if (listBlock) {
            readListBlock(in, e, plan.sinks[0], signCheck);
        } else if (block) {
            uint64_t row = 0;
            while (row < e.count) {
                if (in.Require(rowSize) < rowSize) bodyError(e, row, byteWhere(in, in.Pos()), "unexpected end of file");
                uint64_t n = std::min<uint64_t>(in.Available() / rowSize, e.count - row);
                for (SSink& k : plan.sinks) k.Reserve(row + n);
                const uint8_t* src = in.Pos();
                for (uint64_t i = 0; i < n; ++i, src += rowSize) {
                    for (const SCopy& c : copies) {
                        SSink& k = plan.sinks[c.sink];
                        copySmall(k.buffer->bytes.data() + (row + i) * k.rowBytes + c.dst, src + c.src, c.size);
                    }
                }
                in.Advance(static_cast<size_t>(n * rowSize));
                row += n;
            }
        } else {
            // Value by value, with byte swapping, conversion and lists.
            uint8_t tmp[8];
            for (uint64_t row = 0; row < e.count; ++row) {
                for (size_t pi = 0; pi < plan.slots.size(); ++pi) {
                    const SSlot& s = plan.slots[pi];
                    const SProperty& p = e.properties[pi];
                    const size_t size = SizeOf(s.type);
                    if (s.countType == EType::eNone) {
                        if (in.Require(size) < size)
                            bodyError(e, row, byteWhere(in, in.Pos()), "unexpected end of file");
                        if (s.sink >= 0) {
                            SSink& k = plan.sinks[s.sink];
                            if (swap)
                                SwapInto(in.Pos(), size, tmp);
                            else
                                std::memcpy(tmp, in.Pos(), size);
                            if (!ConvertValue(s.type, tmp, k.request->type, k.Row(row) + s.column * k.valueSize))
                                bodyError(e, row, byteWhere(in, in.Pos()), valueText(p, k.request->type));
                        }
                        in.Advance(size);
                        continue;
                    }
                    const size_t countSize = SizeOf(s.countType);
                    if (in.Require(countSize) < countSize)
                        bodyError(e, row, byteWhere(in, in.Pos()), "unexpected end of file");
                    uint64_t n;
                    if (!loadCount(s.countType, in.Pos(), swap, n))
                        bodyError(e, row, byteWhere(in, in.Pos()), "negative length of list " + p.name);
                    in.Advance(countSize);
                    if (s.sink < 0) {
                        if (in.Skip(n * size) != n * size)
                            bodyError(e, row, byteWhere(in, in.Pos()), "unexpected end of file");
                        continue;
                    }
                    SSink& k = plan.sinks[s.sink];
                    const uint32_t fixed = k.request->listSize;
                    if (fixed && n != fixed)
                        bodyError(e, row, byteWhere(in, in.Pos() - countSize),
                                  "list " + p.name + " has " + std::to_string(n) + " values, expected " +
                                      std::to_string(fixed));
                    if (!fixed) k.buffer->listCounts.push_back(static_cast<uint32_t>(n));
                    // Same-width values of the right byte order go in one copy.
                    const bool direct = !swap && s.type == k.request->type;
                    for (uint64_t j = 0; j < n; ++j) {
                        if (in.Require(size) < size)
                            bodyError(e, row, byteWhere(in, in.Pos()), "unexpected end of file");
                        uint8_t* dst;
                        if (fixed) {
                            dst = k.Row(row) + j * k.valueSize;
                        } else {
                            size_t at = k.buffer->bytes.size();
                            k.buffer->bytes.resize(at + k.valueSize);
                            dst = k.buffer->bytes.data() + at;
                        }
                        if (direct) {
                            copySmall(dst, in.Pos(), size);
                        } else {
                            if (swap)
                                SwapInto(in.Pos(), size, tmp);
                            else
                                std::memcpy(tmp, in.Pos(), size);
                            if (!ConvertValue(s.type, tmp, k.request->type, dst))
                                bodyError(e, row, byteWhere(in, in.Pos()), valueText(p, k.request->type));
                        }
                        in.Advance(size);
                    }
                }
            }
        }
        for (SSink& k : plan.sinks) {
            k.buffer->count = e.count;
            if (k.rowBytes) k.buffer->bytes.resize(static_cast<size_t>(e.count * k.rowBytes));
        }
    }
}

} // namespace VnPlyCodec

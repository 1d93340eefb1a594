// PLY encoding: header, ASCII bodies with shortest round-trip numbers, binary bodies in
// either byte order. Rows are assembled in a small buffer and handed to the stream in
// blocks.
#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <stdexcept>

#include "detail/plycodec.h"
#include "detail/plyvalues.h"

namespace VnPlyCodec {

namespace {

constexpr size_t kBlock = size_t(1) << 16;
// Room for the longest row piece written between two flushes (one number).
constexpr size_t kSlack = 64;

bool hasLineBreak(const std::string& s) { return s.find_first_of("\r\n") != std::string::npos; }

// Writes one value of `type` as text, the shortest form that reads back to the same value.
inline char* formatValue(char* p, char* end, EType type, const uint8_t* v) {
    switch (type) {
    case EType::eInt8: return std::to_chars(p, end, int(loadRaw<int8_t>(v))).ptr;
    case EType::eUInt8: return std::to_chars(p, end, unsigned(loadRaw<uint8_t>(v))).ptr;
    case EType::eInt16: return std::to_chars(p, end, int(loadRaw<int16_t>(v))).ptr;
    case EType::eUInt16: return std::to_chars(p, end, unsigned(loadRaw<uint16_t>(v))).ptr;
    case EType::eInt32: return std::to_chars(p, end, loadRaw<int32_t>(v)).ptr;
    case EType::eUInt32: return std::to_chars(p, end, loadRaw<uint32_t>(v)).ptr;
    case EType::eFloat32: return std::to_chars(p, end, loadRaw<float>(v)).ptr;
    case EType::eFloat64: return std::to_chars(p, end, loadRaw<double>(v)).ptr;
    case EType::eNone: break;
    }
    return p;
}

// "0 " to "255 ": the text of every byte value with its separator.
struct SByteText {
    char text[4];
    uint8_t length;
};
const SByteText* byteText() {
    static const auto table = [] {
        std::array<SByteText, 256> t{};
        for (int i = 0; i < 256; ++i) {
            char* end = std::to_chars(t[i].text, t[i].text + 3, i).ptr;
            *end++ = ' ';
            t[i].length = static_cast<uint8_t>(end - t[i].text);
        }
        return t;
    }();
    return table.data();
}

// A growing block of output bytes, drained into the stream when full.
class COutBlock {
public:
    explicit COutBlock(CbStreamWrite& out) : m_out(out), m_buffer(kBlock + kSlack) {}
    uint8_t* Ensure(size_t n) {
        if (m_used + n > m_buffer.size()) {
            Flush();
            if (n > m_buffer.size()) m_buffer.resize(n);
        }
        return m_buffer.data() + m_used;
    }
    void Commit(size_t n) { m_used += n; }
    void Flush() {
        if (m_used) m_out.WriteBuffer(m_buffer.data(), m_used);
        m_used = 0;
    }
    size_t Used() const { return m_used; }

private:
    CbStreamWrite& m_out;
    std::vector<uint8_t> m_buffer;
    size_t m_used = 0;
};

} // namespace

void CWriter::AddProperties(std::string_view element, const std::vector<std::string>& names, EType type, uint64_t count,
                            const void* data, EType listCountType, uint32_t listSize) {
    if (type == EType::eNone) throw std::invalid_argument("PLY property without a type");
    if (names.empty()) throw std::invalid_argument("PLY properties without names");
    if (count && !data) throw std::invalid_argument("PLY properties without data");
    const bool list = listCountType != EType::eNone;
    if (list) {
        if (names.size() != 1) throw std::invalid_argument("PLY list properties are added one at a time");
        uint8_t tmp[8];
        if (!IsInteger(listCountType) || !StoreFromDouble(listCountType, listSize, tmp))
            throw std::invalid_argument("PLY list length " + std::to_string(listSize) + " does not fit " +
                                        NameOf(listCountType));
    }
    auto it =
        std::find_if(m_elements.begin(), m_elements.end(), [&](const SOutElement& e) { return e.name == element; });
    if (it == m_elements.end()) {
        if (element.empty() || element.find_first_of(" \t\r\n") != std::string_view::npos)
            throw std::invalid_argument("PLY element name \"" + std::string(element) + "\" is not a word");
        m_elements.push_back(SOutElement{std::string(element), count, {}, {}});
        it = m_elements.end() - 1;
    } else if (it->count != count) {
        throw std::invalid_argument("PLY element " + it->name + " has " + std::to_string(it->count) + " rows, not " +
                                    std::to_string(count));
    }
    for (size_t c = 0; c < names.size(); ++c) {
        const std::string& name = names[c];
        if (name.empty() || name.find_first_of(" \t\r\n") != std::string::npos)
            throw std::invalid_argument("PLY property name \"" + name + "\" is not a word");
        for (const SProperty& p : it->properties)
            if (p.name == name) throw std::invalid_argument("PLY property " + it->name + "." + name + " added twice");
        SProperty p;
        p.name = name;
        p.type = type;
        p.countType = listCountType;
        it->properties.push_back(p);
        SColumn col;
        col.data = static_cast<const uint8_t*>(data);
        col.type = type;
        col.stride = list ? listSize : static_cast<uint32_t>(names.size());
        col.column = list ? 0 : static_cast<uint32_t>(c);
        col.values = list ? listSize : 1;
        col.countType = listCountType;
        it->columns.push_back(col);
    }
}

std::string CWriter::header(EFormat format) const {
    std::string h = "ply\nformat ";
    h += format == EFormat::eAscii                ? "ascii"
         : format == EFormat::eBinaryLittleEndian ? "binary_little_endian"
                                                  : "binary_big_endian";
    h += " 1.0\n";
    for (const std::string& c : m_comments) h += "comment " + c + "\n";
    for (const std::string& o : m_objInfo) h += "obj_info " + o + "\n";
    for (const SOutElement& e : m_elements) {
        h += "element " + e.name + " " + std::to_string(e.count) + "\n";
        for (const SProperty& p : e.properties) {
            h += "property ";
            if (p.IsList()) h += std::string("list ") + NameOf(p.countType) + " ";
            h += std::string(NameOf(p.type)) + " " + p.name + "\n";
        }
    }
    h += "end_header\n";
    return h;
}

void CWriter::Write(CbStreamWrite& out, EFormat format) const {
    for (const std::string& c : m_comments)
        if (hasLineBreak(c)) throw std::invalid_argument("PLY comment with a line break");
    for (const std::string& o : m_objInfo)
        if (hasLineBreak(o)) throw std::invalid_argument("PLY obj_info with a line break");
    std::string h = header(format);
    out.WriteBuffer(h.data(), h.size());
    for (const SOutElement& e : m_elements) {
        if (format == EFormat::eAscii)
            writeAsciiElement(out, e);
        else
            writeBinaryElement(out, e, format == EFormat::eBinaryBigEndian);
    }
}

void CWriter::writeAsciiElement(CbStreamWrite& out, const SOutElement& e) const {
    if (e.columns.empty()) return;
    // The longest text a row can take: each value (and list length) at most kSlack - 1
    // characters plus its separator. One reservation per row keeps the inner loop free of
    // buffer checks.
    uint64_t rowMax = 0;
    for (const SColumn& c : e.columns) rowMax += (uint64_t(c.values) + (c.countType != EType::eNone)) * kSlack;
    COutBlock block(out);
    for (uint64_t row = 0; row < e.count; ++row) {
        char* const start = reinterpret_cast<char*>(block.Ensure(static_cast<size_t>(rowMax)));
        char* q = start;
        for (const SColumn& c : e.columns) {
            const size_t size = SizeOf(c.type);
            const uint8_t* v = c.data + (row * c.stride + c.column) * size;
            if (c.countType != EType::eNone) {
                q = std::to_chars(q, q + kSlack, c.values).ptr;
                *q++ = ' ';
            }
            if (c.type == EType::eUInt8) {
                // Colours: a table lookup instead of a conversion per byte.
                for (uint32_t j = 0; j < c.values; ++j) {
                    const SByteText& t = byteText()[v[j]];
                    std::memcpy(q, t.text, 4);
                    q += t.length;
                }
                continue;
            }
            for (uint32_t j = 0; j < c.values; ++j, v += size) {
                q = formatValue(q, q + kSlack - 1, c.type, v);
                *q++ = ' ';
            }
        }
        // The last separator of the row becomes its line end.
        q[-1] = '\n';
        block.Commit(static_cast<size_t>(q - start));
        if (block.Used() >= kBlock) block.Flush();
    }
    block.Flush();
}

void CWriter::writeBinaryElement(CbStreamWrite& out, const SOutElement& e, bool bigEndian) const {
    const bool swap = bigEndian != (std::endian::native == std::endian::big);
    // A row is a list of pieces: constant bytes (list lengths) or values copied from a
    // column, swapped when the byte order differs.
    struct SPiece {
        const uint8_t* data = nullptr; // null: constant bytes
        size_t rowBytes = 0;           // source bytes per row
        size_t offset = 0;
        size_t size = 0;
        size_t valueSize = 0;
        uint8_t constant[8] = {};
    };
    std::vector<SPiece> pieces;
    size_t rowSize = 0;
    for (const SColumn& c : e.columns) {
        const size_t size = SizeOf(c.type);
        if (c.countType != EType::eNone) {
            SPiece k;
            k.size = SizeOf(c.countType);
            uint8_t tmp[8];
            StoreFromDouble(c.countType, c.values, tmp);
            if (swap)
                SwapInto(tmp, k.size, k.constant);
            else
                std::memcpy(k.constant, tmp, k.size);
            pieces.push_back(k);
            rowSize += k.size;
        }
        SPiece v;
        v.data = c.data;
        v.rowBytes = c.stride * size;
        v.offset = c.column * size;
        v.size = c.values * size;
        v.valueSize = size;
        // Neighbouring columns of the same rows merge into one copy.
        SPiece* prev = pieces.empty() ? nullptr : &pieces.back();
        if (!swap && prev && prev->data == v.data && prev->rowBytes == v.rowBytes &&
            prev->offset + prev->size == v.offset)
            prev->size += v.size;
        else
            pieces.push_back(v);
        rowSize += v.size;
    }
    if (rowSize == 0) return;
    COutBlock block(out);
    const uint64_t rowsPerBlock = std::max<uint64_t>(1, kBlock / rowSize);
    for (uint64_t row = 0; row < e.count;) {
        const uint64_t n = std::min(rowsPerBlock, e.count - row);
        uint8_t* dst = block.Ensure(static_cast<size_t>(n * rowSize));
        for (uint64_t i = 0; i < n; ++i, ++row) {
            for (const SPiece& k : pieces) {
                if (!k.data) {
                    std::memcpy(dst, k.constant, k.size);
                } else if (!swap) {
                    const uint8_t* src = k.data + row * k.rowBytes + k.offset;
                    switch (k.size) {
                    case 4: std::memcpy(dst, src, 4); break;
                    case 12: std::memcpy(dst, src, 12); break;
                    default: std::memcpy(dst, src, k.size); break;
                    }
                } else {
                    const uint8_t* src = k.data + row * k.rowBytes + k.offset;
                    for (size_t j = 0; j < k.size; j += k.valueSize) SwapInto(src + j, k.valueSize, dst + j);
                }
                dst += k.size;
            }
        }
        block.Commit(static_cast<size_t>(n * rowSize));
        block.Flush();
    }
}

} // namespace VnPlyCodec

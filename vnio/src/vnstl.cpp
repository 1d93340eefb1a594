#include "vnio/vnstl.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <locale.h>
#include <string>
#include <vector>

#include "vn3dbase/vnfttriangulationcombinetrianglesoup.h"
#include "vn3dbase/vnmptriangulationnormals.h"
#include "vnbase/vnfilesystem.h"
#include "vnbase/vnstreamfile.h"

using namespace Geometry;

namespace VnSTL {

namespace {
constexpr const char* kSource = "vnlibraries/vnio/vnstl";
constexpr uint32_t kMaxCount = 0x55555556u; // three times the count must fit in 32 bits
constexpr uint32_t kReserveCap = 10000000u;
constexpr size_t kRecord = 50;
constexpr uint32_t kChunkRecords = 1u << 16;
// The first block from a source of unknown size; it doubles while records keep coming.
constexpr uint32_t kBlindRecords = 256;

bool combineFlagsWithAttribute(EFlagsRead flags, const CAttributeWord& attribute) {
    return (uint32_t(flags) & ~uint32_t(eFlagVertexNormals)) != 0 && !attribute.IsNull();
}

void zeroHeader(SHeader* header) {
    if (header) header->fill(0);
}

CbVector3f facetNormal(const CTriangulation& mesh, const CTriangleAttribute<const CbVector3f>& stored, CTriangleRef t) {
    if (stored) return stored[t];
    const auto& c = mesh.GetCorners(t);
    return VnMpTriangulationNormals::FacetNormal(mesh.GetPosition(CVertexRef(c[0])), mesh.GetPosition(CVertexRef(c[1])),
                                                 mesh.GetPosition(CVertexRef(c[2])));
}

locale_t classicLocale() {
    static locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return loc;
}

// Whole-token float conversion with C semantics: the fast correctly rounded parser first,
// the C library in the "C" locale for what it does not take (leading '+', hex floats).
bool parseFloat(const std::string& token, float& value) {
    if (token.empty()) return false;
    const char* b = token.data();
    const char* e = b + token.size();
    auto [ptr, ec] = std::from_chars(b, e, value);
    if (ec == std::errc() && ptr == e) return true;
    char* end = nullptr;
    value = strtof_l(b, &end, classicLocale());
    return end == e;
}

// The tokeniser over the character stream: whitespace is space, tab, LF and CR; '!', '#'
// and '$' start a comment that runs to the end of the line.
class CTokenizer {
public:
    explicit CTokenizer(VnStreamReadASCIIT<CStringA>& s) : m_s(s) {}

    static bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
    static bool isComment(char c) { return c == '!' || c == '#' || c == '$'; }

    void skipLine() {
        for (;;) {
            std::string_view w = m_s.Window();
            if (w.empty()) return;
            size_t i = 0;
            while (i < w.size() && w[i] != '\n' && w[i] != '\r') ++i;
            m_s.Advance(i);
            if (i < w.size()) return;
        }
    }

    // Empty at the end of the stream. Scans the stream's window directly; a token that
    // straddles two windows is assembled piece by piece.
    const std::string& next() {
        m_token.clear();
        for (;;) { // skip whitespace and comments
            std::string_view w = m_s.Window();
            if (w.empty()) return m_token;
            size_t i = 0;
            while (i < w.size() && isSpace(w[i])) ++i;
            m_s.Advance(i);
            if (i == w.size()) continue;
            if (isComment(w[i])) {
                skipLine();
                continue;
            }
            break;
        }
        for (;;) {
            std::string_view w = m_s.Window();
            if (w.empty()) return m_token;
            size_t i = 0;
            while (i < w.size() && !isSpace(w[i]) && !isComment(w[i])) ++i;
            m_token.append(w.data(), i);
            m_s.Advance(i);
            if (i < w.size()) {
                if (isComment(w[i])) skipLine();
                return m_token;
            }
        }
    }

    // The rest of the current line from the character that ended the last token, with that
    // first character (the separator) removed.
    std::string restOfLine() {
        std::string rest;
        while (!m_s.IsEnd()) {
            char c = m_s.GetChar();
            if (c == '\n' || c == '\r') break;
            rest.push_back(c);
            m_s.Next();
        }
        if (!rest.empty()) rest.erase(0, 1);
        return rest;
    }

private:
    VnStreamReadASCIIT<CStringA>& m_s;
    std::string m_token;
};

void appendFacet(CTriangulation& mesh, CTriangleAttribute<CbVector3f>& normals, const CbVector3f& n, const CbVector3f* p) {
    CVertexRef a = mesh.AddVertex(p[0]);
    CVertexRef b = mesh.AddVertex(p[1]);
    CVertexRef c = mesh.AddVertex(p[2]);
    CTriangleRef t = mesh.AddTriangle(a, b, c);
    normals[t] = n;
}

// %.9g of the value promoted to double, byte for byte, in any locale (at most 16 chars).
char* formatNumber(char* out, float v) {
    return std::to_chars(out, out + 32, double(v), std::chars_format::general, 9).ptr;
}

constexpr size_t kMaxVertexLine = 7 + 3 * 17 + 1;

char* formatVertexLine(char* out, const CbVector3f& p) {
    std::memcpy(out, "vertex ", 7);
    out = formatNumber(out + 7, p.x);
    *out++ = ' ';
    out = formatNumber(out, p.y);
    *out++ = ' ';
    out = formatNumber(out, p.z);
    *out++ = '\n';
    return out;
}

// Writers refuse a triangle whose corner names no live vertex before writing anything.
void checkCorners(const CTriangulation& mesh) {
    for (CTriangleRef t : mesh.Triangles())
        for (uint32_t c : mesh.GetCorners(t))
            if (!mesh.IsVertexLive(c)) throw CbExceptionPreconditionViolation(kSource, 360, "VnSTL::Serialize");
}
} // namespace

bool IsBinary(const CStringW& path) {
    uint64_t size = VnFileSystem::GetFileSize(path);
    if (size < 84 || (size - 84) % kRecord != 0) return false;
    try {
        VnStreamReadBinaryFileRaw stream(path.c_str());
        unsigned char bytes[84];
        for (unsigned char& b : bytes) stream >> b;
        uint32_t count = uint32_t(bytes[80]) | (uint32_t(bytes[81]) << 8) | (uint32_t(bytes[82]) << 16) |
                         (uint32_t(bytes[83]) << 24);
        uint32_t expected = count * 50u + 84u; // wraps at 2^32 on purpose
        return uint64_t(expected) == size;
    } catch (const CbExceptionStream&) {
        return false;
    }
}

bool PostprocessTriangleSoup(CTriangulation& mesh, EFlagsRead flags) {
    if (flags & eFlagCombine) {
        VnFtTriangulationCombineTriangleSoup combine;
        combine.SetFlags(VnFtTriangulationCombineTriangleSoup::eFlagCombine);
        if (flags & eFlagCombineOption2) combine.AddFlags(VnFtTriangulationCombineTriangleSoup::eFlagRemoveDegenerate);
        if (flags & eFlagCombineTolerance) {
            combine.AddFlags(VnFtTriangulationCombineTriangleSoup::eFlagTolerance);
            combine.SetParameterMergeTolerance(0.01f);
        }
        combine.SetInput(mesh);
        combine.Compute(VnAlgorithm::eComputeDefault);
    }
    if (flags & eFlagVertexNormals) {
        auto triangleNormals = GetOrCreateAttribute<CTriangleRef, CbVector3f>(mesh, "normal");
        auto vertexNormals = GetOrCreateAttribute<CVertexRef, CbVector3f>(mesh, "normal");
        VnMpTriangulationNormals normals;
        normals.SetInput(mesh, vertexNormals, triangleNormals);
        normals.SetFlags(VnMpTriangulationNormals::eFlagVertexNormals);
        normals.Compute(VnAlgorithm::eComputeDefault);
    }
    return true;
}

CStringA ExtractHeaderString(const SHeader& header) {
    CStringA text;
    for (unsigned char c : header) {
        if (c < 32 || c > 126) break;
        text.push_back(static_cast<char>(c));
    }
    return text;
}

bool Serialize(CbStreamReadBinary& stream, CTriangulation& mesh, EFlagsRead flags, SHeader* header, CAttributeWord attribute) {
    if (combineFlagsWithAttribute(flags, attribute) || (attribute && !attribute.BelongsTo(mesh)))
        throw CbExceptionPreconditionViolation(kSource, 360, "VnSTL::Serialize");
    try {
        SHeader scratch;
        SHeader& h = header ? *header : scratch;
        uint32_t count = 0;
        bool ok = stream.ReadBuffer(h.data(), h.size()) == h.size() && stream.ReadBuffer(&count, 4) == 4 && count < kMaxCount;
        if (ok) {
            mesh.RemoveAll();
            auto normals = GetOrCreateAttribute<CTriangleRef, CbVector3f>(mesh, "normal");
            // Only a source that knows its size can vouch for the count; from any other, the
            // buffers grow with the records that actually arrive.
            const bool sized = stream.GetBytesLeft() != CbStreamRead::kUnknownSize;
            const uint64_t reserve = std::min<uint64_t>(stream.GetReservable(count, kRecord), kReserveCap);
            mesh.ReserveTriangles(uint32_t(reserve));
            mesh.ReserveVertices(uint32_t(reserve * 3));
            // Records are read in blocks and appended in bulk; the outcome is the same as
            // record by record, a short block failing exactly where a short record would.
            const uint64_t first = sized ? reserve : std::min(count, kBlindRecords);
            const uint64_t blockRecords = std::min<uint64_t>(std::max<uint64_t>(first, 1), kChunkRecords);
            std::vector<uint8_t> block(size_t(blockRecords) * kRecord);
            std::vector<CbVector3f> positions;
            std::vector<STriangleCorners> corners;
            uint32_t done = 0;
            while (ok && done < count) {
                uint32_t n = std::min<uint32_t>(count - done, uint32_t(block.size() / kRecord));
                size_t got = stream.ReadBuffer(block.data(), size_t(n) * kRecord);
                uint32_t whole = uint32_t(got / kRecord);
                ok = whole == n;
                positions.resize(size_t(whole) * 3);
                corners.resize(whole);
                const uint32_t firstVertex = mesh.GetVertexSlotCount();
                const uint32_t firstTriangle = mesh.GetTriangleSlotCount();
                for (uint32_t i = 0; i < whole; ++i) {
                    std::memcpy(&positions[size_t(i) * 3], block.data() + size_t(i) * kRecord + 12, 36);
                    uint32_t v = firstVertex + 3 * i;
                    corners[i] = STriangleCorners{v, v + 1, v + 2};
                }
                mesh.AppendVertices(positions.data(), whole * 3);
                mesh.AppendTriangles(corners.data(), whole);
                for (uint32_t i = 0; i < whole; ++i) {
                    const uint8_t* r = block.data() + size_t(i) * kRecord;
                    CTriangleRef t(firstTriangle + i);
                    std::memcpy(&normals[t], r, 12);
                    if (attribute) std::memcpy(&attribute[t], r + 48, 2);
                }
                done += whole;
                if (ok && !sized && block.size() < size_t(kChunkRecords) * kRecord) block.resize(block.size() * 2);
            }
        }
        if (ok) return PostprocessTriangleSoup(mesh, flags);
    } catch (const CbExceptionStream&) {
    }
    mesh.RemoveAll();
    zeroHeader(header);
    return false;
}

bool Serialize(VnStreamReadASCIIT<CStringA>& stream, CTriangulation& mesh, EFlagsRead flags, CStringA* solidName) {
    try {
        mesh.RemoveAll();
        auto normals = GetOrCreateAttribute<CTriangleRef, CbVector3f>(mesh, "normal");
        CTokenizer tok(stream);
        CbVector3f normal, corner[3];
        int state = 0;
        for (;;) {
            const std::string& t = tok.next();
            if (t.empty()) return false;
            switch (state) {
            case 0:
                if (t != "solid") return false;
                {
                    std::string name = tok.restOfLine();
                    if (solidName) *solidName = CStringA(std::move(name));
                }
                state = 1;
                break;
            case 1:
                if (t == "endsolid") return PostprocessTriangleSoup(mesh, flags);
                if (t != "facet" || tok.next() != "normal") return false;
                state = 2;
                break;
            case 2: case 3: case 4:
                if (!parseFloat(t, normal[state - 2])) return false;
                ++state;
                break;
            case 5:
                if (t != "outer" || tok.next() != "loop") return false;
                state = 6;
                break;
            case 6: case 10: case 14:
                if (t != "vertex") return false;
                ++state;
                break;
            case 7: case 8: case 9: case 11: case 12: case 13: case 15: case 16: case 17: {
                int k = (state - 7) / 4;
                int axis = (state - 7) % 4;
                if (!parseFloat(t, corner[k][axis])) return false;
                ++state;
                break;
            }
            case 18:
                // The facet is stored before its closing keyword is checked.
                appendFacet(mesh, normals, normal, corner);
                if (t != "endloop") return false;
                state = 19;
                break;
            case 19:
                if (t != "endfacet") return false;
                state = 1;
                break;
            default:
                throw CbException(kSource, 684, "VnSTL::Serialize");
            }
        }
    } catch (const CbExceptionStream&) {
        return false;
    }
}

bool Serialize(CbStreamWriteBinary& stream, const CTriangulation& mesh, const SHeader* header, CAttributeWordConst attribute) {
    if (attribute && !attribute.BelongsTo(mesh)) throw CbExceptionPreconditionViolation(kSource, 360, "VnSTL::Serialize");
    checkCorners(mesh);
    auto stored = FindAttribute<CTriangleRef, const CbVector3f>(mesh, "normal");
    try {
        SHeader h{};
        if (header) {
            h = *header;
        } else {
            std::memcpy(h.data(), c_DefaultHeader, std::min<size_t>(std::strlen(c_DefaultHeader), h.size()));
        }
        stream.WriteBuffer(h.data(), h.size());
        stream << mesh.GetTriangleCount();
        uint8_t record[kRecord];
        for (CTriangleRef t : mesh.Triangles()) {
            CbVector3f n = facetNormal(mesh, stored, t);
            std::memcpy(record, &n, 12);
            const auto& c = mesh.GetCorners(t);
            for (int k = 0; k < 3; ++k) std::memcpy(record + 12 + 12 * k, &mesh.GetPosition(CVertexRef(c[k])), 12);
            uint16_t word = attribute ? attribute[t] : 0;
            std::memcpy(record + 48, &word, 2);
            stream.WriteBuffer(record, kRecord);
        }
        return true;
    } catch (const CbExceptionStream&) {
        return false;
    }
}

bool Serialize(CbStreamWriteASCIIT<CStringA>& stream, const CTriangulation& mesh, const CStringA* solidName) {
    checkCorners(mesh);
    auto stored = FindAttribute<CTriangleRef, const CbVector3f>(mesh, "normal");
    try {
        std::string head = "solid ";
        head += solidName ? std::string(*solidName) : std::string(c_DefaultHeader);
        head += '\n';
        stream.Write(head.data(), head.size());
        // Formatting dominates the cost. In a joined mesh every vertex is written about six
        // times, so its line is formatted once and copied after that.
        const uint32_t slots = mesh.GetVertexSlotCount();
        const bool cache = 3ull * mesh.GetTriangleCount() >= 2ull * mesh.GetVertexCount();
        std::vector<char> lines;
        std::vector<uint32_t> lineStart;
        if (cache) {
            lineStart.assign(size_t(slots) + 1, 0);
            lines.reserve(size_t(mesh.GetVertexCount()) * 40);
            char tmp[kMaxVertexLine];
            for (uint32_t v = 0; v < slots; ++v) {
                lineStart[v] = static_cast<uint32_t>(lines.size());
                if (!mesh.IsVertexLive(v)) continue;
                char* e = formatVertexLine(tmp, mesh.GetPosition(CVertexRef(v)));
                lines.insert(lines.end(), tmp, e);
            }
            lineStart[slots] = static_cast<uint32_t>(lines.size());
        }
        constexpr size_t kBlock = 1 << 16;
        std::vector<char> block(kBlock + 1024);
        char* p = block.data();
        auto put = [&p](const char* text, size_t n) {
            std::memcpy(p, text, n);
            p += n;
        };
        for (CTriangleRef t : mesh.Triangles()) {
            CbVector3f n = facetNormal(mesh, stored, t);
            put("facet normal ", 13);
            p = formatNumber(p, n.x);
            *p++ = ' ';
            p = formatNumber(p, n.y);
            *p++ = ' ';
            p = formatNumber(p, n.z);
            put("\nouter loop\n", 12);
            for (uint32_t c : mesh.GetCorners(t)) {
                if (cache) put(lines.data() + lineStart[c], lineStart[c + 1] - lineStart[c]);
                else p = formatVertexLine(p, mesh.GetPosition(CVertexRef(c)));
            }
            put("endloop\nendfacet\n", 17);
            if (size_t(p - block.data()) >= kBlock) {
                stream.Write(block.data(), size_t(p - block.data()));
                p = block.data();
            }
        }
        put("endsolid\n", 9);
        stream.Write(block.data(), size_t(p - block.data()));
        return true;
    } catch (const CbExceptionStream&) {
        return false;
    }
}

void Serialize(const wchar_t* path, const CTriangulation& mesh, const SHeader* header, CAttributeWordConst attribute) {
    VnStreamWriteBinaryFile stream(path, 0, 0, 0);
    bool ok = Serialize(stream, mesh, header, attribute);
    if (ok) {
        try {
            stream.Flush();
        } catch (const CbExceptionStream&) {
            ok = false;
        }
    }
    if (!ok) throw CbException(kSource, 748, "VnSTL::Serialize");
}

bool Load(const CStringW& path, CTriangulation& mesh, EFlagsRead flags, SHeader* header, CAttributeWord attribute,
          CStringA* solidName, bool* isBinary) {
    if (combineFlagsWithAttribute(flags, attribute) || (attribute && !attribute.BelongsTo(mesh)))
        throw CbExceptionPreconditionViolation(kSource, 100, "VnSTL::Load");
    bool result = false;
    try {
        if (VnFileSystem::Exists(path)) {
            bool binary = IsBinary(path);
            if (isBinary) *isBinary = binary;
            if (binary) {
                VnStreamReadBinaryFileRaw stream(path.c_str());
                if (Serialize(stream, mesh, flags, header, attribute)) return true;
                result = false;
            } else {
                VnStreamReadASCIIFile stream(path);
                result = Serialize(stream, mesh, flags, solidName);
            }
        }
    } catch (const CbExceptionStream&) {
        mesh.RemoveAll();
        result = false;
    }
    zeroHeader(header);
    if (attribute)
        for (CTriangleRef t : mesh.Triangles()) attribute[t] = 0;
    return result;
}

} // namespace VnSTL

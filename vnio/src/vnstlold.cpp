#include "vnio/vnstlold.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string_view>
#include <vector>

#include "basepool/cbexception.h"
#include "detail/fixedformat.h"
#include "vn3dbase/vnfttriangulationcombinetrianglesoupold.h"
#include "vn3dbase/vntriangulationdynamic.h"
#include "vnbase/vnfilesystem.h"

using Geometry::CTriangleRef;
using Geometry::CVertexRef;

namespace {

constexpr const char* kSource = "vnlibraries/vnio/vnstlold";
constexpr uint32_t kLineUnexpectedKeyword = 681;
constexpr uint32_t kLineWriterPrecondition = 540;
constexpr const char* kDefaultHeader = "KORAL/exMod generated STL file";
constexpr size_t kHeaderBytes = 80;
constexpr size_t kRecordBytes = 50;
// Three times the count must fit in 32 bits (three vertices per record).
constexpr uint32_t kFirstBadCount = 1431655766u;
constexpr uint32_t kAsciiInitialCapacity = 10000;
// "%256s": the longest word the ASCII reader compares.
constexpr size_t kMaxWord = 256;

constexpr uint32_t kFlagCombine = 1, kFlagCombineOption2 = 2, kFlagCombineTolerance = 4, kFlagNormals = 64;
constexpr uint32_t kComputeNormalsFlags = 51;

// The legacy readers work on a VnTriangulationDynamic: the target itself when it is one,
// otherwise a temporary that is assigned to the target on success and dropped in any case.
class CWorkMesh {
public:
    CWorkMesh(VnTriangulationBase& target, uint32_t initialCapacity) : m_target(target) {
        if (!target.IsKindOf(VnTriangulationDynamic::RTTI())) m_temporary = std::make_unique<VnTriangulationDynamic>(initialCapacity);
    }
    VnTriangulationBase& Get() { return m_temporary ? *m_temporary : m_target; }
    void Commit() {
        if (m_temporary) m_target = *m_temporary;
    }

private:
    VnTriangulationBase& m_target;
    std::unique_ptr<VnTriangulationDynamic> m_temporary;
};

uint32_t reserveFor(const CbStreamReadBinary& stream, uint32_t count) {
    return static_cast<uint32_t>(stream.GetReservable(count, kRecordBytes));
}

void reserve(VnTriangulationBase& mesh, uint32_t triangles) {
    mesh.SetTriangleCount(mesh.GetTriangleCount() + triangles);
    mesh.SetVertexCount(mesh.GetVertexCount() + 3 * triangles);
}

void addFacet(VnTriangulationBase& mesh, const Geometry::CTriangleAttribute<CbVector3f>& normals, const CbVector3f* corners,
              const CbVector3f& normal) {
    CVertexRef a = mesh.AddVertex(corners[0]);
    CVertexRef b = mesh.AddVertex(corners[1]);
    CVertexRef c = mesh.AddVertex(corners[2]);
    normals[mesh.AddTriangle(a, b, c)] = normal;
}

// The join step shared by every reader.
bool join(VnTriangulationBase& mesh, uint32_t flags) {
    if (flags & kFlagCombine) {
        VnFtTriangulationCombineTriangleSoupOld combine;
        combine.AddFlags(VnFtTriangulationCombineTriangleSoup::eFlagCombine);
        if (flags & kFlagCombineOption2) combine.AddFlags(VnFtTriangulationCombineTriangleSoup::eFlagRemoveDegenerate);
        if (flags & kFlagCombineTolerance) {
            combine.AddFlags(VnFtTriangulationCombineTriangleSoup::eFlagTolerance);
            combine.SetParameterMergeTolerance(0.01f);
        }
        combine.SetInput(mesh);
        if (!combine.Compute(1)) return false;
    }
    if (flags & kFlagNormals) mesh.ComputeNormals(kComputeNormalsFlags);
    return true;
}

// ---- the "%s" / "%f" scanning of the ASCII reader, in the "C" locale ----

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

void skipSpace(std::string_view& s) {
    size_t i = 0;
    while (i < s.size() && isSpace(s[i])) ++i;
    s.remove_prefix(i);
}

// "%256s": skips white space and takes up to 256 further characters up to the next one.
bool scanWord(std::string_view& s, std::string_view& word) {
    skipSpace(s);
    size_t n = 0;
    while (n < s.size() && n < kMaxWord && !isSpace(s[n])) ++n;
    word = s.substr(0, n);
    s.remove_prefix(n);
    return n > 0;
}

// "%f": skips white space and converts the longest prefix that forms a number.
bool scanFloat(std::string_view& s, float& value) {
    skipSpace(s);
    const char* b = s.data();
    const char* e = b + s.size();
    const char* digits = b;
    bool negative = false;
    if (digits != e && (*digits == '+' || *digits == '-')) negative = *digits++ == '-';
    if (digits != e && (*digits == '+' || *digits == '-')) return false; // from_chars would take a second '-'
    float parsed = 0.f;
    auto [ptr, ec] = std::from_chars(digits, e, parsed);
    if (ec == std::errc::invalid_argument) return false;
    if (ec == std::errc::result_out_of_range) {
        // Like strtof: an overflow gives infinity, an underflow zero.
        double wide = 0.0;
        auto [p2, ec2] = std::from_chars(digits, e, wide);
        (void)p2;
        if (ec2 == std::errc()) {
            parsed = static_cast<float>(wide);
        } else {
            const char* exponent = std::find_if(digits, ptr, [](char c) { return c == 'e' || c == 'E'; });
            bool tiny = exponent != ptr && exponent + 1 != ptr && exponent[1] == '-';
            parsed = tiny ? 0.f : HUGE_VALF;
        }
    }
    value = negative ? -parsed : parsed;
    s.remove_prefix(static_cast<size_t>(ptr - b));
    return true;
}

enum EKeyword : uint32_t {
    eSolid = 1, eFacet = 2, eEndsolid = 4, eOuter = 8, eVertex = 16, eEndloop = 32, eEndfacet = 64
};

uint32_t keyword(std::string_view word) {
    static constexpr std::pair<std::string_view, EKeyword> table[] = {
        {"solid", eSolid}, {"facet", eFacet}, {"endsolid", eEndsolid}, {"outer", eOuter},
        {"vertex", eVertex}, {"endloop", eEndloop}, {"endfacet", eEndfacet}};
    for (const auto& [name, value] : table)
        if (word == name) return value;
    return 0;
}

[[noreturn]] void throwUnexpected() { throw CbException(kSource, kLineUnexpectedKeyword, "VnSTLOld::readASCII"); }

CStringW widenBytes(const unsigned char* bytes, size_t size) {
    CStringW text;
    for (size_t i = 0; i < size && bytes[i]; ++i) text += static_cast<wchar_t>(bytes[i]);
    return text;
}

CStringA narrowText(const CStringW& text) {
    CStringA narrow;
    narrow.reserve(text.size());
    for (wchar_t c : text) narrow += static_cast<char>(static_cast<uint32_t>(c) <= 0xFF ? c : L'?');
    return narrow;
}

void appendCorner(unsigned char*& out, const CbVector3f& p) {
    std::memcpy(out, &p, sizeof p);
    out += sizeof p;
}

} // namespace

void VnTriangulationComponent::DeleteCreated(CbArray<VnTriangulationComponent>& components) {
    for (VnTriangulationComponent& c : components)
        if (c.created) {
            delete c.mesh;
            c.mesh = nullptr;
            c.created = false;
        }
}

// ---- detection and loading ----

bool VnSTLOld::IsBinary(VnStreamReadBinaryFileRaw& stream) {
    const uint64_t size = VnFileSystem::GetFileSize(stream.GetFilename());
    unsigned char head[kHeaderBytes + 4];
    if (stream.Peek(head, sizeof head) < sizeof head) return false;
    uint32_t count;
    std::memcpy(&count, head + kHeaderBytes, 4);
    // 32-bit arithmetic on purpose: a count whose product wraps to the size still matches.
    return static_cast<uint64_t>(static_cast<uint32_t>(count * 50u + 84u)) == size;
}

bool VnSTLOld::Load(const CStringW& path, VnTriangulationBase& mesh) {
    CStringW header;
    bool isBinary = false;
    return Load(path, mesh, header, isBinary);
}

bool VnSTLOld::Load(const CStringW& path, VnTriangulationBase& mesh, CStringW& header, bool& isBinary) {
    if (!VnFileSystem::Exists(path)) return false;
    VnStreamReadBinaryFileRaw raw(path.c_str());
    isBinary = IsBinary(raw);
    if (isBinary) return Serialize(raw, mesh, header, c_FlagsDefault);
    header.clear();
    VnStreamReadASCIIFile text(path);
    return readASCII(mesh, text, c_FlagsDefault);
}

// ---- reading ----

bool VnSTLOld::Serialize(VnStreamReadASCIIT<CStringA>& stream, VnTriangulationBase& mesh, uint32_t flags) {
    return readASCII(mesh, stream, flags);
}

bool VnSTLOld::Serialize(CbStreamReadBinary& stream, VnTriangulationBase& mesh) {
    return Serialize(stream, mesh, c_FlagsDefault);
}

bool VnSTLOld::Serialize(CbStreamReadBinary& stream, VnTriangulationBase& mesh, uint32_t flags) {
    CbArray<unsigned char> header;
    return Serialize(stream, mesh, header, flags);
}

bool VnSTLOld::Serialize(CbStreamReadBinary& stream, VnTriangulationBase& mesh, CStringW& header) {
    return Serialize(stream, mesh, header, c_FlagsDefault);
}

bool VnSTLOld::Serialize(CbStreamReadBinary& stream, VnTriangulationBase& mesh, CStringW& header, uint32_t flags) {
    CbArray<unsigned char> bytes;
    bool ok = Serialize(stream, mesh, bytes, flags);
    header = widenBytes(bytes.GetData(), static_cast<size_t>(bytes.GetSize()));
    return ok;
}

bool VnSTLOld::Serialize(CbStreamReadBinary& stream, VnTriangulationBase& mesh, CbArray<unsigned char>& header, uint32_t flags) {
    uint32_t count = 0;
    readBinaryHeader(stream, header, count);
    if (count >= kFirstBadCount) {
        mesh.Reset();
        return false;
    }
    return readBinary(mesh, stream, count, flags);
}

bool VnSTLOld::readBinaryHeader(CbStreamReadBinary& stream, CbArray<unsigned char>& header, uint32_t& count) {
    header.SetSize(static_cast<int>(kHeaderBytes));
    for (size_t i = 0; i < kHeaderBytes; ++i) stream >> header[static_cast<int>(i)];
    stream >> count;
    return true;
}

bool VnSTLOld::readBinary(VnTriangulationBase& mesh, CbStreamReadBinary& stream, uint32_t count, uint32_t flags) {
    CWorkMesh work(mesh, 0);
    bool ok = false;
    try {
        VnTriangulationBase& m = work.Get();
        reserve(m, reserveFor(stream, count));
        m.AssertAttribute(VnTriangulationBase::eAttributeNormal);
        const auto normals = m.GetTriangleAttribute<CbVector3f>("normal");
        unsigned char record[kRecordBytes];
        for (uint32_t i = 0; i < count; ++i) {
            if (stream.ReadBuffer(record, kRecordBytes) != kRecordBytes) throw CbExceptionStream(kSource, __LINE__, "VnSTLOld::readBinary");
            CbVector3f values[4];
            std::memcpy(values, record, sizeof values);
            addFacet(m, normals, values + 1, values[0]);
        }
        ok = join(m, flags);
        if (ok) work.Commit();
    } catch (const CbException&) {
        ok = false;
    } catch (const std::exception&) {
        ok = false;
    }
    if (!ok) mesh.Reset();
    return ok;
}

bool VnSTLOld::readASCII(VnTriangulationBase& mesh, VnStreamReadASCIIT<CStringA>& stream, uint32_t flags) {
    CWorkMesh work(mesh, kAsciiInitialCapacity);
    VnTriangulationBase& m = work.Get();
    bool ok = false;
    try {
        m.AssertAttribute(VnTriangulationBase::eAttributeNormal);
        const auto normals = m.GetTriangleAttribute<CbVector3f>("normal");
        uint32_t expected = eSolid;
        CbVector3f normal, corners[3];
        int cornerCount = 0;
        std::string_view line;
        while (stream.ReadLine(line)) {
            skipSpace(line);
            if (line.empty() || line[0] == '!' || line[0] == '#' || line[0] == '$') continue;
            std::string_view word;
            scanWord(line, word);
            const uint32_t kw = keyword(word);
            if (!(kw & expected)) throwUnexpected();
            if (kw == eEndsolid) break;
            switch (kw) {
            case eSolid: expected = eFacet | eEndsolid; break;
            case eFacet: {
                // "%s %f %f %f": only a complete "normal x y z" replaces the default.
                std::string_view label;
                float n[3];
                normal = CbVector3f();
                if (scanWord(line, label) && scanFloat(line, n[0]) && scanFloat(line, n[1]) && scanFloat(line, n[2]) &&
                    label == "normal")
                    normal = CbVector3f(n[0], n[1], n[2]);
                expected = eOuter;
                break;
            }
            case eOuter:
                cornerCount = 0;
                expected = eVertex;
                break;
            case eVertex: {
                CbVector3f& p = corners[cornerCount];
                if (!scanFloat(line, p.x) || !scanFloat(line, p.y) || !scanFloat(line, p.z)) throwUnexpected();
                if (++cornerCount == 3) {
                    addFacet(m, normals, corners, normal);
                    normal = CbVector3f();
                    expected = eEndloop;
                }
                break;
            }
            case eEndloop: expected = eEndfacet; break;
            case eEndfacet: expected = eFacet | eEndsolid; break;
            default: throwUnexpected();
            }
        }
        ok = join(m, flags);
        if (ok) work.Commit();
    } catch (const CbExceptionStream&) {
        ok = false;
    }
    if (!ok) mesh.Reset();
    return ok;
}

bool VnSTLOld::Serialize(CbStreamReadBinary& stream, CbArray<VnTriangulationComponent>& components,
                         VnTriangulationBase* wholeFile, uint32_t flags) {
    CbArray<unsigned char> header;
    uint32_t count = 0;
    readBinaryHeader(stream, header, count);

    const int previousSize = components.GetSize();
    std::vector<int> createdHere; // entries whose mesh this call allocated
    auto create = [&](int i) {
        components[i].mesh = new VnTriangulationDynamic();
        components[i].created = true;
        createdHere.push_back(i);
    };
    struct SWork {
        std::unique_ptr<CWorkMesh> mesh;
        Geometry::CTriangleAttribute<CbVector3f> normals;
    };
    auto startWork = [](VnTriangulationBase& target) {
        SWork w{std::make_unique<CWorkMesh>(target, 0), {}};
        w.mesh->Get().AssertAttribute(VnTriangulationBase::eAttributeNormal);
        w.normals = w.mesh->Get().GetTriangleAttribute<CbVector3f>("normal");
        return w;
    };
    std::vector<SWork> work; // per entry, made when the entry first receives a record
    SWork whole;

    bool ok = count < kFirstBadCount;
    try {
        if (ok) {
            for (int i = 0; i < previousSize; ++i)
                if (!components[i].mesh) create(i);
            work.resize(static_cast<size_t>(previousSize));
        }
        if (ok && wholeFile) {
            whole = startWork(*wholeFile);
            reserve(whole.mesh->Get(), reserveFor(stream, count));
        }
        unsigned char record[kRecordBytes];
        for (uint32_t i = 0; ok && i < count; ++i) {
            if (stream.ReadBuffer(record, kRecordBytes) != kRecordBytes) {
                ok = false;
                break;
            }
            CbVector3f values[4];
            std::memcpy(values, record, sizeof values);
            uint16_t word;
            std::memcpy(&word, record + 48, sizeof word);
            if (word >= components.GetSize()) {
                int first = components.GetSize();
                components.SetSize(word + 1);
                work.resize(size_t(word) + 1);
                for (int k = first; k <= word; ++k) create(k);
            }
            SWork& target = work[word];
            if (!target.mesh) target = startWork(*components[word].mesh);
            addFacet(target.mesh->Get(), target.normals, values + 1, values[0]);
            if (whole.mesh) addFacet(whole.mesh->Get(), whole.normals, values + 1, values[0]);
        }
        for (int i = 0; ok && i < components.GetSize(); ++i) {
            SWork& target = work[static_cast<size_t>(i)];
            // A mesh made here that took no record is empty and the join step has nothing to
            // do on it; skipping it keeps a forged word (65535) from costing 65536 joins.
            if (!target.mesh && components[i].created && components[i].mesh->GetTriangleCount() == 0 &&
                components[i].mesh->GetVertexCount() == 0)
                continue;
            if (!target.mesh) target = startWork(*components[i].mesh);
            ok = join(target.mesh->Get(), flags);
            if (ok) target.mesh->Commit();
        }
        if (ok && whole.mesh) {
            ok = join(whole.mesh->Get(), flags);
            if (ok) whole.mesh->Commit();
        }
    } catch (const CbException&) {
        ok = false;
    } catch (const std::exception&) {
        ok = false;
    }
    if (!ok) {
        // Give the caller back the array it had: meshes of its own that took records are
        // reset, meshes made here are deleted.
        work.clear();
        whole = SWork();
        for (int i : createdHere) {
            delete components[i].mesh;
            components[i] = VnTriangulationComponent();
        }
        for (int i = 0; i < previousSize; ++i)
            if (components[i].mesh) components[i].mesh->Reset();
        components.SetSize(previousSize);
        if (wholeFile) wholeFile->Reset();
    }
    return ok;
}

// ---- writing ----

bool VnSTLOld::writeBinaryHeader(CbStreamWriteBinary& stream, const CStringA& text, uint32_t count) {
    try {
        stream.WriteBuffer(text.data(), text.size());
        static const unsigned char zeros[kHeaderBytes] = {};
        if (text.size() < kHeaderBytes) stream.WriteBuffer(zeros, kHeaderBytes - text.size());
        stream << count;
        return true;
    } catch (const CbException&) {
        return false;
    }
}

bool VnSTLOld::writeBinary(const VnTriangulationBase& mesh, CbStreamWriteBinary& stream, uint16_t component) {
    const uint32_t triangles = mesh.GetTriangleCount();
    if (triangles == 0) return true;
    try {
        std::vector<unsigned char> buffer(size_t(triangles) * kRecordBytes);
        unsigned char* out = buffer.data();
        for (CTriangleRef t = mesh.GetFirstTriangle(); t != Geometry::c_IndexEnd; t = mesh.GetNextTriangle(t)) {
            appendCorner(out, mesh.ComputeNormal(t));
            for (int k = 0; k < 3; ++k) appendCorner(out, mesh.GetVertex(mesh.GetTriangleVertex(t, k)));
            std::memcpy(out, &component, sizeof component);
            out += sizeof component;
        }
        stream.WriteBuffer(buffer.data(), buffer.size());
        return true;
    } catch (const CbException&) {
        return false;
    } catch (const std::exception&) {
        return false;
    }
}

bool VnSTLOld::writeASCII(const VnTriangulationBase& mesh, CbStreamWriteASCIIT<CStringA>& stream) {
    try {
        stream << "solid " << kDefaultHeader << "\n";
        char line[3 * VnDetail::c_Fixed6MaxChars + 32];
        auto writeTriple = [&](const char* prefix, size_t prefixLength, const CbVector3f& v) {
            char* p = line;
            std::memcpy(p, prefix, prefixLength);
            p += prefixLength;
            p = VnDetail::AppendFixed6(p, v.x);
            *p++ = ' ';
            p = VnDetail::AppendFixed6(p, v.y);
            *p++ = ' ';
            p = VnDetail::AppendFixed6(p, v.z);
            *p++ = '\n';
            stream.Write(line, static_cast<size_t>(p - line));
        };
        static constexpr std::string_view facet = "  facet normal ", vertex = "      vertex ";
        for (CTriangleRef t = mesh.GetFirstTriangle(); t != Geometry::c_IndexEnd; t = mesh.GetNextTriangle(t)) {
            writeTriple(facet.data(), facet.size(), mesh.ComputeNormal(t));
            stream << "    outer loop\n";
            for (int k = 0; k < 3; ++k) writeTriple(vertex.data(), vertex.size(), mesh.GetVertex(mesh.GetTriangleVertex(t, k)));
            stream << "    endloop\n" << "  endfacet\n";
        }
        stream << "endsolid\n";
        return true;
    } catch (const CbExceptionStream&) {
        return false;
    }
}

bool VnSTLOld::Serialize(CbStreamWriteASCIIT<CStringA>& stream, const VnTriangulationBase& mesh) { return writeASCII(mesh, stream); }

bool VnSTLOld::Serialize(CbStreamWriteBinary& stream, const VnTriangulationBase& mesh) {
    return writeBinaryHeader(stream, kDefaultHeader, mesh.GetTriangleCount()) && writeBinary(mesh, stream, 0);
}

bool VnSTLOld::Serialize(CbStreamWriteBinary& stream, const VnTriangulationBase& mesh, const CStringW& header) {
    if (writeBinaryHeader(stream, narrowText(header), mesh.GetTriangleCount())) writeBinary(mesh, stream, 0);
    // Kept as the legacy callers know it: the result says nothing about the file.
    return false;
}

bool VnSTLOld::Serialize(CbStreamWriteBinary& stream, const CbArray<std::shared_ptr<VnTriangulationBase>>& meshes) {
    uint64_t total = 0;
    if (meshes.GetSize() > 65536) throw CbExceptionPreconditionViolation(kSource, kLineWriterPrecondition, "VnSTLOld::Serialize");
    for (const auto& m : meshes) {
        if (!m) throw CbExceptionPreconditionViolation(kSource, kLineWriterPrecondition, "VnSTLOld::Serialize");
        total += m->GetTriangleCount();
    }
    if (total > 0xFFFFFFFFull) throw CbExceptionPreconditionViolation(kSource, kLineWriterPrecondition, "VnSTLOld::Serialize");
    if (!writeBinaryHeader(stream, kDefaultHeader, static_cast<uint32_t>(total))) return false;
    for (int i = 0; i < meshes.GetSize(); ++i)
        if (!writeBinary(*meshes[i], stream, static_cast<uint16_t>(i))) return false;
    return true;
}

// OBJ and MTL writing: the inverse of the reader under the same conventions (z negated, v
// flipped, winding reversed), with material switches, per-face texture coordinates and
// group lines.
#include <array>
#include <cfloat>
#include <charconv>
#include <chrono>
#include <vector>

#include "basepool/cbexception.h"
#include "detail/vnobjtext.h"
#include "vn3dbase/cattributehandle.h"
#include "vn3dbase/registry.h"
#include "vnio/vnobj.h"

using Geometry::CTriangleRef;
using Geometry::CVertexRef;

namespace {

constexpr const char* kSource = "vnlibraries/vnio/vnobj";
using STexture = Geometry::CAttributeConfigurationTriangleParameters::value_type;

CStringA formatNotice() {
    const auto today = std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now()));
    return CbFormatA("Written by VnIO, copyright (c) 2016-%d the VnIO developers", static_cast<int>(today.year()));
}

// Collects output in a block and hands it to the stream in large writes; the text goes out
// on Flush, also when the writer stops half-way, so what was formatted stays written.
class COutput {
public:
    explicit COutput(CbStreamWriteASCIIT<CStringA>& stream) : m_stream(stream) {}
    // Room for one formatted line: longer text goes through Text.
    char* Reserve() {
        if (m_used > sizeof(m_block) - c_LineRoom) Flush();
        return m_block + m_used;
    }
    void Commit(char* end) { m_used = static_cast<size_t>(end - m_block); }
    void Text(std::string_view text) {
        if (text.size() > sizeof(m_block) - m_used) {
            Flush();
            m_stream.Write(text.data(), text.size());
            return;
        }
        std::memcpy(m_block + m_used, text.data(), text.size());
        m_used += text.size();
    }
    void Flush() {
        const size_t n = m_used;
        m_used = 0;
        if (n) m_stream.Write(m_block, n);
    }

    static constexpr size_t c_LineRoom = 512;

private:
    CbStreamWriteASCIIT<CStringA>& m_stream;
    char m_block[1 << 16];
    size_t m_used = 0;
};

char* put(char* out, std::string_view s) {
    std::memcpy(out, s.data(), s.size());
    return out + s.size();
}

// The "g" lines: one membership flag per group, and a line whenever a triangle's set of
// groups differs from the previous one.
class CGroupLines {
public:
    explicit CGroupLines(const CbArray<VnOBJ::SGroup>& groups) : m_groups(groups), m_inside(static_cast<size_t>(groups.GetSize()), 0) {}
    void Before(COutput& out, CTriangleRef t) {
        bool changed = false;
        for (uint8_t g = 0; g < m_inside.size(); ++g) {
            const uint8_t inside = m_groups[g].region.IsInside(t) ? 1 : 0;
            if (inside != m_inside[g]) {
                m_inside[g] = inside;
                changed = true;
            }
        }
        if (!changed) return;
        out.Text("g");
        bool any = false;
        for (uint8_t g = 0; g < m_inside.size(); ++g) {
            if (!m_inside[g]) continue;
            out.Text(" ");
            out.Text(m_groups[g].name);
            any = true;
        }
        out.Text(any ? "\n" : " default\n");
    }

private:
    const CbArray<VnOBJ::SGroup>& m_groups;
    std::vector<uint8_t> m_inside; // an 8-bit group counter walks it: at most 255 groups
};

// "f a b c" with the corners 0, 2, 1 of the triangle (the reversed winding).
void writeFace(COutput& out, const uint32_t* vertexNumbers, const Geometry::STriangleCorners& c) {
    char* p = put(out.Reserve(), "f ");
    p = VnObjText::AppendUInt(p, vertexNumbers[c[0]]);
    *p++ = ' ';
    p = VnObjText::AppendUInt(p, vertexNumbers[c[2]]);
    *p++ = ' ';
    p = VnObjText::AppendUInt(p, vertexNumbers[c[1]]);
    *p++ = '\n';
    out.Commit(p);
}

// "f a/t c/t+2 b/t+1" for a face whose "vt" lines start at number t.
void writeTexturedFace(COutput& out, const uint32_t* vertexNumbers, const Geometry::STriangleCorners& c, uint64_t t) {
    char* p = put(out.Reserve(), "f ");
    const int order[3] = {0, 2, 1};
    for (int i = 0; i < 3; ++i) {
        p = VnObjText::AppendUInt(p, vertexNumbers[c[order[i]]]);
        *p++ = '/';
        p = VnObjText::AppendUInt(p, t + static_cast<uint64_t>(order[i]));
        *p++ = i == 2 ? '\n' : ' ';
    }
    out.Commit(p);
}

// The three "vt" lines of a triangle, (u, 1 - v) per corner in corner order.
void writeTextureLines(COutput& out, const STexture& uv) {
    char* p = out.Reserve();
    for (const CbVector2f& c : uv) {
        p = put(p, "vt ");
        p = VnObjText::AppendFixed<12>(p, c.x);
        *p++ = ' ';
        p = VnObjText::AppendFixed<12>(p, 1 - c.y);
        *p++ = '\n';
    }
    out.Commit(p);
}

bool hasTexture(const STexture& uv) {
    for (const CbVector2f& c : uv)
        if (c.x == FLT_MAX || c.y == FLT_MAX) return false;
    return true;
}

void writeUseMaterialLine(COutput& out, const CStringA& name) {
    out.Text("usemtl ");
    out.Text(name);
    out.Text("\n");
}

} // namespace

const CStringA& VnOBJ::GetStoredNotice() {
    static const CStringA notice = formatNotice();
    return notice;
}

namespace {
// Formatted when the library is loaded, as the default header promises.
[[maybe_unused]] const CStringA& g_noticeAtLoad = VnOBJ::GetStoredNotice();
} // namespace

bool VnOBJ::Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh) {
    return Serialize(stream, mesh, GetStoredNotice());
}

bool VnOBJ::Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh, const CStringA& header) {
    const SMaterialInfo noMaterials;
    return Serialize(stream, mesh, nullptr, CStringA(), noMaterials, header, CbArray<SGroup>());
}

bool VnOBJ::Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh, const CbArray<SGroup>& groups) {
    const SMaterialInfo noMaterials;
    return Serialize(stream, mesh, nullptr, CStringA(), noMaterials, GetStoredNotice(), groups);
}

bool VnOBJ::Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh,
                      CbStreamWriteASCIIT<CStringA>* mtlStream, const CStringA& materialLibraryName,
                      const SMaterialInfo& materialInfo, const CStringA& header) {
    return Serialize(stream, mesh, mtlStream, materialLibraryName, materialInfo, header, CbArray<SGroup>());
}

bool VnOBJ::Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh,
                      CbStreamWriteASCIIT<CStringA>* mtlStream, const CStringA& materialLibraryName,
                      const SMaterialInfo& materialInfo, const CStringA& header, const CbArray<SGroup>& groups) {
    if (groups.GetSize() > 255) throw CbExceptionPreconditionViolation(kSource, __LINE__, "VnOBJ::Serialize");
    try {
        writeASCII(mesh, stream, mtlStream, materialLibraryName, materialInfo, header, groups);
        return true; // the result of writeASCII is not passed on
    } catch (...) {
        return false;
    }
}

void VnOBJ::writeUseMTL(CbStreamWriteASCIIT<CStringA>& stream, const SMaterialInfo& materialInfo, unsigned int materialId) {
    const CStringA* name = materialInfo.materialNames.PLookup(materialId);
    if (!name) name = materialInfo.materialNames.PLookup(0);
    if (!name) return;
    stream << "usemtl " << *name << "\n";
}

bool VnOBJ::writeMTL(CbStreamWriteASCIIT<CStringA>& mtlStream, const SMaterialInfo& materialInfo, const CStringA& header) {
    mtlStream << "# " << header << "\n\n";
    auto colour = [&](const char* keyword, uint32_t packed) {
        mtlStream << CbFormatA("%s %.4f %.4f %.4f\n", keyword, ((packed >> 16) & 0xFF) / 255.0, ((packed >> 8) & 0xFF) / 255.0,
                               (packed & 0xFF) / 255.0);
    };
    for (const auto& entry : materialInfo.materials) {
        const SMaterial& m = entry.second;
        mtlStream << "newmtl " << entry.first << "\n";
        colour("Ka", m.ambient);
        colour("Kd", m.diffuse);
        colour("Ks", m.specular);
        if (!m.diffuseMap.empty()) mtlStream << "map_Kd " << CbWideToUtf8(m.diffuseMap) << "\n";
        mtlStream << "\n";
    }
    return true;
}

bool VnOBJ::writeASCII(const Geometry::CTriangulation& mesh, CbStreamWriteASCIIT<CStringA>& stream,
                       CbStreamWriteASCIIT<CStringA>* mtlStream, const CStringA& materialLibraryName,
                       const SMaterialInfo& materialInfo, const CStringA& header, const CbArray<SGroup>& groups) {
    COutput out(stream);
    try {
        const CStringA trianglesLine = CbFormatA("# %u triangles\n", mesh.GetTriangleCount());
        out.Text("# ");
        out.Text(header);
        out.Text("\n");
        out.Text(CbFormatA("# %u vertices\n", mesh.GetVertexCount()));
        out.Text(trianglesLine);
        if (mtlStream) {
            out.Text(trianglesLine);
            out.Flush();
            writeMTL(*mtlStream, materialInfo, header);
            out.Text("\nmtllib ");
            out.Text(materialLibraryName);
            out.Text("\n\n");
        }

        // Vertex numbers: 1-based rank in the order the "v" lines are written.
        std::vector<uint32_t> vertexNumbers(mesh.GetVertexSlotCount(), 0);
        uint32_t written = 0;
        for (CVertexRef v : mesh.Vertices()) {
            vertexNumbers[v.Index()] = ++written;
            const CbVector3f& p = mesh.GetPosition(v);
            char* o = put(out.Reserve(), "v ");
            o = VnObjText::AppendFixed<6>(o, p.x);
            *o++ = ' ';
            o = VnObjText::AppendFixed<6>(o, p.y);
            *o++ = ' ';
            o = VnObjText::AppendFixed<6>(o, -p.z);
            *o++ = '\n';
            out.Commit(o);
        }

        const auto material = Geometry::FindAttribute<CTriangleRef, unsigned int>(mesh, "triangleType");
        const auto texture = Geometry::FindAttribute<CTriangleRef, STexture>(mesh, Geometry::CAttributeConfigurationTriangleParameters::GetId());
        CGroupLines groupLines(groups);
        uint64_t nextTexture = 1; // number of the next "vt" line
        auto texturedRun = [&](auto begin, auto end) {
            for (auto it = begin; it != end; ++it) writeTextureLines(out, texture[*it]);
            for (auto it = begin; it != end; ++it) {
                groupLines.Before(out, *it);
                writeTexturedFace(out, vertexNumbers.data(), mesh.GetCorners(*it), nextTexture);
                nextTexture += 3;
            }
        };
        auto plainRun = [&](auto begin, auto end) {
            for (auto it = begin; it != end; ++it) {
                groupLines.Before(out, *it);
                writeFace(out, vertexNumbers.data(), mesh.GetCorners(*it));
            }
        };

        if (!material.IsNull()) {
            // Bucket the triangles by material id, buckets in order of first appearance.
            CbMap<unsigned int, uint32_t> counts;
            {
                unsigned int lastId = 0;
                uint32_t* lastCount = nullptr;
                for (CTriangleRef t : mesh.Triangles()) {
                    const unsigned int id = material[t];
                    if (!lastCount || id != lastId) {
                        lastId = id;
                        lastCount = &counts[id];
                    }
                    ++*lastCount;
                }
            }
            CbMap<unsigned int, uint32_t> starts;
            uint32_t running = 0;
            for (const auto& entry : counts) {
                starts.SetAt(entry.first, running);
                running += entry.second;
            }
            std::vector<CTriangleRef> order(running);
            {
                CbMap<unsigned int, uint32_t> fill = starts;
                unsigned int lastId = 0;
                uint32_t* lastFill = nullptr;
                for (CTriangleRef t : mesh.Triangles()) {
                    const unsigned int id = material[t];
                    if (!lastFill || id != lastId) {
                        lastId = id;
                        lastFill = fill.PLookup(id);
                    }
                    order[(*lastFill)++] = t;
                }
            }
            for (const auto& entry : counts) {
                if (mtlStream) {
                    out.Flush();
                    writeUseMTL(stream, materialInfo, entry.first);
                }
                const auto begin = order.begin() + *starts.PLookup(entry.first);
                const auto end = begin + entry.second;
                bool textured = false;
                if (!texture.IsNull())
                    for (auto it = begin; it != end && !textured; ++it) textured = hasTexture(texture[*it]);
                if (textured) texturedRun(begin, end);
                else plainRun(begin, end);
            }
        } else if (texture.IsNull()) {
            if (materialInfo.materials.GetCount() == 1) writeUseMaterialLine(out, materialInfo.materials.begin()->first);
            const auto all = mesh.Triangles();
            plainRun(all.begin(), all.end());
        } else {
            if (mtlStream && materialInfo.materialNames.GetCount() == 1 && !materialInfo.materials.IsEmpty())
                writeUseMaterialLine(out, materialInfo.materials.begin()->first);
            const auto all = mesh.Triangles();
            texturedRun(all.begin(), all.end());
        }
        out.Flush();
        return true;
    } catch (...) {
        // What was formatted stays written, as far as the stream still takes it.
        try {
            out.Flush();
        } catch (...) {
        }
        return false;
    }
}

// OBJ and MTL reading. The reader takes the polygonal subset of OBJ: vertices, texture
// coordinates, normals (counted only), triangles and quadrilaterals, groups and materials.
// Free-form and display keywords are skipped; any other keyword ends the read with false.
#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "basepool/cbexception.h"
#include "detail/vnobjtext.h"
#include "vn3dbase/cattributehandle.h"
#include "vn3dbase/registry.h"
#include "vn3dbase/vnmptriangulationnormals.h"
#include "vnbase/vnfilesystem.h"
#include "vnbase/vnstreamfile.h"
#include "vnio/vnobj.h"

using Geometry::CTriangleRef;
using Geometry::CVertexRef;

namespace {

constexpr const char* kSource = "vnlibraries/vnio/vnobj";
using STexture = Geometry::CAttributeConfigurationTriangleParameters::value_type;

// Keywords that are accepted and skipped: free-form geometry, display attributes and the
// elements the reader does not turn into triangles. Sorted for the binary search.
constexpr std::string_view c_IgnoredKeywords[] = {
    "bevel", "bmat", "c_interp", "con", "cstype", "ctech", "curv", "curv2", "d_interp", "deg",
    "end",   "hole", "l",        "lod", "mg",     "o",     "p",    "parm",  "s",        "scrv",
    "shadow_obj", "sp", "stech", "step", "surf", "trace_obj", "trim", "vp"};

bool isIgnoredKeyword(std::string_view keyword) {
    size_t lo = 0, hi = std::size(c_IgnoredKeywords);
    while (lo < hi) {
        size_t mid = (lo + hi) / 2;
        if (c_IgnoredKeywords[mid] < keyword) lo = mid + 1;
        else hi = mid;
    }
    return lo < std::size(c_IgnoredKeywords) && c_IgnoredKeywords[lo] == keyword;
}

// Reads every line of the stream and hands the trimmed, non-comment ones to `f`, which
// returns false to stop. Returns false when `f` stopped.
template <class F> bool forEachLine(VnStreamReadASCIIT<CStringA>& stream, F&& f) {
    std::string_view line;
    while (stream.ReadLine(line)) {
        line = VnObjText::Trim(line);
        if (line.empty() || line[0] == '#' || line[0] == '!' || line[0] == '$') continue;
        if (!f(line)) return false;
    }
    return true;
}

[[noreturn]] void throwIndex(uint32_t line) { throw CbExceptionContainer(kSource, line, "VnOBJ::readASCII"); }

// A triangle set kept as runs of consecutive indices: faces of one group arrive together.
struct SGroupBuild {
    CStringA name;
    std::vector<std::pair<uint32_t, uint32_t>> runs; // [first, last)
    void Add(uint32_t t) {
        if (!runs.empty() && runs.back().second == t) ++runs.back().second;
        else runs.emplace_back(t, t + 1);
    }
};

// The working state of one read.
class CObjParser {
public:
    CObjParser(Geometry::CTriangulation& mesh, CStringW& materialLibraryName, CbMap<unsigned int, CStringA>& materialNames)
        : m_mesh(mesh), m_materialLibraryName(materialLibraryName), m_materialNames(materialNames) {}

    // False on a keyword outside the lists.
    bool Line(std::string_view line);
    // Moves the triangles gathered so far into the mesh.
    void Flush();
    void BuildGroups(CbArray<VnOBJ::SGroup>& groups) const;

private:
    void vertex(VnObjText::CTokenizer& tok);
    void textureCoordinate(VnObjText::CTokenizer& tok);
    void face(VnObjText::CTokenizer& tok);
    void useMaterial(VnObjText::CTokenizer& tok);
    void group(VnObjText::CTokenizer& tok);
    void addTriangle(const int64_t* v, const int64_t* t, int a, int b, int c, bool textured);

    Geometry::CTriangulation& m_mesh;
    CStringW& m_materialLibraryName;
    CbMap<unsigned int, CStringA>& m_materialNames;

    uint32_t m_vertexCount = 0; // the mesh was emptied, so the vertex table is 0..count-1
    std::vector<CbVector2f> m_textureCoordinates;
    int64_t m_normalCount = 0; // normals only count: they shift relative indices
    unsigned int m_materialId = 0;
    bool m_materialIndexBuilt = false;
    CbMap<CStringA, unsigned int> m_materialIds; // name -> id, beside m_materialNames
    bool m_materialAttribute = false;
    uint32_t m_firstMaterialTriangle = 0; // triangles from here on carry the current material id
    // Triangles are gathered in batches and appended together: one attribute resize per batch
    // instead of one per triangle.
    static constexpr size_t c_BatchSize = 8192;
    std::vector<Geometry::STriangleCorners> m_batchCorners;
    std::vector<STexture> m_batchTexture;
    std::vector<uint8_t> m_batchTextured;
    std::vector<unsigned int> m_batchMaterial;
    bool m_batchHasTexture = false;
    bool m_groupSeen = false;
    std::vector<CStringA> m_currentGroups;
    std::vector<int> m_currentGroupIndex; // into m_groups, -1 until a triangle joins
    std::vector<SGroupBuild> m_groups;    // in order of creation
    CbMap<CStringA, int> m_groupIndex;
};

bool CObjParser::Line(std::string_view line) {
    VnObjText::CTokenizer tok(line);
    const std::string_view keyword = tok.Next();
    if (keyword == "v") vertex(tok);
    else if (keyword == "f") face(tok);
    else if (keyword == "vt") textureCoordinate(tok);
    else if (keyword == "vn") ++m_normalCount;
    else if (keyword == "g") group(tok);
    else if (keyword == "usemtl") useMaterial(tok);
    else if (keyword == "mtllib") m_materialLibraryName = CbUtf8ToWide(tok.Next());
    else if (!isIgnoredKeyword(keyword)) return false;
    return true;
}

// The next token as a float; an exhausted line reads as an empty token, 0.
float nextFloat(VnObjText::CTokenizer& tok) {
    float v = 0.f;
    if (tok.SkipBlanks()) tok.SetCursor(VnObjText::ParseFloatToken(tok.Cursor(), tok.End(), v));
    return v;
}

void CObjParser::vertex(VnObjText::CTokenizer& tok) {
    const float x = nextFloat(tok);
    const float y = nextFloat(tok);
    const float z = nextFloat(tok);
    m_mesh.AddVertex(CbVector3f(x, y, -z));
    ++m_vertexCount;
}

void CObjParser::textureCoordinate(VnObjText::CTokenizer& tok) {
    const float u = nextFloat(tok);
    const float v = nextFloat(tok);
    m_textureCoordinates.emplace_back(u, 1 - v);
}

void CObjParser::face(VnObjText::CTokenizer& tok) {
    // Table positions of the corners; texture and normal numbers start at 0, so a corner
    // without one resolves to position -1.
    int64_t vertexPos[4];
    int64_t texturePos[4];
    bool textured = false;
    int corners = 4;
    for (int k = 0; k < 4; ++k) {
        VnObjText::SFaceCorner corner; // an exhausted line reads as an empty token: number 0
        if (tok.SkipBlanks()) {
            tok.SetCursor(VnObjText::ParseCorner(tok.Cursor(), tok.End(), corner));
        } else if (k == 3) {
            corners = 3;
            break;
        }
        textured = textured || corner.textured;
        // Negative numbers count back from the normals read so far for vertices (and from the
        // texture coordinates for textures): relative indices are thereby not supported, and
        // the lookups below catch whatever falls outside the tables.
        vertexPos[k] = corner.vertex >= 0 ? int64_t(corner.vertex) - 1 : m_normalCount - corner.vertex;
        texturePos[k] = corner.texture >= 0 ? int64_t(corner.texture) - 1
                                            : static_cast<int64_t>(m_textureCoordinates.size()) - corner.texture;
    }
    addTriangle(vertexPos, texturePos, 0, 2, 1, textured);
    if (corners == 4) addTriangle(vertexPos, texturePos, 0, 3, 2, textured);
}

void CObjParser::addTriangle(const int64_t* v, const int64_t* t, int a, int b, int c, bool textured) {
    for (int k : {a, b, c})
        if (v[k] < 0 || v[k] >= m_vertexCount) throwIndex(__LINE__);
    STexture uv{};
    if (textured) {
        const int64_t count = static_cast<int64_t>(m_textureCoordinates.size());
        int slot = 0;
        for (int k : {a, b, c}) {
            if (t[k] < 0 || t[k] >= count) throwIndex(__LINE__);
            uv[slot++] = m_textureCoordinates[static_cast<size_t>(t[k])];
        }
    }
    const uint32_t tri = m_mesh.GetTriangleSlotCount() + static_cast<uint32_t>(m_batchCorners.size());
    m_batchCorners.push_back({static_cast<uint32_t>(v[a]), static_cast<uint32_t>(v[b]), static_cast<uint32_t>(v[c])});
    m_batchTexture.push_back(uv);
    m_batchTextured.push_back(textured ? 1 : 0);
    m_batchMaterial.push_back(m_materialId);
    m_batchHasTexture = m_batchHasTexture || textured;
    if (m_groupSeen) {
        for (size_t i = 0; i < m_currentGroups.size(); ++i) {
            int& index = m_currentGroupIndex[i];
            if (index < 0) {
                int* known = m_groupIndex.PLookup(m_currentGroups[i]);
                if (known) {
                    index = *known;
                } else {
                    index = static_cast<int>(m_groups.size());
                    m_groups.push_back(SGroupBuild{m_currentGroups[i], {}});
                    m_groupIndex.SetAt(m_currentGroups[i], index);
                }
            }
            m_groups[static_cast<size_t>(index)].Add(tri);
        }
    }
    if (m_batchCorners.size() >= c_BatchSize) Flush();
}

void CObjParser::Flush() {
    const uint32_t count = static_cast<uint32_t>(m_batchCorners.size());
    if (!count) return;
    const uint32_t first = m_mesh.GetTriangleSlotCount();
    m_mesh.AppendTriangles(m_batchCorners.data(), count);
    if (m_batchHasTexture) {
        auto texture = Geometry::GetOrCreateAttribute<CTriangleRef, STexture>(m_mesh, Geometry::CAttributeConfigurationTriangleParameters::GetId());
        STexture* out = texture.GetData() + first;
        for (uint32_t i = 0; i < count; ++i)
            if (m_batchTextured[i]) out[i] = m_batchTexture[i];
    }
    if (m_materialAttribute) {
        auto material = Geometry::GetOrCreateAttribute<CTriangleRef, unsigned int>(m_mesh, "triangleType");
        unsigned int* out = material.GetData();
        for (uint32_t i = std::max(first, m_firstMaterialTriangle) - first; i < count; ++i) out[first + i] = m_batchMaterial[i];
    }
    m_batchCorners.clear();
    m_batchTexture.clear();
    m_batchTextured.clear();
    m_batchMaterial.clear();
    m_batchHasTexture = false;
}

void CObjParser::useMaterial(VnObjText::CTokenizer& tok) {
    const CStringA name(tok.Next());
    if (!m_materialIndexBuilt) {
        // Ids the caller passed in keep their names; where a name repeats, the first entry in
        // map order is the one a search would find.
        for (const auto& entry : m_materialNames)
            if (!m_materialIds.Contains(entry.second)) m_materialIds.SetAt(entry.second, entry.first);
        m_materialIndexBuilt = true;
        // Triangles before the first "usemtl" keep the attribute's default value.
        Geometry::GetOrCreateAttribute<CTriangleRef, unsigned int>(m_mesh, "triangleType");
        m_materialAttribute = true;
        m_firstMaterialTriangle = m_mesh.GetTriangleSlotCount() + static_cast<uint32_t>(m_batchCorners.size());
    }
    if (const unsigned int* id = m_materialIds.PLookup(name)) {
        m_materialId = *id;
        return;
    }
    unsigned int id = static_cast<unsigned int>(m_materialNames.GetCount());
    while (m_materialNames.Contains(id)) ++id;
    m_materialNames.SetAt(id, name);
    m_materialIds.SetAt(name, id);
    m_materialId = id;
}

void CObjParser::group(VnObjText::CTokenizer& tok) {
    m_groupSeen = true;
    m_currentGroups.clear();
    m_currentGroupIndex.clear();
    for (std::string_view name = tok.Next(); !name.empty(); name = tok.Next()) {
        bool repeated = false;
        for (const CStringA& known : m_currentGroups) repeated = repeated || known == name;
        if (repeated) continue;
        m_currentGroups.emplace_back(name);
        m_currentGroupIndex.push_back(-1);
    }
}

void CObjParser::BuildGroups(CbArray<VnOBJ::SGroup>& groups) const {
    groups.RemoveAll();
    for (const SGroupBuild& build : m_groups) {
        VnOBJ::SGroup g;
        g.name = build.name;
        for (const auto& run : build.runs)
            for (uint32_t t = run.first; t < run.second; ++t) g.region.SetInside(CTriangleRef(t), true);
        groups.Add(std::move(g));
    }
}

} // namespace

bool VnOBJ::readASCII(Geometry::CTriangulation& mesh, CStringW& materialLibraryName, VnStreamReadASCIIT<CStringA>& stream,
                      CbMap<unsigned int, CStringA>& materialNames, CbArray<SGroup>& groups) {
    mesh.RemoveAll();
    CObjParser parser(mesh, materialLibraryName, materialNames);
    const bool complete = forEachLine(stream, [&](std::string_view line) { return parser.Line(line); });
    parser.Flush(); // an early stop keeps what was read before it
    if (!complete) return false;
    parser.BuildGroups(groups);
    VnMpTriangulationNormals::Compute(mesh);
    return true;
}

bool VnOBJ::Load(const CStringW& fileName, Geometry::CTriangulation& mesh) {
    SMaterialInfo materialInfo;
    CbArray<SGroup> groups;
    return LoadWithMaterialAndGroups(fileName, mesh, materialInfo, groups);
}

bool VnOBJ::LoadWithMaterial(const CStringW& fileName, Geometry::CTriangulation& mesh, SMaterialInfo& materialInfo) {
    CbArray<SGroup> groups;
    return LoadWithMaterialAndGroups(fileName, mesh, materialInfo, groups);
}

bool VnOBJ::LoadWithMaterialAndGroups(const CStringW& fileName, Geometry::CTriangulation& mesh, SMaterialInfo& materialInfo,
                                      CbArray<SGroup>& groups) {
    if (!VnFileSystem::Exists(fileName)) return false;
    try {
        CStringW materialLibraryName;
        {
            VnStreamReadASCIIFile stream(fileName);
            if (!readASCII(mesh, materialLibraryName, stream, materialInfo.materialNames, groups)) return false;
        }
        if (!materialLibraryName.empty()) {
            const CStringW mtlPath = VnFileSystem::GetFolder(fileName) + materialLibraryName;
            if (!VnFileSystem::Exists(mtlPath)) return false;
            VnStreamReadASCIIFile mtlStream(mtlPath);
            materialInfo.materials = ReadMTL(mtlStream);
        }
        return true;
    } catch (const CbException&) {
        mesh.Reset();
        return false;
    }
}

bool VnOBJ::Serialize(VnStreamReadASCIIT<CStringA>& stream, Geometry::CTriangulation& mesh) {
    CStringW materialLibraryName;
    CbMap<unsigned int, CStringA> materialNames;
    return Serialize(stream, mesh, materialLibraryName, materialNames);
}

bool VnOBJ::Serialize(VnStreamReadASCIIT<CStringA>& stream, Geometry::CTriangulation& mesh, CStringW& materialLibraryName,
                      CbMap<unsigned int, CStringA>& materialNames) {
    try {
        CbArray<SGroup> groups;
        readASCII(mesh, materialLibraryName, stream, materialNames, groups); // the stream form reports errors only
        return true;
    } catch (const CbException&) {
        mesh.Reset();
        return false;
    }
}

CbMap<CStringA, VnOBJ::SMaterial> VnOBJ::ReadMTL(VnStreamReadASCIIT<CStringA>& stream) {
    CbMap<CStringA, SMaterial> result;
    CStringA current;
    forEachLine(stream, [&](std::string_view line) {
        VnObjText::CTokenizer tok(line);
        const std::string_view keyword = tok.Next();
        if (keyword == "newmtl") {
            const CStringA name(tok.Next());
            // A repeated definition is skipped whole: the first one wins.
            current = result.Contains(name) ? CStringA() : name;
            return true;
        }
        if (current.empty()) return true;
        auto colour = [&] {
            const float r = VnObjText::ParseFloat(tok.Next());
            const float g = VnObjText::ParseFloat(tok.Next());
            const float b = VnObjText::ParseFloat(tok.Next());
            return VnColorRGBA::ConvertToUInt32(r, g, b, 1.f);
        };
        if (keyword == "Ka") result[current].ambient = colour();
        else if (keyword == "Kd") result[current].diffuse = colour();
        else if (keyword == "Ks") result[current].specular = colour();
        else if (keyword == "d") result[current].opacity = VnObjText::ParseFloat(tok.Next());
        else if (keyword == "map_Kd") result[current].diffuseMap = CbUtf8ToWide(tok.Next());
        else if (keyword == "map_bump" || keyword == "bump") result[current].bumpMap = CbUtf8ToWide(tok.Next());
        return true;
    });
    return result;
}

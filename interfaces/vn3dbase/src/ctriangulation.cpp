#include "vn3dbase/ctriangulation.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>

namespace Geometry {

std::vector<uint8_t> SAttributeEntry::MakeConfiguration(uint32_t elementSize, const std::vector<uint8_t>& defaultValue) {
    std::vector<uint8_t> block(4 + defaultValue.size());
    std::memcpy(block.data(), &elementSize, 4);
    if (!defaultValue.empty()) std::memcpy(block.data() + 4, defaultValue.data(), defaultValue.size());
    return block;
}

CTriangulation::CTriangulation() = default;
CTriangulation::~CTriangulation() = default;

CTriangulation::CTriangulation(uint32_t vertexCount, uint32_t triangleCount, SMemoryBlock<CbVector3f> positions,
                               SMemoryBlock<STriangleCorners> corners, SMemoryBlock<unsigned>, SMemoryBlock<unsigned>)
    : m_positions(positions.Take()), m_corners(corners.Take()) {
    m_positions.resize(vertexCount);
    m_corners.resize(triangleCount, STriangleCorners{0, 0, 0});
    m_vertexLive = vertexCount;
    m_triangleLive = triangleCount;
}

CTriangulation::CTriangulation(const CTriangulation& other)
    : m_positions(other.m_positions), m_corners(other.m_corners), m_vertexDeleted(other.m_vertexDeleted),
      m_triangleDeleted(other.m_triangleDeleted), m_vertexLive(other.m_vertexLive), m_triangleLive(other.m_triangleLive),
      m_adjacency(other.m_adjacency), m_adjacencyValid(other.m_adjacencyValid), m_vtOffsets(other.m_vtOffsets),
      m_vtTriangles(other.m_vtTriangles), m_vtValid(other.m_vtValid) {
    for (int c = 0; c < 2; ++c)
        for (const auto& e : other.m_attributes[c]) m_attributes[c].push_back(std::make_unique<SAttributeEntry>(*e));
    adoptEntries();
}

CTriangulation& CTriangulation::operator=(const CTriangulation& other) {
    if (this != &other) {
        CTriangulation copy(other);
        *this = std::move(copy);
    }
    return *this;
}

CTriangulation::CTriangulation(CTriangulation&& other) noexcept { *this = std::move(other); }

CTriangulation& CTriangulation::operator=(CTriangulation&& other) noexcept {
    if (this == &other) return *this;
    m_positions = std::move(other.m_positions);
    m_corners = std::move(other.m_corners);
    m_vertexDeleted = std::move(other.m_vertexDeleted);
    m_triangleDeleted = std::move(other.m_triangleDeleted);
    m_vertexLive = other.m_vertexLive;
    m_triangleLive = other.m_triangleLive;
    m_attributes = std::move(other.m_attributes);
    m_adjacency = std::move(other.m_adjacency);
    m_adjacencyValid = other.m_adjacencyValid;
    m_vtOffsets = std::move(other.m_vtOffsets);
    m_vtTriangles = std::move(other.m_vtTriangles);
    m_vtValid = other.m_vtValid;
    adoptEntries();
    other.Reset();
    return *this;
}

void CTriangulation::adoptEntries() {
    for (int c = 0; c < 2; ++c)
        for (auto& e : m_attributes[c]) {
            e->mesh = this;
            e->container = c;
        }
}

void CTriangulation::RemoveAll() {
    m_positions.clear();
    m_corners.clear();
    m_vertexDeleted.clear();
    m_triangleDeleted.clear();
    m_vertexLive = m_triangleLive = 0;
    for (auto& list : m_attributes)
        for (auto& e : list) e->data.clear();
    m_adjacency.clear();
    m_vtOffsets.clear();
    m_vtTriangles.clear();
    invalidateTopology();
}

void CTriangulation::Reset() {
    RemoveAll();
    for (auto& list : m_attributes) list.clear();
    m_positions.shrink_to_fit();
    m_corners.shrink_to_fit();
}

void CTriangulation::ReserveVertices(uint32_t n) {
    m_positions.reserve(n);
    for (auto& e : m_attributes[eContainerVertex])
        if (e->connected) e->data.reserve(size_t(n) * e->elementSize);
}

void CTriangulation::ReserveTriangles(uint32_t n) {
    m_corners.reserve(n);
    for (auto& e : m_attributes[eContainerTriangle])
        if (e->connected) e->data.reserve(size_t(n) * e->elementSize);
}

void CTriangulation::appendDefaults(int container, uint32_t count) {
    for (auto& e : m_attributes[container]) {
        if (!e->connected) continue;
        size_t old = e->data.size();
        e->data.resize(old + size_t(count) * e->elementSize);
        if (e->elementSize == 0) continue;
        bool zero = std::all_of(e->defaultValue.begin(), e->defaultValue.end(), [](uint8_t b) { return b == 0; });
        if (zero) continue; // resize already zero-filled
        for (size_t off = old; off < e->data.size(); off += e->elementSize)
            std::memcpy(e->data.data() + off, e->defaultValue.data(), e->elementSize);
    }
}

CVertexRef CTriangulation::AddVertex(const CbVector3f& position) {
    uint32_t index = static_cast<uint32_t>(m_positions.size());
    m_positions.push_back(position);
    if (!m_vertexDeleted.empty()) m_vertexDeleted.push_back(0);
    ++m_vertexLive;
    if (!m_attributes[eContainerVertex].empty()) appendDefaults(eContainerVertex, 1);
    m_vtValid = false;
    return CVertexRef(index);
}

CTriangleRef CTriangulation::AddTriangle(CVertexRef v0, CVertexRef v1, CVertexRef v2) {
    uint32_t index = static_cast<uint32_t>(m_corners.size());
    m_corners.push_back(STriangleCorners{v0.Index(), v1.Index(), v2.Index()});
    if (!m_triangleDeleted.empty()) m_triangleDeleted.push_back(0);
    ++m_triangleLive;
    if (!m_attributes[eContainerTriangle].empty()) appendDefaults(eContainerTriangle, 1);
    invalidateTopology();
    return CTriangleRef(index);
}

void CTriangulation::AppendVertices(const CbVector3f* positions, uint32_t count) {
    m_positions.insert(m_positions.end(), positions, positions + count);
    if (!m_vertexDeleted.empty()) m_vertexDeleted.resize(m_positions.size(), 0);
    m_vertexLive += count;
    appendDefaults(eContainerVertex, count);
    m_vtValid = false;
}

void CTriangulation::AppendTriangles(const STriangleCorners* corners, uint32_t count) {
    m_corners.insert(m_corners.end(), corners, corners + count);
    if (!m_triangleDeleted.empty()) m_triangleDeleted.resize(m_corners.size(), 0);
    m_triangleLive += count;
    appendDefaults(eContainerTriangle, count);
    invalidateTopology();
}

void CTriangulation::RemoveVertex(CVertexRef v) {
    if (!IsVertexLive(v)) return;
    if (m_vertexDeleted.empty()) m_vertexDeleted.assign(m_positions.size(), 0);
    m_vertexDeleted[v] = 1;
    --m_vertexLive;
    invalidateTopology();
}

void CTriangulation::RemoveTriangle(CTriangleRef t) {
    if (!IsTriangleLive(t)) return;
    if (m_triangleDeleted.empty()) m_triangleDeleted.assign(m_corners.size(), 0);
    m_triangleDeleted[t] = 1;
    --m_triangleLive;
    invalidateTopology();
}

void CTriangulation::SetCorners(CTriangleRef t, uint32_t v0, uint32_t v1, uint32_t v2) {
    m_corners[t] = STriangleCorners{v0, v1, v2};
    invalidateTopology();
}

CVertexRef CTriangulation::nextVertex(uint32_t from) const {
    uint32_t n = GetVertexSlotCount();
    if (m_vertexLive != n)
        while (from < n && m_vertexDeleted[from]) ++from;
    return CVertexRef(from < n ? from : c_IndexEnd);
}

CTriangleRef CTriangulation::nextTriangle(uint32_t from) const {
    uint32_t n = GetTriangleSlotCount();
    if (m_triangleLive != n)
        while (from < n && m_triangleDeleted[from]) ++from;
    return CTriangleRef(from < n ? from : c_IndexEnd);
}

std::vector<uint32_t> CTriangulation::ComputeDenseVertexIndices() const {
    std::vector<uint32_t> dense(m_positions.size(), c_IndexInvalid);
    uint32_t rank = 0;
    for (CVertexRef v : Vertices()) dense[v] = rank++;
    return dense;
}

std::vector<uint32_t> CTriangulation::ComputeDenseTriangleIndices() const {
    std::vector<uint32_t> dense(m_corners.size(), c_IndexInvalid);
    uint32_t rank = 0;
    for (CTriangleRef t : Triangles()) dense[t] = rank++;
    return dense;
}

void CTriangulation::ComputeVertexTriangleRelation() {
    const uint32_t nv = GetVertexSlotCount();
    m_vtOffsets.assign(size_t(nv) + 1, 0);
    for (CTriangleRef t : Triangles())
        for (uint32_t v : m_corners[t])
            if (v < nv) ++m_vtOffsets[v + 1];
    for (uint32_t i = 0; i < nv; ++i) m_vtOffsets[i + 1] += m_vtOffsets[i];
    m_vtTriangles.resize(m_vtOffsets[nv]);
    std::vector<uint32_t> fill(m_vtOffsets.begin(), m_vtOffsets.end() - 1);
    for (CTriangleRef t : Triangles())
        for (uint32_t v : m_corners[t])
            if (v < nv) m_vtTriangles[fill[v]++] = t;
    m_vtValid = true;
}

void CTriangulation::ComputeAdjacency() {
    // The twin of a directed edge a->b is the edge b->a. Both meet at b, so the edges are
    // matched vertex by vertex over b's triangles: each triangle is visited once per corner
    // instead of once per edge of every neighbour. An edge with more than one twin
    // candidate, or a repeated direction, is left without a neighbour: such an edge is not
    // manifold and no traversal may cross it. A triangle that has b at two corners is
    // listed twice around b and counts twice, which keeps such edges unmatched.
    if (!m_vtValid) ComputeVertexTriangleRelation();
    const uint32_t nv = GetVertexSlotCount();
    m_adjacency.assign(m_corners.size(), STriangleCorners{c_IndexInvalid, c_IndexInvalid, c_IndexInvalid});
    struct SEnd {
        uint32_t other;    // the edge's other vertex
        uint32_t triangle;
    };
    std::vector<SEnd> leaving, arriving; // edges b->other and other->b around one vertex b
    for (uint32_t b = 0; b < nv; ++b) {
        const std::span<const uint32_t> around = GetVertexTriangles(CVertexRef(b));
        if (around.empty()) continue;
        leaving.clear();
        arriving.clear();
        for (uint32_t u : around) {
            const STriangleCorners& d = m_corners[u];
            for (int j = 0; j < 3; ++j) {
                if (d[j] == b) leaving.push_back({d[(j + 1) % 3], u});
                if (d[(j + 1) % 3] == b) arriving.push_back({d[j], u});
            }
        }
        for (size_t i = 0; i < around.size(); ++i) {
            const uint32_t t = around[i];
            if (i > 0 && around[i - 1] == t) continue; // the same triangle, listed again
            const STriangleCorners& c = m_corners[t];
            for (int k = 0; k < 3; ++k) {
                const uint32_t a = c[k];
                if (c[(k + 1) % 3] != b || a >= nv || a == b) continue;
                uint32_t twin = c_IndexInvalid;
                int twins = 0, sameDirection = 0;
                for (const SEnd& e : leaving)
                    if (e.other == a) {
                        twin = e.triangle;
                        ++twins;
                    }
                for (const SEnd& e : arriving)
                    if (e.other == a && e.triangle != t) ++sameDirection;
                if (twins == 1 && sameDirection == 0 && twin != t) m_adjacency[t][k] = twin;
            }
        }
    }
    m_adjacencyValid = true;
}

SMemoryBlock<CbVector3f> CTriangulation::ReleaseVertexPositions() {
    SMemoryBlock<CbVector3f> block(std::move(m_positions));
    m_positions.clear();
    m_vertexDeleted.clear();
    m_vertexLive = 0;
    for (auto& e : m_attributes[eContainerVertex]) e->data.clear();
    m_vtValid = false;
    return block;
}

SAttributeEntry* CTriangulation::FindAttribute(int container, std::string_view name) {
    if (container < 0 || container > 1) return nullptr;
    for (auto& e : m_attributes[container])
        if (e->name == name) return e.get();
    return nullptr;
}

const SAttributeEntry* CTriangulation::FindAttribute(int container, std::string_view name) const {
    return const_cast<CTriangulation*>(this)->FindAttribute(container, name);
}

SAttributeEntry* CTriangulation::InsertAttribute(int container, std::string_view name, uint32_t elementSize,
                                                 const std::type_info* type, std::vector<uint8_t> defaultValue,
                                                 bool serialize) {
    auto entry = std::make_unique<SAttributeEntry>();
    entry->name = std::string(name);
    entry->elementSize = elementSize;
    entry->type = type;
    defaultValue.resize(elementSize, 0);
    entry->defaultValue = std::move(defaultValue);
    entry->serialize = serialize;
    entry->configuration = SAttributeEntry::MakeConfiguration(elementSize, entry->defaultValue);
    entry->container = container;
    entry->mesh = this;
    auto& list = m_attributes[container];
    for (auto& e : list)
        if (e->name == name) {
            e = std::move(entry);
            return e.get();
        }
    list.push_back(std::move(entry));
    return list.back().get();
}

void CTriangulation::connectAttribute(int container, std::string_view name) {
    SAttributeEntry* e = FindAttribute(container, name);
    if (!e) return;
    size_t slots = container == eContainerVertex ? m_positions.size() : m_corners.size();
    e->data.clear();
    e->connected = true;
    e->data.resize(slots * e->elementSize);
    bool zero = std::all_of(e->defaultValue.begin(), e->defaultValue.end(), [](uint8_t b) { return b == 0; });
    if (!zero && e->elementSize)
        for (size_t off = 0; off < e->data.size(); off += e->elementSize)
            std::memcpy(e->data.data() + off, e->defaultValue.data(), e->elementSize);
}

void CTriangulation::disconnectAttribute(int container, std::string_view name) {
    if (SAttributeEntry* e = FindAttribute(container, name)) {
        e->connected = false;
        e->data.clear();
    }
}

bool CTriangulation::RemoveAttribute(int container, std::string_view name) {
    if (container < 0 || container > 1) return false;
    auto& list = m_attributes[container];
    for (auto it = list.begin(); it != list.end(); ++it)
        if ((*it)->name == name) {
            list.erase(it);
            return true;
        }
    return false;
}

void CTriangulation::setSerialize(int container, std::string_view name, bool flag) {
    if (SAttributeEntry* e = FindAttribute(container, name)) e->serialize = flag;
}

std::vector<SAttributeEntry*> CTriangulation::GetAttributes(int container) {
    std::vector<SAttributeEntry*> out;
    if (container < 0 || container > 1) return out;
    for (auto& e : m_attributes[container]) out.push_back(e.get());
    return out;
}

std::vector<const SAttributeEntry*> CTriangulation::GetAttributes(int container) const {
    std::vector<const SAttributeEntry*> out;
    if (container < 0 || container > 1) return out;
    for (auto& e : m_attributes[container]) out.push_back(e.get());
    return out;
}

} // namespace Geometry

namespace Geometry {

void CTriangulation::RemapVertices(const std::vector<uint32_t>& oldToNew, uint32_t newCount) {
    const uint32_t slots = GetVertexSlotCount();
    std::vector<uint32_t> source(newCount, c_IndexInvalid); // new index -> first old vertex
    for (CVertexRef v : Vertices()) {
        uint32_t n = v < oldToNew.size() ? oldToNew[v] : c_IndexInvalid;
        if (n < newCount && source[n] == c_IndexInvalid) source[n] = v;
    }
    std::vector<CbVector3f> positions(newCount);
    for (uint32_t n = 0; n < newCount; ++n)
        if (source[n] != c_IndexInvalid) positions[n] = m_positions[source[n]];
    for (auto& e : m_attributes[eContainerVertex]) {
        if (!e->connected) continue;
        std::vector<uint8_t> data(size_t(newCount) * e->elementSize);
        for (uint32_t n = 0; n < newCount; ++n) {
            const uint8_t* from = source[n] != c_IndexInvalid ? e->data.data() + size_t(source[n]) * e->elementSize
                                                              : e->defaultValue.data();
            if (e->elementSize) std::memcpy(data.data() + size_t(n) * e->elementSize, from, e->elementSize);
        }
        e->data.swap(data);
    }
    for (CTriangleRef t : Triangles())
        for (uint32_t& c : m_corners[t]) c = c < slots && c < oldToNew.size() ? oldToNew[c] : c_IndexInvalid;
    m_positions.swap(positions);
    m_vertexDeleted.clear();
    m_vertexLive = newCount;
    invalidateTopology();
}

void CTriangulation::Compact() {
    if (m_triangleLive != m_corners.size()) {
        std::vector<uint32_t> keep;
        keep.reserve(m_triangleLive);
        for (CTriangleRef t : Triangles()) keep.push_back(t);
        std::vector<STriangleCorners> corners(keep.size());
        for (size_t i = 0; i < keep.size(); ++i) corners[i] = m_corners[keep[i]];
        for (auto& e : m_attributes[eContainerTriangle]) {
            if (!e->connected) continue;
            std::vector<uint8_t> data(keep.size() * e->elementSize);
            for (size_t i = 0; i < keep.size(); ++i)
                if (e->elementSize)
                    std::memcpy(data.data() + i * e->elementSize, e->data.data() + size_t(keep[i]) * e->elementSize, e->elementSize);
            e->data.swap(data);
        }
        m_corners.swap(corners);
        m_triangleDeleted.clear();
        invalidateTopology();
    }
    if (m_vertexLive != m_positions.size()) {
        std::vector<uint32_t> dense = ComputeDenseVertexIndices();
        RemapVertices(dense, m_vertexLive);
    }
}

} // namespace Geometry

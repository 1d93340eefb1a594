#pragma once
// Geometry::CTriangulation: an indexed triangle mesh over two slot arrays (positions and
// corner triples) that may hold deleted slots, with named per-vertex and per-triangle
// attributes stored flat, one element per slot.
//
// Iteration visits live elements in increasing index order; when an array has no deleted
// slot (the common case) iteration is a plain counter. Adjacency follows one convention:
// neighbour k of a triangle lies across the edge from corner k to corner (k+1) mod 3, or is
// c_IndexInvalid.
#include <array>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "basepool/cbvector.h"
#include "vn3dbase/attributeentry.h"
#include "vn3dbase/meshtypes.h"

namespace Geometry {

// Iterates the live slots of one array.
template <class Ref> class CSlotRange {
public:
    class iterator {
    public:
        iterator(const uint8_t* deleted, uint32_t index, uint32_t end) : m_deleted(deleted), m_index(index), m_end(end) { skip(); }
        Ref operator*() const { return Ref(m_index); }
        iterator& operator++() { ++m_index; skip(); return *this; }
        bool operator!=(const iterator& o) const { return m_index != o.m_index; }
        bool operator==(const iterator& o) const { return m_index == o.m_index; }

    private:
        void skip() {
            if (m_deleted)
                while (m_index < m_end && m_deleted[m_index]) ++m_index;
        }
        const uint8_t* m_deleted;
        uint32_t m_index, m_end;
    };
    CSlotRange(const uint8_t* deleted, uint32_t slots) : m_deleted(deleted), m_slots(slots) {}
    iterator begin() const { return iterator(m_deleted, 0, m_slots); }
    iterator end() const { return iterator(nullptr, m_slots, m_slots); }

private:
    const uint8_t* m_deleted;
    uint32_t m_slots;
};

class CTriangulation {
public:
    CTriangulation();
    // Takes ownership of the blocks: the mesh has exactly these live vertices and
    // triangles, indices 0..count-1. The two unsigned blocks are accepted and unused.
    CTriangulation(uint32_t vertexCount, uint32_t triangleCount, SMemoryBlock<CbVector3f> positions,
                   SMemoryBlock<STriangleCorners> corners, SMemoryBlock<unsigned> block0 = {}, SMemoryBlock<unsigned> block1 = {});
    ~CTriangulation();
    // Copies share nothing; attribute entries are cloned and belong to the copy.
    CTriangulation(const CTriangulation& other);
    CTriangulation& operator=(const CTriangulation& other);
    CTriangulation(CTriangulation&& other) noexcept;
    CTriangulation& operator=(CTriangulation&& other) noexcept;

    // Removes every vertex and triangle and their attribute elements; definitions stay.
    void RemoveAll();
    // Back to the freshly constructed state (no attributes either).
    void Reset();
    void ReserveVertices(uint32_t n);
    void ReserveTriangles(uint32_t n);

    CVertexRef AddVertex(const CbVector3f& position);
    CTriangleRef AddTriangle(CVertexRef v0, CVertexRef v1, CVertexRef v2);
    // Appends `count` vertices / triangles at once (attribute elements get defaults).
    void AppendVertices(const CbVector3f* positions, uint32_t count);
    void AppendTriangles(const STriangleCorners* corners, uint32_t count);
    // Marks a slot deleted; its index is never reused.
    void RemoveVertex(CVertexRef v);
    void RemoveTriangle(CTriangleRef t);

    uint32_t GetVertexCount() const { return m_vertexLive; }
    uint32_t GetTriangleCount() const { return m_triangleLive; }
    uint32_t GetVertexSlotCount() const { return static_cast<uint32_t>(m_positions.size()); }
    uint32_t GetTriangleSlotCount() const { return static_cast<uint32_t>(m_corners.size()); }
    bool IsVertexLive(uint32_t v) const { return v < m_positions.size() && (m_vertexDeleted.empty() || !m_vertexDeleted[v]); }
    bool IsTriangleLive(uint32_t t) const { return t < m_corners.size() && (m_triangleDeleted.empty() || !m_triangleDeleted[t]); }
    // True when neither slot array has deleted slots (slot index == dense index).
    bool IsIndicesAccurate() const { return m_vertexLive == m_positions.size() && m_triangleLive == m_corners.size(); }

    CSlotRange<CVertexRef> Vertices() const {
        return {m_vertexLive == m_positions.size() ? nullptr : m_vertexDeleted.data(), GetVertexSlotCount()};
    }
    CSlotRange<CTriangleRef> Triangles() const {
        return {m_triangleLive == m_corners.size() ? nullptr : m_triangleDeleted.data(), GetTriangleSlotCount()};
    }
    // First/next iteration; the end is c_IndexEnd.
    CVertexRef GetFirstVertex() const { return nextVertex(0); }
    CVertexRef GetNextVertex(CVertexRef v) const { return nextVertex(v.Index() + 1); }
    CTriangleRef GetFirstTriangle() const { return nextTriangle(0); }
    CTriangleRef GetNextTriangle(CTriangleRef t) const { return nextTriangle(t.Index() + 1); }

    const CbVector3f& GetPosition(CVertexRef v) const { return m_positions[v]; }
    void SetPosition(CVertexRef v, const CbVector3f& p) { m_positions[v] = p; }
    const CbVector3f* GetPositions() const { return m_positions.data(); }
    CbVector3f* GetPositions() { return m_positions.data(); }
    uint32_t GetCorner(CTriangleRef t, int k) const { return m_corners[t][k]; }
    const STriangleCorners& GetCorners(CTriangleRef t) const { return m_corners[t]; }
    void SetCorners(CTriangleRef t, uint32_t v0, uint32_t v1, uint32_t v2);
    const STriangleCorners* GetCornerArray() const { return m_corners.data(); }

    // Slot index -> dense rank among live elements (c_IndexInvalid for deleted slots).
    std::vector<uint32_t> ComputeDenseVertexIndices() const;
    std::vector<uint32_t> ComputeDenseTriangleIndices() const;

    // Triangle-to-triangle adjacency across each edge. Edges used by more than two
    // triangles, or by two with the same direction, get no neighbour.
    void ComputeAdjacency();
    bool HasAdjacency() const { return m_adjacency.size() == m_corners.size() && m_adjacencyValid; }
    uint32_t GetAdjacentTriangle(CTriangleRef t, int k) const { return m_adjacency[t][k]; }
    const std::vector<STriangleCorners>& GetAdjacency() const { return m_adjacency; }

    // Vertex-to-incident-triangle relation, as compressed rows.
    void ComputeVertexTriangleRelation();
    bool HasVertexTriangleRelation() const { return m_vtValid; }
    std::span<const uint32_t> GetVertexTriangles(CVertexRef v) const {
        return {m_vtTriangles.data() + m_vtOffsets[v], m_vtOffsets[v + 1] - m_vtOffsets[v]};
    }

    // Renumbers vertices: live vertex v becomes oldToNew[v] (< newCount) and keeps its
    // position and attribute values when it is the first old vertex mapped there; entries of
    // c_IndexInvalid drop the vertex. Corners of live triangles are remapped; the result has
    // no deleted vertex slots.
    void RemapVertices(const std::vector<uint32_t>& oldToNew, uint32_t newCount);
    // Drops deleted triangle and vertex slots so that indices become dense again.
    void Compact();

    // Hands the position array out and leaves the mesh without positions (and vertices).
    SMemoryBlock<CbVector3f> ReleaseVertexPositions();

    // ---- attributes ----
    SAttributeEntry* FindAttribute(int container, std::string_view name);
    const SAttributeEntry* FindAttribute(int container, std::string_view name) const;
    // Inserts a new, not yet connected entry; replaces an entry of the same name.
    SAttributeEntry* InsertAttribute(int container, std::string_view name, uint32_t elementSize,
                                     const std::type_info* type, std::vector<uint8_t> defaultValue, bool serialize);
    // Makes an entry live: sizes its storage to the slot array, filled with the default.
    void connectAttribute(int container, std::string_view name);
    void disconnectAttribute(int container, std::string_view name);
    bool RemoveAttribute(int container, std::string_view name);
    void setSerialize(int container, std::string_view name, bool flag);
    // Entries in creation order.
    std::vector<SAttributeEntry*> GetAttributes(int container);
    std::vector<const SAttributeEntry*> GetAttributes(int container) const;

private:
    CVertexRef nextVertex(uint32_t from) const;
    CTriangleRef nextTriangle(uint32_t from) const;
    void appendDefaults(int container, uint32_t count);
    void invalidateTopology() { m_adjacencyValid = false; m_vtValid = false; }
    void adoptEntries();

    std::vector<CbVector3f> m_positions;
    std::vector<STriangleCorners> m_corners;
    std::vector<uint8_t> m_vertexDeleted;   // empty until the first deletion
    std::vector<uint8_t> m_triangleDeleted; // empty until the first deletion
    uint32_t m_vertexLive = 0;
    uint32_t m_triangleLive = 0;
    std::array<std::vector<std::unique_ptr<SAttributeEntry>>, 2> m_attributes;

    std::vector<STriangleCorners> m_adjacency;
    bool m_adjacencyValid = false;
    std::vector<uint32_t> m_vtOffsets, m_vtTriangles;
    bool m_vtValid = false;
};

} // namespace Geometry

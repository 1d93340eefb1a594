#pragma once
// The legacy mesh interface, kept for the legacy STL path and the legacy attribute layouts.
//
// It is a thin layer over Geometry::CTriangulation: every operation here works on the
// CTriangulation that a concrete class supplies through triangulation(), so slot arrays,
// deleted slots, attribute storage, adjacency and the vertex-triangle relation are the
// mesh model's own and nothing is stored twice. Elements are the mesh model's handles
// (Geometry::CVertexRef, Geometry::CTriangleRef); iteration ends at Geometry::c_IndexEnd.
//
// Fixed triangle attributes are addressed by number (EAvailableTriangleAttributes, the
// numbering of the old attribute identifiers); named attributes through the typed handles
// of the mesh model.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "basepool/cbstreambinary.h"
#include "basepool/cbvector.h"
#include "vn3dbase/cattributehandle.h"
#include "vn3dbase/ctriangulation.h"

// Run-time class information for IsKindOf tests across the legacy class tree.
struct VnRuntimeClass {
    const wchar_t* name;
    const VnRuntimeClass* base; // nullptr at the root
    bool IsDerivedFrom(const VnRuntimeClass& other) const {
        for (const VnRuntimeClass* c = this; c; c = c->base)
            if (c == &other) return true;
        return false;
    }
};

class VnTriangulationBase {
public:
    // Fixed triangle attributes by number: name and element type.
    enum EAvailableTriangleAttributes : uint32_t {
        eAttributeComponent = 0,       // "component", unsigned 32-bit
        eAttributeTriangleType = 1,    // "triangleType", unsigned 32-bit
        eAttributeNormalSet = 2,       // "normalSet", unsigned 32-bit
        eAttributeRegion = 3,          // "region", unsigned 32-bit
        eAttributeNormal = 4,          // "normal", CbVector3f (facet normal)
        eAttributeParameters = 5,      // "parameters", std::array<CbVector2f,3> (one (u, v) per corner)
        eAttributeTriangleQuality = 6, // "triangleQuality", float
        eAttributeAttributes = 7,      // "attributes", unsigned 32-bit
        eAttributeCount = 8
    };

    // ComputeNormals flags. Vertex normals are always the unit-length, area-weighted sum of
    // the facets computed from the positions; bits 2, 16 and 32 name those properties and
    // are accepted for callers that pass them (51 = vertex normals with all three).
    enum EComputeNormalsFlags : uint32_t {
        eNormalsVertex = 1,        // vertex attribute "normal"
        eNormalsUnitLength = 2,
        eNormalsTriangle = 4,      // also recompute the fixed "normal" facet attribute
        eNormalsAreaWeighted = 16,
        eNormalsFromGeometry = 32,
    };

    virtual ~VnTriangulationBase() = default;

    // ---- run-time type ----
    static const VnRuntimeClass& RTTI();
    virtual const VnRuntimeClass& GetRTTI() const { return RTTI(); }
    bool IsKindOf(const VnRuntimeClass& c) const { return GetRTTI().IsDerivedFrom(c); }
    const wchar_t* GetClassNameW() const { return GetRTTI().name; }
    // The file extension of the class's native serialisation.
    virtual const wchar_t* GetExtension() const { return L"tri"; }
    // Bytes held by positions, corners, topology tables and attribute storage.
    size_t GetMemoryUsage() const;

    // Replaces this mesh's geometry and attributes by a copy of other's.
    virtual VnTriangulationBase& operator=(const VnTriangulationBase& other);

    // ---- counts and iteration (live elements, increasing index order) ----
    uint32_t GetVertexCount() const { return mesh().GetVertexCount(); }
    uint32_t GetTriangleCount() const { return mesh().GetTriangleCount(); }
    Geometry::CVertexRef GetFirstVertex() const { return mesh().GetFirstVertex(); }
    Geometry::CVertexRef GetNextVertex(Geometry::CVertexRef v) const { return mesh().GetNextVertex(v); }
    Geometry::CTriangleRef GetFirstTriangle() const { return mesh().GetFirstTriangle(); }
    Geometry::CTriangleRef GetNextTriangle(Geometry::CTriangleRef t) const { return mesh().GetNextTriangle(t); }

    // ---- dense indices ----
    // The dense index of an element is its rank among the live elements. Without deleted
    // slots it is the slot index and always accurate; otherwise Create*Indices must have
    // run after the last removal, else GetVertexIndex / GetTriangleIndex throw
    // CbExceptionPreconditionViolation.
    void CreateVertexIndices();
    void CreateTriangleIndices();
    bool IsVertexIndicesAccurate() const;
    bool IsTriangleIndicesAccurate() const;
    uint32_t GetVertexIndex(Geometry::CVertexRef v) const;
    uint32_t GetTriangleIndex(Geometry::CTriangleRef t) const;

    // ---- geometry ----
    const CbVector3f& GetVertex(Geometry::CVertexRef v) const { return mesh().GetPosition(v); }
    void SetVertex(Geometry::CVertexRef v, const CbVector3f& p) { triangulation().SetPosition(v, p); }
    Geometry::CVertexRef GetTriangleVertex(Geometry::CTriangleRef t, int corner) const {
        return Geometry::CVertexRef(mesh().GetCorner(t, corner));
    }
    void SetTriangle(Geometry::CTriangleRef t, Geometry::CVertexRef v0, Geometry::CVertexRef v1, Geometry::CVertexRef v2);
    // The corner (0..2) of t that holds v, or -1.
    int GetVertexIndexInTriangle(Geometry::CTriangleRef t, Geometry::CVertexRef v) const;

    // Neighbour k lies across the edge from corner k to corner (k+1) mod 3, or is
    // Geometry::c_IndexInvalid. Valid after ComputeAdjacency until the next change.
    void ComputeAdjacency() { triangulation().ComputeAdjacency(); }
    bool HasAdjacency() const { return mesh().HasAdjacency(); }
    Geometry::CTriangleRef GetAdjacentTriangle(Geometry::CTriangleRef t, int k) const {
        return Geometry::CTriangleRef(mesh().GetAdjacentTriangle(t, k));
    }

    // ---- editing ----
    Geometry::CVertexRef AddVertex(const CbVector3f& p) { return triangulation().AddVertex(p); }
    Geometry::CTriangleRef AddTriangle(Geometry::CVertexRef v0, Geometry::CVertexRef v1, Geometry::CVertexRef v2) {
        return triangulation().AddTriangle(v0, v1, v2);
    }
    void RemoveVertex(Geometry::CVertexRef v);
    void RemoveTriangle(Geometry::CTriangleRef t);
    void RemoveVertices(const std::vector<Geometry::CVertexRef>& vertices);
    void RemoveTriangles(const std::vector<Geometry::CTriangleRef>& triangles);
    // Removes every element and every attribute.
    void Reset();
    // Capacity for n vertices / triangles, attribute storage included; no change of content.
    void SetVertexCount(uint32_t n) { triangulation().ReserveVertices(n); }
    void SetTriangleCount(uint32_t n) { triangulation().ReserveTriangles(n); }

    // ---- normals ----
    // See EComputeNormalsFlags. Returns false when the flags ask for nothing.
    bool ComputeNormals(uint32_t flags);
    // The unit normal of t from its corner positions; (0, 0, 0) when degenerate.
    CbVector3f ComputeNormal(Geometry::CTriangleRef t) const;

    // ---- per-vertex texture parameters ("parameters") and feature labels ("featureLabels") ----
    // Getters return the registered default when the attribute does not exist; setters
    // create it.
    CbVector2f GetParameters(Geometry::CVertexRef v) const;
    void SetParameters(Geometry::CVertexRef v, const CbVector2f& uv);
    float GetParameterU(Geometry::CVertexRef v) const { return GetParameters(v).x; }
    float GetParameterV(Geometry::CVertexRef v) const { return GetParameters(v).y; }
    void SetParameterU(Geometry::CVertexRef v, float u);
    void SetParameterV(Geometry::CVertexRef v, float value);
    uint32_t GetFeatureLabels(Geometry::CVertexRef v) const;
    void SetFeatureLabels(Geometry::CVertexRef v, uint32_t labels);
    void AddFeatureLabels(Geometry::CVertexRef v, uint32_t labels);

    // ---- named attributes (container: Geometry::eContainerVertex / eContainerTriangle) ----
    bool HasAttribute(int container, std::string_view name) const { return mesh().FindAttribute(container, name) != nullptr; }
    // Get-or-create with the mesh model's rules (registry defaults, size and type checks).
    template <class T> Geometry::CVertexAttribute<T> AssertVertexAttribute(std::string_view name) {
        return Geometry::GetOrCreateAttribute<Geometry::CVertexRef, T>(triangulation(), name);
    }
    template <class T> Geometry::CTriangleAttribute<T> AssertTriangleAttribute(std::string_view name) {
        return Geometry::GetOrCreateAttribute<Geometry::CTriangleRef, T>(triangulation(), name);
    }
    // The attribute, or a null handle when there is none of that name.
    template <class T> Geometry::CVertexAttribute<T> GetVertexAttribute(std::string_view name) const {
        return Geometry::FindAttribute<Geometry::CVertexRef, T>(mesh(), name);
    }
    template <class T> Geometry::CTriangleAttribute<T> GetTriangleAttribute(std::string_view name) const {
        return Geometry::FindAttribute<Geometry::CTriangleRef, T>(mesh(), name);
    }
    bool DestroyAttribute(int container, std::string_view name) { return triangulation().RemoveAttribute(container, name); }
    std::vector<std::string> GetAttributes(int container) const;
    bool IsSerialize(int container, std::string_view name) const;
    void SetSerialize(int container, std::string_view name, bool flag) { triangulation().setSerialize(container, name, flag); }
    void RemoveVertexAttributes();
    void RemoveTriangleAttributes();

    // ---- fixed triangle attributes ----
    // A number at or above eAttributeCount throws CbExceptionPreconditionViolation.
    static const char* getAttributeName(EAvailableTriangleAttributes attribute);
    void AssertAttribute(EAvailableTriangleAttributes attribute);
    bool HasAttribute(EAvailableTriangleAttributes attribute) const;
    bool DestroyAttribute(EAvailableTriangleAttributes attribute);
    bool IsSerializable(EAvailableTriangleAttributes attribute) const;
    void SetSerializable(EAvailableTriangleAttributes attribute, bool flag);

    // ---- native serialisation (the mesh model's own format) ----
    void Serialize(CbStreamWriteBinary& stream) const;
    // Replaces the mesh; a malformed stream throws CbExceptionStream and leaves it unchanged.
    void Serialize(CbStreamReadBinary& stream);

    // The mesh model underneath, for algorithms that work on it directly.
    virtual Geometry::CTriangulation& triangulation() = 0;
    virtual const Geometry::CTriangulation& triangulation() const = 0;

protected:
    VnTriangulationBase() = default;
    VnTriangulationBase(const VnTriangulationBase&) = default;

private:
    const Geometry::CTriangulation& mesh() const { return triangulation(); }
    void invalidateIndices() { m_vertexIndices.clear(); m_triangleIndices.clear(); }
    // Dense index tables, built by Create*Indices while slots are deleted; empty otherwise.
    std::vector<uint32_t> m_vertexIndices, m_triangleIndices;
    uint32_t m_vertexIndicesFor = 0, m_triangleIndicesFor = 0; // live counts they were built for
};

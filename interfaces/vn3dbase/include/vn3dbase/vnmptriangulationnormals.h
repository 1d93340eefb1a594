#pragma once
// Vertex and triangle normals from the geometry.
//
// Flags: 1 (eFlagVertexNormals) computes each vertex normal as the normalised sum of the
// unnormalised cross products of its live triangles (area weighting), from the positions,
// not from stored facet normals; 2 (eFlagTriangleNormals) also recomputes the unit facet
// normals. A zero-length sum gives (0, 0, 0).
#include <cstdint>

#include "basepool/cbvector.h"
#include "vn3dbase/cattributehandle.h"
#include "vn3dbase/vnalgorithm.h"

class VnMpTriangulationNormals : public VnAlgorithm {
public:
    enum EFlags : uint32_t { eFlagVertexNormals = 1, eFlagTriangleNormals = 2 };
    void SetInput(Geometry::CTriangulation& mesh, Geometry::CVertexAttribute<CbVector3f> vertexNormals,
                  Geometry::CTriangleAttribute<CbVector3f> triangleNormals) {
        m_mesh = &mesh;
        m_vertex = vertexNormals;
        m_triangle = triangleNormals;
    }
    void SetFlags(uint32_t flags) { m_flags = flags; }
    // Creates (or reuses) the vertex and triangle "normal" attributes and fills both.
    static bool Compute(Geometry::CTriangulation& mesh);
    using VnAlgorithm::Compute;

    // The unit normal of a triangle, or (0, 0, 0) when its area is below the smallest
    // normal float.
    static CbVector3f FacetNormal(const CbVector3f& p0, const CbVector3f& p1, const CbVector3f& p2);

protected:
    bool compute(uint32_t computeFlags) override;

private:
    Geometry::CTriangulation* m_mesh = nullptr;
    Geometry::CVertexAttribute<CbVector3f> m_vertex;
    Geometry::CTriangleAttribute<CbVector3f> m_triangle;
    uint32_t m_flags = eFlagVertexNormals;
};

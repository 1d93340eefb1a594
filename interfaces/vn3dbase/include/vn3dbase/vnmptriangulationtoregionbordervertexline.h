#pragma once
// Borders of a region of a mesh as closed vertex lines (polylines on the mesh).
//
// The operator decides which triangle edges are border edges; the tri-border operator takes
// the mesh boundary: the edges that only one triangle uses. Each closed border loop becomes
// one polyline. Loops are listed in the order of their lowest (triangle slot, edge slot)
// border edge; a loop starts at that edge's start vertex and follows the triangles'
// orientation; its first vertex is not repeated at the end, so its point count is the
// number of its vertices. Point j lies on mesh vertex j of the loop, in the triangle that
// holds the border edge arriving at it (coordinates 1 at that vertex's corner). After
// ReverseDirection the triangle of point k therefore holds the edge from vertex k+1 to
// vertex k.
#include <cstdint>

#include "vn3dbase/ctriangulation.h"
#include "vn3dbase/vnalgorithm.h"
#include "vn3dbase/vnpolylinetriangulationlist.h"

class VnRegionBorderVertexLineOperatorTriBorder {
public:
    // True when edge k of triangle t (from corner k to corner k+1) is a border edge, given
    // the number of triangles that use the edge.
    bool IsBorder(uint32_t trianglesOnEdge) const { return trianglesOnEdge == 1; }
};

class VnMpTriangulationToRegionBorderVertexLine : public VnAlgorithm {
public:
    // The output list is replaced and bound to the mesh.
    void SetInput(const Geometry::CTriangulation& mesh, VnPolylineTriangulationList& output,
                  const VnRegionBorderVertexLineOperatorTriBorder& op) {
        m_mesh = &mesh;
        m_output = &output;
        m_operator = &op;
    }

protected:
    // False without input, and for borders that are not closed simple loops (a vertex with
    // two border edges leaving it, or a corner that is not a live vertex).
    bool compute(uint32_t computeFlags) override;

private:
    const Geometry::CTriangulation* m_mesh = nullptr;
    VnPolylineTriangulationList* m_output = nullptr;
    const VnRegionBorderVertexLineOperatorTriBorder* m_operator = nullptr;
};

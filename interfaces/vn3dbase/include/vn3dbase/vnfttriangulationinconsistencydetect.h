#pragma once
// Tells whether a mesh is one that an exact connectivity coder cannot reproduce. A mesh is
// inconsistent when any of these holds:
//   - a live vertex that no live triangle references (vertices without triangles included);
//   - a corner that is not a live vertex slot;
//   - a triangle with a repeated vertex (degenerate or collapsed);
//   - an edge used by more than two triangles, or by two that run it in the same direction
//     (non-manifold edge or inconsistent orientation; a duplicate triangle is one of these);
//   - a vertex whose triangles do not form one fan (a pinch, a vertex shared by two
//     components or lying on two boundary loops).
// Runs in O(V + T) with no sorting.
#include "vn3dbase/ctriangulation.h"

class VnFtTriangulationInconsistencyDetect {
public:
    // True when the mesh is inconsistent in any of the ways above.
    static bool Compute(const Geometry::CTriangulation& mesh);
};

#pragma once
// Joins the coincident vertices of a triangle soup into shared vertices.
//
// Flags (bit values):
//   1 (eFlagCombine)   join vertices whose positions are equal. Equality is on the float
//                      values with +0 and -0 taken as equal; NaN coordinates compare by
//                      their bits, so a NaN vertex only joins an identical NaN vertex.
//   2 (eFlagRemoveDegenerate) afterwards drop the triangles that repeat a vertex (the
//                      join can make a sliver collapse), and the vertices no live
//                      triangle uses any more.
//   4 (eFlagTolerance) join vertices closer than the merge tolerance (Euclidean distance
//                      <= tolerance, default 0.01). Vertices are visited in index order; each
//                      joins the earliest surviving vertex within the tolerance, and
//                      survivors never move. The result therefore does not depend on hash
//                      order, and no two survivors lie within the tolerance of each other.
// The surviving vertex of a group is its lowest-indexed member and keeps its position and
// attribute values; survivors keep their relative order. Expected linear time.
#include <cstdint>
#include <vector>

#include "basepool/cbvector.h"
#include "vn3dbase/ctriangulation.h"
#include "vn3dbase/vnalgorithm.h"

class VnFtTriangulationCombineTriangleSoup : public VnAlgorithm {
public:
    enum EFlags : uint32_t { eFlagCombine = 1, eFlagRemoveDegenerate = 2, eFlagTolerance = 4 };
    void SetFlags(uint32_t flags) { m_flags = flags; }
    void AddFlags(uint32_t flags) { m_flags |= flags; }
    uint32_t GetFlags() const { return m_flags; }
    void SetParameterMergeTolerance(float tolerance) { m_tolerance = tolerance; }
    void SetInput(Geometry::CTriangulation& mesh) { m_mesh = &mesh; }

protected:
    bool compute(uint32_t computeFlags) override;

private:
    uint32_t m_flags = eFlagCombine;
    float m_tolerance = 0.01f;
    Geometry::CTriangulation* m_mesh = nullptr;
};

namespace VnWeld {
// The joining rule shared by every mesh model: for the positions of `live` vertices
// (indices into `positions`), returns old index -> group number (groups numbered in order of
// their first member), c_IndexInvalid for vertices not listed. `groupCount` receives the
// number of groups.
std::vector<uint32_t> GroupVertices(const CbVector3f* positions, size_t slotCount, const std::vector<uint32_t>& live,
                                    bool useTolerance, float tolerance, uint32_t& groupCount);
} // namespace VnWeld

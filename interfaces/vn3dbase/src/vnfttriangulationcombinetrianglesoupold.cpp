#include "vn3dbase/vnfttriangulationcombinetrianglesoupold.h"

bool VnFtTriangulationCombineTriangleSoupOld::compute(uint32_t computeFlags) {
    if (!m_mesh || !(m_flags & VnFtTriangulationCombineTriangleSoup::eFlagCombine)) return false;
    VnFtTriangulationCombineTriangleSoup combine;
    combine.SetFlags(m_flags);
    combine.SetParameterMergeTolerance(m_tolerance);
    combine.SetInput(m_mesh->triangulation());
    // The legacy callers pass compute flag 1 where the modern ones pass 16; the combiner
    // reads neither, so the value is handed through unchanged.
    bool joined = combine.Compute(computeFlags);
    // Joining renumbers vertices (and may drop triangles): stale dense tables must go.
    m_mesh->CreateVertexIndices();
    m_mesh->CreateTriangleIndices();
    return joined;
}

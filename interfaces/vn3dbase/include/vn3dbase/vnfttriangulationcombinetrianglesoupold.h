#pragma once
// Joins the coincident vertices of a triangle soup held by a legacy mesh. The joining rule,
// its flags and the tolerance are exactly those of VnFtTriangulationCombineTriangleSoup,
// which does the work on the legacy mesh's underlying Geometry::CTriangulation.
#include <cstdint>

#include "vn3dbase/vnalgorithm.h"
#include "vn3dbase/vnfttriangulationcombinetrianglesoup.h"
#include "vn3dbase/vntriangulationbase.h"

class VnFtTriangulationCombineTriangleSoupOld : public VnAlgorithm {
public:
    using EFlags = VnFtTriangulationCombineTriangleSoup::EFlags;
    // Unlike the CTriangulation combiner, no flag is set until the caller adds one.
    void SetFlags(uint32_t flags) { m_flags = flags; }
    void AddFlags(uint32_t flags) { m_flags |= flags; }
    uint32_t GetFlags() const { return m_flags; }
    void SetParameterMergeTolerance(float tolerance) { m_tolerance = tolerance; }
    void SetInput(VnTriangulationBase& mesh) { m_mesh = &mesh; }

protected:
    // False without an input or without eFlagCombine; otherwise the combiner's result.
    bool compute(uint32_t computeFlags) override;

private:
    uint32_t m_flags = 0;
    float m_tolerance = 0.01f;
    VnTriangulationBase* m_mesh = nullptr;
};

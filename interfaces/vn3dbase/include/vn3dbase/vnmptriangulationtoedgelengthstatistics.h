#pragma once
// Edge-length statistics over the 3T edges of the live triangles (an edge shared by two
// triangles counts twice, once per triangle). Lengths are accumulated in double.
#include "vn3dbase/ctriangulation.h"
#include "vn3dbase/vnalgorithm.h"

// Five floats, in this order; the fifth is the mean edge length.
struct SEdgeLengthStatistics {
    float minimum = 0.f;
    float maximum = 0.f;
    float rootMeanSquare = 0.f;
    float standardDeviation = 0.f;
    float mean = 0.f;
};
static_assert(sizeof(SEdgeLengthStatistics) == 5 * sizeof(float), "the record is five packed floats");

class VnMpTriangulationToEdgeLengthStatistics : public VnAlgorithm {
public:
    void SetInput(const Geometry::CTriangulation& mesh) { m_mesh = &mesh; }
    // Zeros when the mesh has no triangle or Compute has not run.
    const SEdgeLengthStatistics& GetOutput() const { return m_output; }

protected:
    // False without input; a mesh without triangles gives zeros and true.
    bool compute(uint32_t computeFlags) override;

private:
    const Geometry::CTriangulation* m_mesh = nullptr;
    SEdgeLengthStatistics m_output;
};

#pragma once
// Connected components of a mesh's triangles: two triangles belong to one component when
// they share an edge (in either direction). A vertex alone does not connect.
#include <cstdint>
#include <vector>

#include "basepool/cbarray.h"
#include "vn3dbase/ctriangulation.h"
#include "vn3dbase/vnalgorithm.h"

class VnMpConnectedComponents : public VnAlgorithm {
public:
    void SetInput(const Geometry::CTriangulation& mesh) { m_mesh = &mesh; }
    // One label per triangle slot: components are numbered 0, 1, ... in the order of their
    // lowest triangle slot; deleted slots hold c_IndexInvalid. Empty before Compute.
    const CbArray<unsigned int>& GetOutput() const { return m_labels; }
    uint32_t GetComponentCount() const { return m_count; }

protected:
    // False without input; a corner that is not a live vertex also fails.
    bool compute(uint32_t computeFlags) override;

private:
    const Geometry::CTriangulation* m_mesh = nullptr;
    CbArray<unsigned int> m_labels;
    uint32_t m_count = 0;
};

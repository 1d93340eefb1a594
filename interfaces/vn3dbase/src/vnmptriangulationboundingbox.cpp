#include "vn3dbase/vnmptriangulationboundingbox.h"

#include <algorithm>
#include <cmath>

SBoundingBox3f VnMpTriangulationBoundingBox::Compute(const Geometry::CTriangulation& mesh) {
    SBoundingBox3f box;
    const CbVector3f* p = mesh.GetPositions();
    for (Geometry::CVertexRef v : mesh.Vertices()) {
        const CbVector3f& q = p[v];
        if (!std::isfinite(q.x) || !std::isfinite(q.y) || !std::isfinite(q.z)) continue;
        if (box.empty) {
            box.min = box.max = q;
            box.empty = false;
            continue;
        }
        for (int k = 0; k < 3; ++k) {
            box.min[k] = std::min(box.min[k], q[k]);
            box.max[k] = std::max(box.max[k], q[k]);
        }
    }
    return box;
}

#pragma once
// Axis-aligned bounding box of the live vertices (non-finite coordinates are skipped).
#include "basepool/cbvector.h"
#include "vn3dbase/ctriangulation.h"

struct SBoundingBox3f {
    CbVector3f min, max;
    bool empty = true;
    CbVector3f Extent() const { return empty ? CbVector3f() : max - min; }
};

class VnMpTriangulationBoundingBox {
public:
    static SBoundingBox3f Compute(const Geometry::CTriangulation& mesh);
};

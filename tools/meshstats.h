#pragma once
// Summary figures of a mesh for `vnio info`.
#include <cstdint>

#include "vn3dbase/ctriangulation.h"

namespace VnTool {

struct SMeshStats {
    uint32_t components = 0;     // triangles joined through shared vertices
    uint32_t boundaryLoops = 0;  // closed chains of edges used by one triangle only
};

SMeshStats ComputeStats(const Geometry::CTriangulation& mesh);

} // namespace VnTool

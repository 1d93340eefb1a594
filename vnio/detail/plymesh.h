#pragma once
// The stream-level PLY mesh reader behind VnPLY::Read, for callers that already hold the
// bytes (the fuzz target). It throws the codec's standard exceptions unwrapped.
#include "basepool/cbstreambinary.h"
#include "vn3dbase/ctriangulation.h"

namespace VnPlyCodec {

Geometry::CTriangulation ReadMesh(CbStreamRead& stream);

} // namespace VnPlyCodec

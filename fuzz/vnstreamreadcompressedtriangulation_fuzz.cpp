// Feeds arbitrary bytes to the compressed-stream reader: a mesh record, then a polyline and
// a polyline list. Every failure must be the reader's CbExceptionStream; anything else
// escaping (or a crash, hang or out-of-bounds access) is a bug.
#include <cstdint>
#include <cstdlib>

#include "vnio/vnstreamreadcompressedtriangulation.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CbStreamReadBinaryMemory source(data, size);
    VnStreamReadCompressedTriangulation reader(source);
    Geometry::CTriangulation mesh;
    try {
        reader >> mesh;
    } catch (const CbExceptionStream&) {
        if (mesh.GetVertexCount() != 0 || mesh.GetTriangleCount() != 0) std::abort(); // a failed read resets the mesh
        return 0;
    }
    for (Geometry::CTriangleRef t : mesh.Triangles())
        for (uint32_t c : mesh.GetCorners(t))
            if (!mesh.IsVertexLive(c)) std::abort();
    VnPolylineTriangulation line;
    VnPolylineTriangulationList list;
    try {
        reader >> line >> list;
    } catch (const CbExceptionStream&) {
    }
    return 0;
}

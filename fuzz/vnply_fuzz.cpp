// The PLY mesh reader on arbitrary bytes, over a memory stream. A file that reads must
// write and read back to the same mesh; anything but a standard exception is a finding.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

#include "../vnio/detail/plymesh.h"
#include "basepool/cbexception.h"
#include "vnio/vnply.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CbStreamReadBinaryMemory in(data, size);
    Geometry::CTriangulation mesh;
    try {
        mesh = VnPlyCodec::ReadMesh(in);
    } catch (const std::exception&) {
        return 0;
    }
    CbStreamWriteBinaryMemory out;
    VnPLY::Write(out, mesh);
    const auto& bytes = out.GetData();
    CbStreamReadBinaryMemory again(bytes.data(), bytes.size());
    Geometry::CTriangulation back = VnPlyCodec::ReadMesh(again);
    if (back.GetVertexCount() != mesh.GetVertexCount() || back.GetTriangleCount() != mesh.GetTriangleCount())
        std::abort();
    for (uint32_t t = 0; t < mesh.GetTriangleCount(); ++t)
        if (back.GetCorners(Geometry::CTriangleRef(t)) != mesh.GetCorners(Geometry::CTriangleRef(t))) std::abort();
    return 0;
}

// Binary STL reader on arbitrary bytes; with a word attribute and without.
#include <cstdint>
#include <cstdlib>

#include "basepool/cbstreambinary.h"
#include "vnio/vnstl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Geometry::CTriangulation mesh;
    auto word = Geometry::GetOrCreateAttribute<Geometry::CTriangleRef, unsigned short>(mesh, "word");
    CbStreamReadBinaryMemory in(data, size);
    VnSTL::SHeader header;
    bool ok = VnSTL::Serialize(in, mesh, size % 2 ? VnSTL::eFlagVertexNormals : VnSTL::eFlagNone, &header,
                               size % 3 ? word : nullptr);
    if (ok && mesh.GetTriangleCount() * 50ull + 84 > size) std::abort(); // more triangles than the bytes hold
    if (!ok && mesh.GetTriangleCount() != 0) std::abort();
    return 0;
}

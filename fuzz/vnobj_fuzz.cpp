// The OBJ reader and the MTL reader over arbitrary bytes, then a write-then-read round trip of
// whatever was read: the documented outcomes are a result (true or false) and, from ReadMTL, a
// stream error; a crash, a hang or a changed vertex or triangle count is a finding.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "basepool/cbexception.h"
#include "basepool/cbstreamascii.h"
#include "vnio/vnobj.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    {
        VnStreamReadASCIIMemory mtl(text);
        try {
            VnOBJ::ReadMTL(mtl);
        } catch (const CbExceptionStream&) {
        }
    }
    Geometry::CTriangulation mesh;
    CStringW library;
    VnOBJ::SMaterialInfo info;
    VnStreamReadASCIIMemory in(text);
    if (!VnOBJ::Serialize(in, mesh, library, info.materialNames)) return 0;

    CbStreamWriteASCIIMemory obj, mtlOut;
    VnOBJ::Serialize(obj, mesh, &mtlOut, "fuzz.mtl", info, "fuzz");
    Geometry::CTriangulation back;
    VnStreamReadASCIIMemory again(obj.GetText());
    if (!VnOBJ::Serialize(again, back)) std::abort();
    if (back.GetVertexCount() != mesh.GetVertexCount() || back.GetTriangleCount() != mesh.GetTriangleCount()) std::abort();
    return 0;
}

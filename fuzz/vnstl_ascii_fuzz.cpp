// ASCII STL reader on arbitrary text, joining vertices when the input asks for it.
#include <cstdint>
#include <string_view>

#include "vnio/vnstl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Geometry::CTriangulation mesh;
    VnStreamReadASCIIMemory in(std::string_view(reinterpret_cast<const char*>(data), size));
    CStringA name;
    VnSTL::EFlagsRead flags = size % 2 ? VnSTL::eFlagCombine | VnSTL::eFlagVertexNormals : VnSTL::eFlagNone;
    VnSTL::Serialize(in, mesh, flags, &name);
    return 0;
}

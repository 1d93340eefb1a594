#pragma once
// The mesh model's own serialisation, used as a payload by the compressed stream:
//   u32 version (1), u32 V, u32 T, V positions (3 floats), T corner triples (3 u32, dense
//   indices), then for the vertex and the triangle container: u32 attribute count and per
//   attribute: name (string), u32 element size, u8 serialize flag, configuration block
//   (u32 length + bytes), u32 mode, V (or T) elements of raw data.
// Deleted slots are not written: the reader gets dense indices. The reader checks every
// count against the bytes left and every corner against V, and fails with CbExceptionStream.
#include <memory>

#include "basepool/cbstreambinary.h"
#include "vn3dbase/ctriangulation.h"

namespace Geometry {

class CTriangulation_Serializer {
public:
    static constexpr uint32_t c_Version = 1;
    static void Serialize(CbStreamWriteBinary& stream, const CTriangulation& mesh);
    static std::unique_ptr<CTriangulation> Serialize(CbStreamReadBinary& stream);
};

} // namespace Geometry

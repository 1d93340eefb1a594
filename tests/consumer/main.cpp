// Built against the installed package: writes a triangle as binary STL to memory and
// reads it back.
#include <cstdio>

#include "basepool/cbstreambinary.h"
#include "vnio/vnstl.h"

int main() {
    Geometry::CTriangulation mesh;
    auto a = mesh.AddVertex(CbVector3f(0, 0, 0));
    auto b = mesh.AddVertex(CbVector3f(1, 0, 0));
    auto c = mesh.AddVertex(CbVector3f(0, 1, 0));
    mesh.AddTriangle(a, b, c);
    CbStreamWriteBinaryMemory out;
    if (!VnSTL::Serialize(out, mesh)) return 1;
    CbStreamReadBinaryMemory in(out.TakeData());
    Geometry::CTriangulation back;
    if (!VnSTL::Serialize(in, back, VnSTL::eFlagCombine, nullptr, nullptr)) return 1;
    std::printf("consumer read %u vertices, %u triangles\n", back.GetVertexCount(), back.GetTriangleCount());
    return back.GetTriangleCount() == 1 && back.GetVertexCount() == 3 ? 0 : 1;
}

#pragma once
// STL, binary and ASCII, into and out of a Geometry::CTriangulation.
//
// STL stores a triangle soup: the readers create three vertices per facet and can join
// coincident vertices afterwards and compute vertex normals (PostprocessTriangleSoup).
// Facet normals travel in the triangle attribute "normal"; the 16-bit attribute word of
// binary STL travels in a caller-supplied triangle attribute of unsigned short.
//
// Readers return false on a stream failure (missing file, truncated data, bad keyword)
// and pass every other exception on. Caller errors throw CbExceptionPreconditionViolation
// before anything is read.
#include <array>
#include <cstdint>

#include "basepool/cbstreamascii.h"
#include "basepool/cbstreambinary.h"
#include "basepool/cbstring.h"
#include "vn3dbase/cattributehandle.h"
#include "vn3dbase/ctriangulation.h"
#include "vnbase/vnstreamreadascii.h"

namespace VnSTL {

enum EFlagsRead : uint32_t {
    eFlagNone = 0,
    eFlagCombine = 1,           // join coincident vertices of the soup
    eFlagCombineOption2 = 2,    // with eFlagCombine: also drop triangles the join made degenerate
    eFlagCombineTolerance = 4,  // with eFlagCombine: join vertices within 0.01 of each other
    eFlagVertexNormals = 64,    // compute the vertex attribute "normal"
};
inline EFlagsRead operator|(EFlagsRead a, EFlagsRead b) { return EFlagsRead(uint32_t(a) | uint32_t(b)); }

using SHeader = std::array<unsigned char, 80>;
using CAttributeWord = Geometry::CAttributeHandle<Geometry::CTriangleRef, unsigned short>;
using CAttributeWordConst = Geometry::CAttributeHandle<Geometry::CTriangleRef, const unsigned short>;

// The header text written when the caller gives none, and the default solid name.
inline constexpr const char* c_DefaultHeader = "KORAL/exMod generated STL file";

// True when the file's size matches its record count (84 + 50 * count, in 32-bit arithmetic).
bool IsBinary(const CStringW& path);

// Loads a binary or ASCII STL file. A flag other than eFlagVertexNormals together with a
// non-null attribute throws CbExceptionPreconditionViolation (joining vertices would break
// the per-triangle words). On failure the mesh is emptied. The header and attribute words
// are the file's only after a successful binary read; otherwise the header is zeroed and
// every attribute word is 0.
bool Load(const CStringW& path, Geometry::CTriangulation& mesh, EFlagsRead flags = eFlagNone, SHeader* header = nullptr,
          CAttributeWord attribute = nullptr, CStringA* solidName = nullptr, bool* isBinary = nullptr);

bool Serialize(CbStreamReadBinary& stream, Geometry::CTriangulation& mesh, EFlagsRead flags, SHeader* header,
               CAttributeWord attribute);
bool Serialize(VnStreamReadASCIIT<CStringA>& stream, Geometry::CTriangulation& mesh, EFlagsRead flags,
               CStringA* solidName = nullptr);
bool Serialize(CbStreamWriteBinary& stream, const Geometry::CTriangulation& mesh, const SHeader* header = nullptr,
               CAttributeWordConst attribute = nullptr);
bool Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh, const CStringA* solidName = nullptr);
// Writes a binary STL file; throws CbException when the writer fails, and passes on the
// exceptions of opening the file.
void Serialize(const wchar_t* path, const Geometry::CTriangulation& mesh, const SHeader* header = nullptr,
               CAttributeWordConst attribute = nullptr);

// Joins vertices and computes normals as the flags ask; always true.
bool PostprocessTriangleSoup(Geometry::CTriangulation& mesh, EFlagsRead flags);

// The header's leading printable ASCII characters (32..126), at most 80.
CStringA ExtractHeaderString(const SHeader& header);

} // namespace VnSTL

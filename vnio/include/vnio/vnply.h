#pragma once
// VnPLY: PLY triangle meshes with optional per-vertex normals and colours.
//
// Layout read and written: element "vertex" with float "x", "y", "z", optionally float
// "nx", "ny", "nz" and uchar "red", "green", "blue", "alpha"; element "face" with the list
// "vertex_indices" (uchar count, uint indices, three per face). The reader also takes the
// list "vertex_index", properties in any order and of any scalar type (converted), and
// ASCII, binary little-endian and binary big-endian files.
//
// Every failure throws: CbException for a missing file, an unwritable file, a bad output
// format or a mesh with deleted slots; CbExceptionStd wrapping the standard exception that
// describes a malformed file (a face that is not a triangle, an index outside the vertex
// range, a truncated body, an unknown format, ...). Source "vnlibraries/vnio/vnply",
// functions "VnPLY::Read" and "VnPLY::Write".
#include <string>

#include "basepool/cbstreambinary.h"
#include "vn3dbase/ctriangulation.h"

namespace VnPLY {

enum EOutputFormat : int {
    eOutputFormatASCII = 0,
    eOutputFormatBinary = 1, // little-endian
};

// Reads a PLY file. Environment references in the name are expanded first. A file without
// positions or without faces gives an empty mesh. Vertex normals of the file are kept and
// triangle normals computed; without them both are computed. Colours are taken only when
// declared as uchar; their buffer is read with a stride of four bytes per vertex, so a file
// with red, green and blue but no alpha gets shifted colours (bytes past the end read as
// zero) and alpha 255.
Geometry::CTriangulation Read(const wchar_t* fileName);
Geometry::CTriangulation Read(const std::wstring& fileName);

// Writes binary PLY into a stream. Requires IsIndicesAccurate() (no deleted slots).
void Write(CbStreamWriteBinary& stream, const Geometry::CTriangulation& mesh);
// Writes a PLY file in the given format. A null or empty name writes nothing. The vertex
// attributes "normal" (CbVector3f) and "color" (VnColorRGBA) are written when present; an
// attribute of that name with another type throws CbExceptionPreconditionViolation.
void Write(const wchar_t* fileName, const Geometry::CTriangulation& mesh, EOutputFormat format);
void Write(const std::wstring& fileName, const Geometry::CTriangulation& mesh, EOutputFormat format);

} // namespace VnPLY

#pragma once
// OFF files: a keyword line, a count line, one line per vertex, one line per face. Only
// triangular faces are accepted.
//
// File layout as written (each line ends in a single LF; numbers in the "C" locale
// whatever the process locale is, so a file written under a decimal-comma locale reads
// back anywhere):
//
//   OFF
//   V T 3T            live vertex and triangle counts, unsigned; the third number stands
//                     where OFF keeps an edge count and is deliberately 3 * T (wrapping at
//                     2^32); readers ignore it
//   x y z             one line per live vertex, "%f" (six decimals), increasing index order
//   3 a b c           one line per live triangle, corners 0, 1, 2; a corner is the rank of
//                     its vertex among the live vertices, so a mesh with deleted vertex
//                     slots still writes indices 0..V-1
#include "vn3dbase/ctriangulation.h"

class VnOFF {
public:
    // Replaces mesh by the content of the OFF file at path.
    //
    // The first line must be exactly "OFF" (a trailing CR, "COFF", "off", a BOM or counts
    // on the same line are all rejected). The numbers after it are read as a stream of
    // tokens: whitespace, blank lines and '#' comments (to the end of the line) are
    // skipped, so line breaks inside the data are free. Anything after the last face is
    // not read. On success the mesh holds the file's vertices and triangles in file order
    // with adjacency and the vertex-triangle relation computed.
    //
    // Throws, after resetting the mesh (the exception itself passes on unchanged):
    //   CbExceptionWrongFileVersion("vnlibraries/vnio/vnoff", 160, "ReadHeader")  bad keyword line
    //   CbExceptionWrongFileVersion(..., 71, "VnOFF::Read")   a face with other than 3 corners
    //   CbExceptionWrongFileVersion(..., 72, "VnOFF::Read")   a face vertex number >= the vertex count
    //   CbExceptionStream (from the stream)  missing file, end of data, a malformed number,
    //       a sign on a count or index, or a count or index above 2^32 - 1
    // A null path throws CbExceptionPreconditionViolation(..., 70, "VnOFF::Read") and leaves
    // the mesh as it was.
    // A count larger than the file can hold never reserves more memory than the file's
    // bytes justify: storage grows as the data arrives.
    static void Read(const wchar_t* path, Geometry::CTriangulation& mesh);

    // Writes mesh to path in the layout above. Stream failures (opening, writing, the final
    // flush) pass to the caller as CbExceptionStream; the file may then be incomplete.
    // Before anything is written, CbExceptionPreconditionViolation("vnlibraries/vnio/vnoff",
    // line, "VnOFF::Write") is thrown for a null path (line 70) or a live triangle whose
    // corner names no live vertex (line 73).
    static void Write(const wchar_t* path, const Geometry::CTriangulation& mesh);
};

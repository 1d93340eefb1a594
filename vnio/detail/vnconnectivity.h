#pragma once
// Connectivity coder of the compressed triangulation stream, independent of the stream
// itself: the encoder turns a mesh into per-component CLERS symbols, hole sizes and handle
// offsets plus the coding order of vertices and triangles; the decoder turns one
// component's symbols and side tables back into triangles over the component's vertices
// in coding order.
//
// The container calls these, frames their output (run-length transform of the split
// symbols, LZMA side blocks, range-coded symbols) and codes the positions in the order
// and with the reference triangles given here.
#include <cstdint>
#include <vector>

#include "vn3dbase/ctriangulation.h"
#include "vnclers.h"

namespace VnConnectivity {

// One connected component as the encoder emits it.
struct SComponent {
    std::vector<uint8_t> symbols;        // codes 0..6, one per triangle
    std::vector<uint32_t> holeSizes;     // start boundary first (2 for a triangle start)
    std::vector<uint32_t> handleOffsets; // one per handle split, in boundary order
    uint32_t handleCount = 0;
    uint32_t firstVertex = 0;   // position of the component's first vertex in the vertex order
    uint32_t vertexCount = 0;   // vertices the component codes
    uint32_t firstTriangle = 0; // position of its first triangle in the triangle order
};

// Everything the encoder derives from a mesh. Element indices are slot indices.
struct SEncodedMesh {
    std::vector<SComponent> components;
    std::vector<uint32_t> vertexOrder;    // k-th coded vertex
    std::vector<uint32_t> vertexTriangle; // triangle that predicts the k-th coded vertex
    std::vector<uint32_t> triangleOrder;  // k-th visited triangle
    std::vector<uint32_t> tipOrder;       // tip vertex of the k-th visited triangle
    std::vector<uint8_t> gateCorner;      // corner of the k-th visited triangle holding its gate vertex
};

// Codes the connectivity of `mesh`. Returns false, leaving `out` unspecified, for a mesh
// that the coder could not reproduce exactly (an edge used twice in one direction, a
// vertex on two boundary loops, a vertex no triangle uses, a traversal that went astray);
// nothing has been written at that point, so the caller can store the mesh uncompressed.
bool EncodeMesh(const Geometry::CTriangulation& mesh, SEncodedMesh& out);

// Rewrites hole and handle splits (5, 6) as plain splits and returns their run lengths:
// each value counts the splits of the other kinds since the previous split of this kind.
void EncodeSplitRuns(std::vector<uint8_t>& symbols, std::vector<uint32_t>& holeRuns,
                     std::vector<uint32_t>& handleRuns);

// One component as the decoder receives it.
struct SComponentInput {
    std::vector<uint8_t> symbols;        // codes 0..4 as read
    std::vector<uint32_t> holeRuns;      // hole count - 1 values
    std::vector<uint32_t> holeSizes;     // hole count values
    std::vector<uint32_t> handleRuns;    // handle count values
    std::vector<uint32_t> handleOffsets; // handle count values
};

// The decoded component: triangles over the component's vertices 0..K-1 in coding order.
struct SDecodedComponent {
    uint32_t vertexCount = 0;               // K
    std::vector<Geometry::STriangleCorners> triangles;
    std::vector<uint32_t> vertexTriangle;   // per vertex, the triangle that predicts it
};

// Restores the hole and handle splits of `symbols` in place from the run arrays; returns
// the number of vertices the component codes (sum of hole sizes plus C symbols). Throws
// CbExceptionStream (from `function`) for codes above 4.
uint32_t DecodeSplitRuns(std::vector<uint8_t>& symbols, const std::vector<uint32_t>& holeRuns,
                         const std::vector<uint32_t>& holeSizes, const std::vector<uint32_t>& handleRuns,
                         const char* sourceFile, const char* function);

// Decodes one component whose symbols went through DecodeSplitRuns. `maxVertices` bounds
// the vertices the component may claim. Every inconsistency of a corrupt or forged input
// ends as CbExceptionStream(sourceFile, line, function); nothing is read out of bounds.
void DecodeComponent(const std::vector<uint8_t>& symbols, const std::vector<uint32_t>& holeSizes,
                     const std::vector<uint32_t>& handleOffsets, uint32_t maxVertices, SDecodedComponent& out,
                     const char* sourceFile, const char* function);

} // namespace VnConnectivity

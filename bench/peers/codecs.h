#pragma once
// Compressed sizes: Draco against the VnIO stream at matched maximum position error, and
// the lossless VnIO stream.
#include <cstdint>
#include <string>
#include <vector>

#include "common.h"

namespace Compare {

// Largest distance between a decoded vertex and the original vertex it stands for.
struct SError {
    double l2 = 0;   // Euclidean
    double linf = 0; // largest single coordinate
    std::string problem; // empty, or why the correspondence is incomplete
};

struct SDracoResult {
    uint64_t bytes = 0;
    double encodeMs = 0, decodeMs = 0;
    uint64_t decodedPoints = 0, decodedFaces = 0;
    SError error;          // through an index attribute carried in a separate, larger stream
    double nearestL2 = 0;  // order-free check: symmetric nearest-neighbour distance of the plain stream
    std::string problem;
};
// qp: position quantisation bits; level: compression level 0..10 (speed = 10 - level).
SDracoResult RunDraco(const SMesh& mesh, int qp, int level, int runs, bool measureError);

struct SVnmResult {
    uint64_t bytes = 0;
    double encodeMs = 0, decodeMs = 0;
    bool coded = false;        // went through the connectivity coder (else stored natively)
    float step = 0;            // grid step the stream records (0: bit exact)
    uint64_t connectivityBytes = 0, positionBytes = 0;
    size_t attributes = 0;     // attribute records the stream carries
    uint64_t attributeBytes = 0;
    uint64_t decodedVertices = 0, decodedTriangles = 0;
    SError error;              // through the writer's coding order
    double nearestL2 = 0;      // order-free check
    bool bitExact = false;     // every decoded position has the original's float bits
    std::string problem;
};
// precision <= 0 writes the lossless stream.
SVnmResult RunVnm(const SMesh& mesh, double precision, int runs, bool timed);

// The stream as VnIO writes a mesh its own PLY reader loaded, with whatever attributes the
// reader leaves marked for serialisation: bytes and the attribute records' share.
struct SVnmDefault {
    uint64_t bytes = 0, attributeBytes = 0;
    std::string attributes; // "vertex normal, triangle normal"
    bool coded = false;     // false: the native record, which keeps attributes inside it
    std::string problem;
};
SVnmDefault RunVnmAsLoaded(const std::string& plyPath, double precision);

// Where the VnIO stream's position bits go, read off a writer subclass after the geometry
// is coded: how each vertex was predicted and the order-0 entropy of the residual codes
// (what an ideal static coder of those residuals would need, per vertex, three axes).
struct SVnmDiagnostic {
    uint64_t parallelogram = 0, midpoint = 0, oneCorner = 0, none = 0;
    double entropyBitsPerVertex = 0;
    // The same with every parallelogram whose corners are known when the vertex is coded,
    // averaged (the reader has a component's whole connectivity before its positions).
    double multiEntropyBitsPerVertex = 0;
    double meanBitLength = 0; // of |residual|, per axis value
    uint64_t positionBytes = 0;
    std::string problem;
};
SVnmDiagnostic DiagnoseVnm(const SMesh& mesh, double precision);

// Symmetric nearest-neighbour distance between two point sets (a uniform grid of cell
// `cell`; the search widens ring by ring until the nearest point is certain).
double SymmetricNearest(const std::vector<float>& a, const std::vector<float>& b, double cell);

// Mean edge length, a scale for the nearest-neighbour grid.
double MeanEdgeLength(const SMesh& mesh);

} // namespace Compare

#pragma once
// Constants and helpers that the writer and the reader of the compressed triangulation
// stream must agree on. Anything both sides compute lives here once.
#include <cmath>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "basepool/cbexception.h"
#include "vn3dbase/ctriangulation.h"
#include "vnclers.h"

namespace VnCompressedDetail {

// CLERS symbol codes and boundary states: short names for the connectivity coder's own
// definitions, so the container and the coder cannot drift apart.
using EClers = VnClers::ESymbol;
constexpr EClers eC = VnClers::eSymbolC, eL = VnClers::eSymbolL, eE = VnClers::eSymbolE, eR = VnClers::eSymbolR,
                 eS = VnClers::eSymbolS, eSHole = VnClers::eSymbolSHole, eSHandle = VnClers::eSymbolSHandle;
constexpr uint32_t kWrittenAlphabet = VnClers::c_WrittenAlphabet;

// Stream format versions: the writer's, the Version2 writer's, and the newest read.
constexpr uint32_t kVersionWriter = 3;
constexpr uint32_t kVersionWriter2 = 2;
constexpr uint32_t kVersionNewest = 3;

// Mode byte of the position header.
constexpr uint8_t kModeBitExact = 0;
constexpr uint8_t kModeUniform = 1;

// Parameters of the per-axis position coders.
constexpr bool kPositionCoderRaw = false;
constexpr unsigned kPositionCoderAdaptation = 1000;
constexpr unsigned long kLZMASetting = 2;

// Source names of the exceptions.
constexpr const char* kSourceWriter = "vnlibraries/vnio/vnstreamwritecompressedtriangulation";
constexpr const char* kSourceReader = "vnlibraries/vnio/vnstreamreadcompressedtriangulation";

// Prediction of the value of vertex v in triangle t, shared by positions and vertex
// attributes: with k the corner of v, a = corner k+2 and b = corner k+1; both known gives the
// parallelogram across the edge b -> a when the opposite vertex is known, else the
// midpoint; one known gives its value; none gives zero; a NaN anywhere gives zero. Values
// and flags are indexed by vertex slot. The mesh needs adjacency.
template <class T> T PredictVertexValue(const Geometry::CTriangulation& mesh, const T* values, const uint8_t* known,
                                        uint32_t v, uint32_t t) {
    const Geometry::STriangleCorners& c = mesh.GetCorners(Geometry::CTriangleRef(t));
    const int k = c[0] == v ? 0 : (c[1] == v ? 1 : 2);
    const uint32_t a = c[(k + 2) % 3], b = c[(k + 1) % 3];
    T p{};
    if (known[a] && known[b]) {
        T sum = values[a] + values[b];
        p = sum * 0.5f;
        const uint32_t across = mesh.GetAdjacentTriangle(Geometry::CTriangleRef(t), (k + 1) % 3);
        if (across != Geometry::c_IndexInvalid) {
            const Geometry::STriangleCorners& n = mesh.GetCorners(Geometry::CTriangleRef(across));
            const int j = n[0] == b ? 0 : (n[1] == b ? 1 : 2);
            const uint32_t o = n[(j + 1) % 3];
            if (known[o]) p = sum - values[o];
        }
    } else if (known[a]) {
        p = values[a];
    } else if (known[b]) {
        p = values[b];
    }
    if constexpr (std::is_same_v<T, float>) {
        if (std::isnan(p)) p = 0.f;
    } else {
        constexpr int n = sizeof(T) / sizeof(float);
        for (int i = 0; i < n; ++i)
            if (std::isnan(p[i])) return T{};
    }
    return p;
}

// A topology-only copy of `mesh` (same slots, no positions or attributes) with adjacency.
std::unique_ptr<Geometry::CTriangulation> TopologyWithAdjacency(const Geometry::CTriangulation& mesh);

} // namespace VnCompressedDetail

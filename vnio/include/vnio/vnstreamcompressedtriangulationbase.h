#pragma once
// State and rules shared by the writer and the reader of the compressed triangulation
// stream (.vnm): the compression method, the boundary entry of the connectivity coders, the
// per-component side tables with their run-length transform, and the prediction of vertex
// positions.
#include <cstdint>
#include <string>
#include <vector>

#include "basepool/cbmap.h"

#include "basepool/cbvector.h"
#include "vn3dbase/ctriangulation.h"

class VnStreamCompressedTriangulationBase {
public:
    enum ECompressionMethod : int {
        eLossless = 0,  // positions bit exact
        eQuantized = 1, // positions on a uniform grid derived from the precision
    };

    // One entry of the active boundary of the connectivity coders.
    struct SBoundaryHalfEdge {
        uint32_t vertex = 0;                // start vertex of the boundary edge
        uint32_t triangle = 0xFFFFFFFFu;    // triangle across the edge, 0xFFFFFFFF for none
        uint32_t state = 0;                 // 0 plain, 1 made by C, 2 hole S, 3 handle S
        int32_t offset = 0;                 // handle offset (state 3 only)
    };

    VnStreamCompressedTriangulationBase() = default;
    virtual ~VnStreamCompressedTriangulationBase();

    // Old attribute identifier -> name, as versions 1 and 2 refer to attributes.
    static const CbMap<uint32_t, std::string> s_MapAttributeIdToNameVertex;
    static const CbMap<uint32_t, std::string> s_MapAttributeIdToNameTriangle;
    VnStreamCompressedTriangulationBase(const VnStreamCompressedTriangulationBase&) = delete;
    VnStreamCompressedTriangulationBase& operator=(const VnStreamCompressedTriangulationBase&) = delete;

protected:
    // Identifies the two boundary entries met by zipping; the writer does nothing.
    virtual void zipAction(SBoundaryHalfEdge& survivor, SBoundaryHalfEdge& removed, const Geometry::CTriangulation& mesh);

    // The prediction of vertex v's position in triangle t (which has v as a corner) from the
    // positions already known. `positions` and `known` are indexed by vertex slot; the mesh
    // needs adjacency. Allocates nothing.
    static CbVector3f predictPosition(const Geometry::CTriangulation& mesh, const CbVector3f* positions, const uint8_t* known,
                                      Geometry::CVertexRef v, Geometry::CTriangleRef t);

    // Empties the per-component side tables below.
    void clearComponentState();

    // Per-component connectivity, in the shape the frame stores it. The symbols hold codes
    // 0..6 in memory; hole sizes are in visiting order, the start boundary first.
    std::vector<uint8_t> m_symbols;
    std::vector<uint32_t> m_holeSizes;
    std::vector<uint32_t> m_holeRuns;
    std::vector<uint32_t> m_handleOffsets;
    std::vector<uint32_t> m_handleRuns;
    uint32_t m_handleCount = 0;
};

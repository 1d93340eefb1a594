#include "vnio/vnstreamcompressedtriangulationbase.h"

#include "detail/vncompressedshared.h"

VnStreamCompressedTriangulationBase::~VnStreamCompressedTriangulationBase() = default;

void VnStreamCompressedTriangulationBase::zipAction(SBoundaryHalfEdge&, SBoundaryHalfEdge&, const Geometry::CTriangulation&) {}

CbVector3f VnStreamCompressedTriangulationBase::predictPosition(const Geometry::CTriangulation& mesh, const CbVector3f* positions,
                                                                const uint8_t* known, Geometry::CVertexRef v, Geometry::CTriangleRef t) {
    return VnCompressedDetail::PredictVertexValue<CbVector3f>(mesh, positions, known, v, t);
}

void VnStreamCompressedTriangulationBase::clearComponentState() {
    m_symbols.clear();
    m_holeSizes.clear();
    m_holeRuns.clear();
    m_handleOffsets.clear();
    m_handleRuns.clear();
    m_handleCount = 0;
}

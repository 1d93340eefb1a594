#include "vnio/vnstreamcompressedtriangulationbase.h"

#include <initializer_list>

#include "detail/vncompressedshared.h"

namespace {
using NameMap = CbMap<uint32_t, std::string>;
NameMap makeNames(std::initializer_list<const char*> names) {
    NameMap map;
    uint32_t id = 0;
    for (const char* name : names) map.SetAt(id++, name);
    return map;
}
} // namespace

const NameMap VnStreamCompressedTriangulationBase::s_MapAttributeIdToNameVertex =
    makeNames({"component", "parameters", "featureLabels", "normal", "attributes", "deformEnergy", "region", "color",
               "positionInterpolated", "normalInterpolated", "normalMapConfidence", "ambientOcclusion"});
const NameMap VnStreamCompressedTriangulationBase::s_MapAttributeIdToNameTriangle =
    makeNames({"component", "triangleType", "normalSet", "region", "normal", "parameters", "triangleQuality", "attributes"});

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

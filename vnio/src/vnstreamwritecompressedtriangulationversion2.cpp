#include <initializer_list>
#include <string>
#include <utility>

#include "basepool/cbmap.h"

#include "detail/vncompressedshared.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

namespace {
using IdMap = CbMap<std::string, uint32_t>;
IdMap makeMap(std::initializer_list<std::pair<const char*, uint32_t>> pairs) {
    IdMap map;
    for (const auto& [name, id] : pairs) map.SetAt(name, id);
    return map;
}

uint32_t lookUp(const IdMap& map, const char* name, uint32_t line) {
    uint32_t id = 0;
    if (!map.Lookup(name, id))
        throw CbExceptionPreconditionViolation(VnCompressedDetail::kSourceWriter, line,
                                               "VnStreamWriteCompressedTriangulationVersion2::writeAttributeId");
    return id;
}
} // namespace

// The only names format version 2 can carry, with their identifiers.
const IdMap VnStreamWriteCompressedTriangulationVersion2::s_MapAttributeIdToEnumVertex =
    makeMap({{"component", 15}, {"parameters", 24}, {"featureLabels", 21}, {"normal", 0}, {"attributes", 20}, {"deformEnergy", 34},
             {"region", 38}, {"color", 2}, {"positionInterpolated", 35}, {"normalInterpolated", 36}, {"normalMapConfidence", 44}});
const IdMap VnStreamWriteCompressedTriangulationVersion2::s_MapAttributeIdToEnumTriangle =
    makeMap({{"component", 3}, {"triangleType", 0}, {"normalSet", 12}, {"region", 13}, {"normal", 8}, {"attributes", 6}});

VnStreamWriteCompressedTriangulationVersion2::VnStreamWriteCompressedTriangulationVersion2(::CbStreamWriteBinary& stream,
                                                                                           ECompressionMethod method, float precision)
    : VnStreamWriteCompressedTriangulation(stream, method, precision, VnCompressedDetail::kVersionWriter2) {}

VnStreamWriteCompressedTriangulationVersion2::VnStreamWriteCompressedTriangulationVersion2(const CStringW& fileName,
                                                                                           ECompressionMethod method, float precision)
    : VnStreamWriteCompressedTriangulation(fileName, method, precision, VnCompressedDetail::kVersionWriter2) {}

void VnStreamWriteCompressedTriangulationVersion2::compressAttributes() { writeAttributeSection(); }

bool VnStreamWriteCompressedTriangulationVersion2::carriesAttribute(int container, const std::string& name) const {
    uint32_t id = 0;
    return (container == Geometry::eContainerVertex ? s_MapAttributeIdToEnumVertex : s_MapAttributeIdToEnumTriangle).Lookup(name, id);
}

void VnStreamWriteCompressedTriangulationVersion2::writeAttributeIdVertex(const char* name) {
    target() << lookUp(s_MapAttributeIdToEnumVertex, name, __LINE__);
}

void VnStreamWriteCompressedTriangulationVersion2::writeAttributeIdTriangle(const char* name) {
    target() << lookUp(s_MapAttributeIdToEnumTriangle, name, __LINE__);
}

void VnStreamWriteCompressedTriangulationVersion2::writeAttributeConfiguration(unsigned int, const unsigned char*, bool, uint32_t) {}

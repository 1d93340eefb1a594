#include <cstring>

#include "detail/vncompressedshared.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

namespace {
struct SAttributeId {
    const char* name;
    uint32_t id;
};
// The only names format version 2 can carry, with their identifiers.
constexpr SAttributeId kVertexIds[] = {{"component", 15},  {"parameters", 24},         {"featureLabels", 21},
                                       {"normal", 0},      {"attributes", 20},         {"deformEnergy", 34},
                                       {"region", 38},     {"color", 2},               {"positionInterpolated", 35},
                                       {"normalInterpolated", 36}, {"normalMapConfidence", 44}};
constexpr SAttributeId kTriangleIds[] = {{"component", 3}, {"triangleType", 0}, {"normalSet", 12},
                                         {"region", 13},   {"normal", 8},       {"attributes", 6}};

template <size_t N> uint32_t lookUp(const SAttributeId (&table)[N], const char* name, uint32_t line) {
    for (const SAttributeId& e : table)
        if (std::strcmp(e.name, name) == 0) return e.id;
    throw CbExceptionPreconditionViolation(VnCompressedDetail::kSourceWriter, line,
                                           "VnStreamWriteCompressedTriangulationVersion2::writeAttributeId");
}
} // namespace

VnStreamWriteCompressedTriangulationVersion2::VnStreamWriteCompressedTriangulationVersion2(::CbStreamWriteBinary& stream,
                                                                                           ECompressionMethod method, float precision)
    : VnStreamWriteCompressedTriangulation(stream, method, precision, VnCompressedDetail::kVersionWriter2) {}

VnStreamWriteCompressedTriangulationVersion2::VnStreamWriteCompressedTriangulationVersion2(const CStringW& fileName,
                                                                                           ECompressionMethod method, float precision)
    : VnStreamWriteCompressedTriangulation(fileName, method, precision, VnCompressedDetail::kVersionWriter2) {}

void VnStreamWriteCompressedTriangulationVersion2::compressAttributes() { writeAttributeSection(); }

bool VnStreamWriteCompressedTriangulationVersion2::carriesAttribute(int container, const std::string& name) const {
    if (container == Geometry::eContainerVertex) {
        for (const SAttributeId& e : kVertexIds)
            if (name == e.name) return true;
    } else {
        for (const SAttributeId& e : kTriangleIds)
            if (name == e.name) return true;
    }
    return false;
}

void VnStreamWriteCompressedTriangulationVersion2::writeAttributeIdVertex(const char* name) {
    target() << lookUp(kVertexIds, name, __LINE__);
}

void VnStreamWriteCompressedTriangulationVersion2::writeAttributeIdTriangle(const char* name) {
    target() << lookUp(kTriangleIds, name, __LINE__);
}

void VnStreamWriteCompressedTriangulationVersion2::writeAttributeConfiguration(unsigned int, const unsigned char*, bool, uint32_t) {}

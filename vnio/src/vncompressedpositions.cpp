// Position coding of the compressed triangulation stream: the position header, the choice
// between the uniform grid and the bit-exact mode, and the coding of each vertex against
// the shared prediction.
#include <algorithm>
#include <bit>
#include <cmath>

#include "detail/vncompressedshared.h"
#include "detail/vnpositioncoders.h"
#include "vn3dbase/vnmptriangulationboundingbox.h"
#include "vn3dbase/vnmptriangulationtoedgelengthstatistics.h"
#include "vnbase/vnquantization.h"

using namespace VnCompressedDetail;

namespace {
constexpr const char* kFnWriterInit = "VnStreamWriteCompressedTriangulation::initializeFPQuantization";
constexpr const char* kFnWriterEncode = "VnStreamWriteCompressedTriangulation::encodePosition";
constexpr const char* kFnReaderInit = "VnStreamReadCompressedTriangulation::initializeFPQuantization";
constexpr const char* kFnReaderSet = "VnStreamReadCompressedTriangulation::setVertexCoordinates";

constexpr float kScaleMin = 4.656613e-10f; // 2^-31
constexpr float kScaleMax = 16777216.f;    // 2^24
constexpr float kCodeLimit = 2147483648.f; // 2^31
constexpr double kExactCodeLimit = 9007199254740992.0; // 2^53

bool allFinite(const Geometry::CTriangulation& mesh) {
    const CbVector3f* p = mesh.GetPositions();
    for (Geometry::CVertexRef v : mesh.Vertices())
        if (!std::isfinite(p[v].x) || !std::isfinite(p[v].y) || !std::isfinite(p[v].z)) return false;
    return true;
}

// Codes per unit length for a characteristic length s: 8 / P with P the smallest power of
// two not below s, read off the float bits of s.
float scaleForLength(float s) {
    const uint32_t bits = std::bit_cast<uint32_t>(s);
    const uint32_t e = ((bits - 1) >> 23) & 0xFFu;
    return std::bit_cast<float>((256u - e) << 23);
}

using Quantizers = std::array<std::unique_ptr<VnFloatingPointQuantization>, 3>;

void makeUniform(Quantizers& q, const SBoundingBox3f& box, float scale) {
    for (int axis = 0; axis < 3; ++axis)
        q[axis] = std::make_unique<VnFloatingPointQuantizationUniform>(box.min[axis], box.max[axis], scale);
}

void makeBitExact(Quantizers& q) {
    for (auto& axis : q) axis = std::make_unique<VnFloatingPointQuantizationBitExact>();
}
} // namespace

// ---- writer ----

void VnStreamWriteCompressedTriangulation::initializeFPQuantization(const Geometry::CTriangulation& mesh) {
    if (m_method != eLossless && m_method != eQuantized) throw CbExceptionStream(kSourceWriter, __LINE__, kFnWriterInit);
    for (auto& q : m_quantizers) q.reset();
    float scale = 0.f;
    SBoundingBox3f box;
    // A precision that is not a positive length, or a coordinate that no grid can hold,
    // leaves the positions bit exact.
    if (m_method == eQuantized && std::isfinite(m_precision) && m_precision > 0.f && allFinite(mesh)) {
        VnMpTriangulationToEdgeLengthStatistics statistics;
        statistics.SetInput(mesh);
        statistics.Compute(1);
        const float length = statistics.GetOutput().mean;
        const float s = length <= 4.f * m_precision ? length : 4.f * m_precision;
        scale = scaleForLength(s);
        if (scale >= kScaleMin && scale <= kScaleMax) {
            box = VnMpTriangulationBoundingBox::Compute(mesh);
            const CbVector3f extent = box.Extent();
            const float largest = std::max(extent.x, std::max(extent.y, extent.z));
            // Trailing zero bits that every code shares widen the step by that power of two.
            // The codes are taken exactly, in double: float rounding of large codes would fake
            // shared zero bits and coarsen the grid far beyond the precision asked for.
            uint64_t g = 0;
            if (double(scale) * double(largest) < kExactCodeLimit) {
                const double d = scale;
                auto code = [&](float f, int axis) { return static_cast<uint64_t>(std::floor((double(f) - double(box.min[axis])) * d + 0.5)); };
                for (int axis = 0; axis < 3; ++axis) g |= code(box.max[axis], axis);
                const CbVector3f* p = mesh.GetPositions();
                for (Geometry::CVertexRef v : mesh.Vertices())
                    for (int axis = 0; axis < 3; ++axis) g |= code(p[v][axis], axis);
            }
            g &= 0u - g;
            if (g == 0 || g >= 0x80000000u) g = 1;
            scale /= static_cast<float>(g);
            if (scale * largest < kCodeLimit) makeUniform(m_quantizers, box, scale);
        }
    }
    if (m_quantizers[0]) {
        target() << kModeUniform << scale << box.min.x << box.min.y << box.min.z << box.max.x << box.max.y << box.max.z;
    } else {
        target() << kModeBitExact;
        makeBitExact(m_quantizers);
    }

    // Both sides predict from reconstructed values only.
    const uint32_t slots = mesh.GetVertexSlotCount();
    m_reconstructed.assign(slots, CbVector3f());
    const CbVector3f* p = mesh.GetPositions();
    for (Geometry::CVertexRef v : mesh.Vertices())
        for (int axis = 0; axis < 3; ++axis) m_reconstructed[v][axis] = m_quantizers[axis]->Unmap(m_quantizers[axis]->Map(p[v][axis]));
    m_vertexCoded.assign(slots, 0);
    m_vertexOrder.RemoveAll();
    m_vertexReferenceTriangles.RemoveAll();
    m_vertexOrder.Reserve(static_cast<int>(mesh.GetVertexCount()));
    m_vertexReferenceTriangles.Reserve(static_cast<int>(mesh.GetVertexCount()));
    m_positionBytes = 0;
}

void VnStreamWriteCompressedTriangulation::beginComponentPositions() {
    m_positionCoders = std::make_unique<SPositionWriters>(target(), m_quantizers);
}

void VnStreamWriteCompressedTriangulation::flushComponentPositions() {
    if (!m_positionCoders) return;
    m_positionCoders->x.Flush();
    m_positionCoders->y.Flush();
    m_positionCoders->z.Flush();
    m_positionBytes += m_positionCoders->x.GetBlockSize() + m_positionCoders->y.GetBlockSize() + m_positionCoders->z.GetBlockSize();
    m_positionCoders.reset();
}

void VnStreamWriteCompressedTriangulation::encodePosition(Geometry::CVertexRef v, Geometry::CTriangleRef t) {
    if (!m_positionCoders || !m_mesh || !predictionMesh().HasAdjacency() || v >= m_reconstructed.size())
        throw CbExceptionStream(kSourceWriter, __LINE__, kFnWriterEncode);
    m_vertexOrder.Add(v);
    m_vertexReferenceTriangles.Add(t);
    const CbVector3f& r = m_reconstructed[v];
    const CbVector3f p = predictPosition(predictionMesh(), m_reconstructed.data(), m_vertexCoded.data(), v, t);
    m_positionCoders->x.WriteValue(r.x, p.x);
    m_positionCoders->y.WriteValue(r.y, p.y);
    m_positionCoders->z.WriteValue(r.z, p.z);
    m_vertexCoded[v] = 1;
}

// ---- reader ----

void VnStreamReadCompressedTriangulation::initializeFPQuantization() {
    for (auto& q : m_quantizers) q.reset();
    uint8_t mode = 0;
    source() >> mode;
    if (mode == kModeUniform) {
        float scale = 0.f;
        SBoundingBox3f box;
        source() >> scale >> box.min.x >> box.min.y >> box.min.z >> box.max.x >> box.max.y >> box.max.z;
        makeUniform(m_quantizers, box, scale);
        m_info.quantized = true;
        m_info.step = 1.f / scale;
    } else if (mode == kModeBitExact) {
        makeBitExact(m_quantizers);
    } else {
        throw CbExceptionStream(kSourceReader, __LINE__, kFnReaderInit);
    }
}

void VnStreamReadCompressedTriangulation::beginComponentPositions(const Geometry::CTriangulation& component, uint32_t knownVertices) {
    m_component = &component;
    m_positions.assign(knownVertices, CbVector3f());
    m_decoded.assign(knownVertices, 0);
}

CbVector3f VnStreamReadCompressedTriangulation::decodeNextPosition(Geometry::CVertexRef v, Geometry::CTriangleRef t) {
    const CbVector3f p = predictPosition(*m_component, m_positions.data(), m_decoded.data(), v, t);
    m_decoded[v] = 1;
    m_vertexReferenceTriangles.push_back(t);
    CbVector3f value(m_positionCoders->x.ReadValue(p.x), m_positionCoders->y.ReadValue(p.y), m_positionCoders->z.ReadValue(p.z));
    m_positions[v] = value;
    return value;
}

void VnStreamReadCompressedTriangulation::setVertexCoordinates(Geometry::CTriangulation& component,
                                                               const std::vector<uint32_t>& referenceTriangle) {
    const uint32_t known = static_cast<uint32_t>(referenceTriangle.size());
    // Predictions index positions by corner: every corner must be a decoded vertex, and every
    // vertex must be a corner of the triangle it is predicted in.
    if (!m_positionCoders || known != component.GetVertexCount() || !component.HasAdjacency())
        throw CbExceptionStream(kSourceReader, __LINE__, kFnReaderSet);
    for (Geometry::CTriangleRef t : component.Triangles())
        for (uint32_t c : component.GetCorners(t))
            if (c >= known) throw CbExceptionStream(kSourceReader, __LINE__, kFnReaderSet);
    for (uint32_t k = 0; k < known; ++k) {
        const uint32_t t = referenceTriangle[k];
        if (!component.IsTriangleLive(t)) throw CbExceptionStream(kSourceReader, __LINE__, kFnReaderSet);
        const Geometry::STriangleCorners& c = component.GetCorners(Geometry::CTriangleRef(t));
        if (c[0] != k && c[1] != k && c[2] != k) throw CbExceptionStream(kSourceReader, __LINE__, kFnReaderSet);
    }
    beginComponentPositions(component, known);
    for (uint32_t k = 0; k < known; ++k) decodeNextPosition(Geometry::CVertexRef(k), Geometry::CTriangleRef(referenceTriangle[k]));
    for (uint32_t k = 0; k < known; ++k) component.SetPosition(Geometry::CVertexRef(k), m_positions[k]);
}

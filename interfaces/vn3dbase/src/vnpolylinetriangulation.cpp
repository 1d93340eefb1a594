#include "vn3dbase/vnpolylinetriangulation.h"

#include <algorithm>

namespace {
constexpr const char* kSource = "vnlibraries/vn3dbase/vnpolylinetriangulation";
constexpr uint64_t kPointBytes = 20;
} // namespace

void VnBarycentricCoordinates::Rotate(int r) {
    r = ((r % 3) + 3) % 3;
    std::rotate(m_c.begin(), m_c.begin() + r, m_c.end());
}

void VnPolylineTriangulation::SetTriangulation(const Geometry::CTriangulation* mesh, bool) { m_mesh = mesh; }

VnPolylineTriangulation::SPoint& VnPolylineTriangulation::at(uint32_t i) {
    if (i >= m_points.size()) throw CbExceptionPreconditionViolation(kSource, __LINE__, "VnPolylineTriangulation::at");
    return m_points[i];
}

void VnPolylineTriangulation::ReverseDirection() { std::reverse(m_points.begin(), m_points.end()); }

void VnPolylineTriangulation::Serialize(CbStreamWriteBinary& stream) const {
    stream << static_cast<uint32_t>(m_points.size());
    for (const SPoint& p : m_points)
        stream << p.triangle.Index() << p.coordinates[0] << p.coordinates[1] << p.coordinates[2] << p.vertex;
}

void VnPolylineTriangulation::Serialize(CbStreamReadBinary& stream) {
    m_points.clear();
    uint32_t count = 0;
    stream >> count;
    uint64_t left = stream.GetBytesLeft();
    if (left != CbStreamRead::kUnknownSize && uint64_t(count) * kPointBytes > left)
        throw CbExceptionStream(kSource, __LINE__, "VnPolylineTriangulation::Serialize");
    const uint32_t triangles = m_mesh ? m_mesh->GetTriangleSlotCount() : 0;
    std::vector<SPoint> points;
    points.reserve(std::min<uint32_t>(count, 1u << 16));
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t t = 0, v = 0;
        float c0, c1, c2;
        stream >> t >> c0 >> c1 >> c2 >> v;
        if (t >= triangles || !m_mesh->IsTriangleLive(t)) throw CbExceptionStream(kSource, __LINE__, "VnPolylineTriangulation::Serialize");
        if (v != Geometry::c_IndexInvalid && !m_mesh->IsVertexLive(v))
            throw CbExceptionStream(kSource, __LINE__, "VnPolylineTriangulation::Serialize");
        points.push_back({Geometry::CTriangleRef(t), VnBarycentricCoordinates(c0, c1, c2), v});
    }
    m_points = std::move(points);
}

#include "vn3dbase/vnmptriangulationtoedgelengthstatistics.h"

#include <algorithm>
#include <cmath>
#include <limits>

bool VnMpTriangulationToEdgeLengthStatistics::compute(uint32_t) {
    m_output = SEdgeLengthStatistics();
    if (!m_mesh) return false;
    const CbVector3f* p = m_mesh->GetPositions();
    const uint32_t slots = m_mesh->GetVertexSlotCount();
    double sum = 0.0, sumSquares = 0.0;
    double lo = std::numeric_limits<double>::infinity(), hi = 0.0;
    uint64_t count = 0;
    for (Geometry::CTriangleRef t : m_mesh->Triangles()) {
        const Geometry::STriangleCorners& c = m_mesh->GetCorners(t);
        if (c[0] >= slots || c[1] >= slots || c[2] >= slots) continue;
        for (int k = 0; k < 3; ++k) {
            const CbVector3f& a = p[c[k]];
            const CbVector3f& b = p[c[(k + 1) % 3]];
            double dx = double(a.x) - b.x, dy = double(a.y) - b.y, dz = double(a.z) - b.z;
            double len = std::sqrt(dx * dx + dy * dy + dz * dz);
            sum += len;
            sumSquares += len * len;
            lo = std::min(lo, len);
            hi = std::max(hi, len);
            ++count;
        }
    }
    if (count == 0) return true;
    double mean = sum / double(count);
    double variance = std::max(0.0, sumSquares / double(count) - mean * mean);
    m_output.minimum = static_cast<float>(lo);
    m_output.maximum = static_cast<float>(hi);
    m_output.rootMeanSquare = static_cast<float>(std::sqrt(sumSquares / double(count)));
    m_output.standardDeviation = static_cast<float>(std::sqrt(variance));
    m_output.mean = static_cast<float>(mean);
    return true;
}

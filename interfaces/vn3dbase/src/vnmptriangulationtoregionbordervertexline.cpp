#include "vn3dbase/vnmptriangulationtoregionbordervertexline.h"

#include <vector>

bool VnMpTriangulationToRegionBorderVertexLine::compute(uint32_t) {
    if (!m_mesh || !m_output || !m_operator) return false;
    const Geometry::CTriangulation& mesh = *m_mesh;
    m_output->RemoveAll();
    m_output->SetTriangulation(&mesh, true);
    const uint32_t vSlots = mesh.GetVertexSlotCount(), tSlots = mesh.GetTriangleSlotCount();

    // Directed edges leaving each vertex, with their targets beside them.
    std::vector<uint32_t> start(size_t(vSlots) + 1, 0);
    for (Geometry::CTriangleRef t : mesh.Triangles())
        for (uint32_t c : mesh.GetCorners(t)) {
            if (!mesh.IsVertexLive(c)) return false;
            ++start[c + 1];
        }
    for (uint32_t v = 0; v < vSlots; ++v) start[v + 1] += start[v];
    std::vector<uint32_t> edge(start[vSlots]), target(start[vSlots]);
    {
        std::vector<uint32_t> fill(start.begin(), start.end() - 1);
        for (Geometry::CTriangleRef t : mesh.Triangles()) {
            const auto& c = mesh.GetCorners(t);
            for (uint32_t k = 0; k < 3; ++k) {
                const uint32_t at = fill[c[k]]++;
                edge[at] = 3 * t + k;
                target[at] = c[(k + 1) % 3];
            }
        }
    }
    // Count the triangles on each edge; border edges leave their start vertex exactly once.
    auto uses = [&](uint32_t a, uint32_t b) {
        uint32_t n = 0;
        for (uint32_t i = start[a]; i < start[a + 1]; ++i) n += target[i] == b;
        for (uint32_t i = start[b]; i < start[b + 1]; ++i) n += target[i] == a;
        return n;
    };
    std::vector<uint32_t> borderOut(vSlots, Geometry::c_IndexInvalid);
    std::vector<uint8_t> isBorder(size_t(tSlots) * 3, 0);
    for (uint32_t a = 0; a < vSlots; ++a)
        for (uint32_t i = start[a]; i < start[a + 1]; ++i) {
            if (!m_operator->IsBorder(uses(a, target[i]))) continue;
            if (borderOut[a] != Geometry::c_IndexInvalid) return false;
            borderOut[a] = i;
            isBorder[edge[i]] = 1;
        }

    std::vector<uint8_t> done(size_t(tSlots) * 3, 0);
    for (Geometry::CTriangleRef t : mesh.Triangles()) {
        for (uint32_t k = 0; k < 3; ++k) {
            const uint32_t h = 3 * t + k;
            if (!isBorder[h] || done[h]) continue;
            VnPolylineTriangulation& line = m_output->AddTail();
            const uint32_t first = mesh.GetCorner(t, int(k));
            uint32_t v = first, arriving = h; // the edge arriving at the first vertex is found last
            std::vector<std::pair<uint32_t, uint32_t>> points; // (vertex, edge leaving it)
            for (uint32_t steps = 0;; ++steps) {
                if (steps > edge.size()) return false;
                const uint32_t out = borderOut[v];
                if (out == Geometry::c_IndexInvalid || done[edge[out]]) return false;
                done[edge[out]] = 1;
                points.emplace_back(v, edge[out]);
                v = target[out];
                if (v == first) {
                    arriving = edge[out];
                    break;
                }
            }
            // Point j sits on its vertex in the triangle of the edge arriving there.
            for (size_t j = 0; j < points.size(); ++j) {
                const uint32_t in = j == 0 ? arriving : points[j - 1].second;
                const uint32_t tri = in / 3, corner = (in % 3 + 1) % 3;
                VnBarycentricCoordinates c(0.f, 0.f, 0.f);
                c[int(corner)] = 1.f;
                line.AddVertex(Geometry::CTriangleRef(tri), c, points[j].first);
            }
        }
    }
    return true;
}

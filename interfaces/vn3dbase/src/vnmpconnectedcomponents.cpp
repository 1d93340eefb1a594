#include "vn3dbase/vnmpconnectedcomponents.h"

#include <numeric>

namespace {

// Triangles around each vertex, as compressed rows.
struct SVertexTriangles {
    std::vector<uint32_t> start, triangles;
};

bool vertexTriangles(const Geometry::CTriangulation& mesh, SVertexTriangles& out) {
    const uint32_t vSlots = mesh.GetVertexSlotCount();
    out.start.assign(size_t(vSlots) + 1, 0);
    for (Geometry::CTriangleRef t : mesh.Triangles())
        for (uint32_t c : mesh.GetCorners(t)) {
            if (!mesh.IsVertexLive(c)) return false;
            ++out.start[c + 1];
        }
    for (uint32_t v = 0; v < vSlots; ++v) out.start[v + 1] += out.start[v];
    out.triangles.resize(out.start[vSlots]);
    std::vector<uint32_t> fill(out.start.begin(), out.start.end() - 1);
    for (Geometry::CTriangleRef t : mesh.Triangles())
        for (uint32_t c : mesh.GetCorners(t)) out.triangles[fill[c]++] = t;
    return true;
}

uint32_t findRoot(std::vector<uint32_t>& parent, uint32_t x) {
    while (parent[x] != x) {
        parent[x] = parent[parent[x]];
        x = parent[x];
    }
    return x;
}

} // namespace

bool VnMpConnectedComponents::compute(uint32_t) {
    m_labels.RemoveAll();
    m_count = 0;
    if (!m_mesh) return false;
    const Geometry::CTriangulation& mesh = *m_mesh;
    SVertexTriangles around;
    if (!vertexTriangles(mesh, around)) return false;
    const uint32_t tSlots = mesh.GetTriangleSlotCount();
    std::vector<uint32_t> parent(tSlots);
    std::iota(parent.begin(), parent.end(), 0u);
    // Two triangles share an edge (a, b) when both appear around a and both hold b.
    for (Geometry::CTriangleRef t : mesh.Triangles()) {
        const auto& c = mesh.GetCorners(t);
        for (int k = 0; k < 3; ++k) {
            const uint32_t a = c[k], b = c[(k + 1) % 3];
            for (uint32_t i = around.start[a]; i < around.start[a + 1]; ++i) {
                const uint32_t u = around.triangles[i];
                if (u == t) continue;
                const auto& d = mesh.GetCorners(Geometry::CTriangleRef(u));
                if (d[0] == b || d[1] == b || d[2] == b) {
                    const uint32_t x = findRoot(parent, t), y = findRoot(parent, u);
                    if (x != y) parent[x < y ? y : x] = x < y ? x : y;
                }
            }
        }
    }
    m_labels.SetSize(static_cast<int>(tSlots));
    std::vector<uint32_t> labelOfRoot(tSlots, Geometry::c_IndexInvalid);
    for (uint32_t t = 0; t < tSlots; ++t) {
        if (!mesh.IsTriangleLive(t)) {
            m_labels[static_cast<int>(t)] = Geometry::c_IndexInvalid;
            continue;
        }
        const uint32_t r = findRoot(parent, t);
        if (labelOfRoot[r] == Geometry::c_IndexInvalid) labelOfRoot[r] = m_count++;
        m_labels[static_cast<int>(t)] = labelOfRoot[r];
    }
    return true;
}

#include "vn3dbase/vnfttriangulationinconsistencydetect.h"

#include <vector>

bool VnFtTriangulationInconsistencyDetect::Compute(const Geometry::CTriangulation& mesh) {
    const uint32_t slots = mesh.GetVertexSlotCount();
    // Vertex -> incident triangles, as compressed rows; every corner is checked first.
    std::vector<uint32_t> offsets(size_t(slots) + 1, 0);
    for (Geometry::CTriangleRef t : mesh.Triangles()) {
        const Geometry::STriangleCorners& c = mesh.GetCorners(t);
        for (uint32_t v : c)
            if (!mesh.IsVertexLive(v)) return true;
        if (c[0] == c[1] || c[1] == c[2] || c[0] == c[2]) return true;
        for (uint32_t v : c) ++offsets[v + 1];
    }
    for (uint32_t v = 0; v < slots; ++v) offsets[v + 1] += offsets[v];
    std::vector<uint32_t> rows(offsets[slots]);
    {
        std::vector<uint32_t> fill(offsets.begin(), offsets.end() - 1);
        for (Geometry::CTriangleRef t : mesh.Triangles())
            for (uint32_t v : mesh.GetCorners(t)) rows[fill[v]++] = t;
    }

    // Around vertex v each triangle contributes a link edge u -> w (the corners before and
    // after v). The fan is one manifold disk or disk-with-boundary exactly when no link vertex
    // is entered or left twice and the link edges chain into a single path or cycle.
    const uint32_t none = Geometry::c_IndexInvalid;
    std::vector<uint32_t> leftStamp(slots, none), enteredStamp(slots, none), successor(slots, none);
    for (Geometry::CVertexRef v : mesh.Vertices()) {
        const uint32_t begin = offsets[v], end = offsets[v + 1];
        const uint32_t fan = end - begin;
        if (fan == 0) return true;
        for (uint32_t i = begin; i < end; ++i) {
            const Geometry::STriangleCorners& c = mesh.GetCorners(Geometry::CTriangleRef(rows[i]));
            const int k = c[0] == v ? 0 : (c[1] == v ? 1 : 2);
            const uint32_t w = c[(k + 1) % 3], u = c[(k + 2) % 3];
            if (leftStamp[u] == v || enteredStamp[w] == v) return true; // edge v-w or u-v twice in one direction
            leftStamp[u] = v;
            successor[u] = w;
            enteredStamp[w] = v;
        }
        uint32_t start = none;
        for (uint32_t i = begin; i < end; ++i) {
            const Geometry::STriangleCorners& c = mesh.GetCorners(Geometry::CTriangleRef(rows[i]));
            const int k = c[0] == v ? 0 : (c[1] == v ? 1 : 2);
            const uint32_t w = c[(k + 1) % 3], u = c[(k + 2) % 3];
            // Link edges u -> w and w -> u: two triangles on the same three vertices.
            if (leftStamp[w] == v && successor[w] == u) return true;
            if (enteredStamp[u] != v) {
                if (start != none) return true; // two open fans: a pinch
                start = u;
            }
        }
        if (start == none) {
            const Geometry::STriangleCorners& c = mesh.GetCorners(Geometry::CTriangleRef(rows[begin]));
            start = c[c[0] == v ? 2 : (c[1] == v ? 0 : 1)];
        }
        uint32_t steps = 0;
        for (uint32_t x = start; leftStamp[x] == v && steps <= fan;) {
            x = successor[x];
            ++steps;
            if (x == start) break;
        }
        if (steps != fan) return true;
    }
    return false;
}

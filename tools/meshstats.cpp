#include "meshstats.h"

#include <numeric>
#include <unordered_map>
#include <vector>

using namespace Geometry;

namespace VnTool {

namespace {
uint32_t find(std::vector<uint32_t>& parent, uint32_t x) {
    while (parent[x] != x) x = parent[x] = parent[parent[x]];
    return x;
}
} // namespace

SMeshStats ComputeStats(const CTriangulation& mesh) {
    SMeshStats stats;
    const uint32_t nv = mesh.GetVertexSlotCount();
    std::vector<uint32_t> parent(nv);
    std::iota(parent.begin(), parent.end(), 0u);
    std::vector<uint8_t> used(nv, 0);
    std::unordered_map<uint64_t, int> directed; // a->b edge counts
    directed.reserve(size_t(mesh.GetTriangleCount()) * 3);
    for (CTriangleRef t : mesh.Triangles()) {
        const auto& c = mesh.GetCorners(t);
        if (c[0] >= nv || c[1] >= nv || c[2] >= nv) continue;
        for (int k = 0; k < 3; ++k) {
            used[c[k]] = 1;
            uint32_t a = find(parent, c[k]), b = find(parent, c[(k + 1) % 3]);
            if (a != b) parent[a < b ? b : a] = a < b ? a : b;
            ++directed[(uint64_t(c[k]) << 32) | c[(k + 1) % 3]];
        }
    }
    for (uint32_t v = 0; v < nv; ++v)
        if (used[v] && find(parent, v) == v) ++stats.components;
    // Boundary half-edges have no twin; following them from vertex to vertex closes loops.
    std::unordered_multimap<uint32_t, uint32_t> next;
    for (const auto& [key, count] : directed) {
        uint32_t a = uint32_t(key >> 32), b = uint32_t(key);
        if (count == 1 && directed.find((uint64_t(b) << 32) | a) == directed.end()) next.emplace(a, b);
    }
    while (!next.empty()) {
        auto it = next.begin();
        uint32_t start = it->first, cur = it->second;
        next.erase(it);
        while (cur != start) {
            auto nx = next.find(cur);
            if (nx == next.end()) break;
            cur = nx->second;
            next.erase(nx);
        }
        ++stats.boundaryLoops;
    }
    return stats;
}

} // namespace VnTool

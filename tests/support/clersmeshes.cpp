#include "support/clersmeshes.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <set>

#include "support/meshbuilders.h"

using namespace Geometry;

namespace VnTest {
namespace {

// Link of each vertex: for a triangle (v, a, b) around v, the link edge b -> a.
std::vector<uint32_t> nonManifoldVertices(uint32_t vertexCount, const STriangleList& tris) {
    std::vector<std::vector<std::pair<uint32_t, uint32_t>>> link(vertexCount);
    for (const auto& t : tris)
        for (int k = 0; k < 3; ++k) link[t[k]].emplace_back(t[(k + 2) % 3], t[(k + 1) % 3]);
    std::vector<uint32_t> bad;
    for (uint32_t v = 0; v < vertexCount; ++v) {
        const auto& l = link[v];
        if (l.empty()) continue;
        std::map<uint32_t, uint32_t> out, inDegree;
        bool ok = true;
        for (const auto& [from, to] : l) {
            if (!out.emplace(from, to).second) ok = false;
            if (++inDegree[to] > 1) ok = false;
        }
        if (ok) {
            uint32_t start = l[0].first;
            int starts = 0;
            for (const auto& [from, to] : l)
                if (!inDegree.count(from)) {
                    start = from;
                    ++starts;
                }
            if (starts > 1) ok = false;
            size_t steps = 0;
            uint32_t cur = start;
            while (ok && steps <= l.size()) {
                auto it = out.find(cur);
                if (it == out.end()) break;
                ++steps;
                cur = it->second;
                if (cur == start) break;
            }
            if (steps != l.size()) ok = false;
        }
        if (!ok) bad.push_back(v);
    }
    return bad;
}

// Drops triangles around non-manifold vertices until none is left, then unused vertices.
CTriangulation cleanUp(uint32_t vertexCount, STriangleList tris) {
    for (;;) {
        const auto bad = nonManifoldVertices(vertexCount, tris);
        if (bad.empty()) break;
        std::vector<uint8_t> drop(vertexCount, 0);
        for (uint32_t v : bad) drop[v] = 1;
        std::erase_if(tris, [&](const STriangleCorners& t) { return drop[t[0]] || drop[t[1]] || drop[t[2]]; });
    }
    std::vector<uint32_t> remap(vertexCount, c_IndexInvalid);
    uint32_t used = 0;
    for (auto& t : tris)
        for (auto& c : t) {
            if (remap[c] == c_IndexInvalid) remap[c] = used++;
            c = remap[c];
        }
    return MeshFromTriangles(used, tris);
}

} // namespace

CTriangulation MeshFromTriangles(uint32_t vertexCount, const STriangleList& triangles) {
    std::vector<CbVector3f> positions(vertexCount);
    for (uint32_t i = 0; i < vertexCount; ++i)
        positions[i] = CbVector3f(float(i) * 0.5f, std::sin(float(i)), std::cos(float(i) * 0.3f));
    CTriangulation m;
    m.AppendVertices(positions.data(), vertexCount);
    m.AppendTriangles(triangles.data(), static_cast<uint32_t>(triangles.size()));
    return m;
}

STriangleList TrianglesOf(const CTriangulation& mesh) {
    STriangleList out;
    for (CTriangleRef t : mesh.Triangles()) out.push_back(mesh.GetCorners(t));
    return out;
}

CTriangulation MakeHandleBody(unsigned genus, unsigned rings, unsigned segments, uint32_t seed) {
    const CTriangulation sphere = MakeSphere(rings, segments);
    STriangleList tris = TrianglesOf(sphere);
    const uint32_t vertexCount = sphere.GetVertexCount();
    std::set<std::pair<uint32_t, uint32_t>> edges;
    for (const auto& t : tris)
        for (int k = 0; k < 3; ++k) edges.emplace(std::min(t[k], t[(k + 1) % 3]), std::max(t[k], t[(k + 1) % 3]));
    std::vector<uint8_t> usedVertex(vertexCount, 0), removed(tris.size(), 0);
    std::mt19937 rng(seed);
    std::uniform_int_distribution<size_t> pick(0, tris.size() - 1);
    STriangleList tubes;
    auto free = [&](size_t t) { return !removed[t] && !usedVertex[tris[t][0]] && !usedVertex[tris[t][1]] && !usedVertex[tris[t][2]]; };
    for (unsigned made = 0, attempts = 0; made < genus && attempts < 100000; ++attempts) {
        const size_t ta = pick(rng), tb = pick(rng);
        if (ta == tb || !free(ta) || !free(tb)) continue;
        const auto a = tris[ta], b = tris[tb];
        bool apart = true;
        for (uint32_t x : a)
            for (uint32_t y : b)
                if (x == y || edges.count({std::min(x, y), std::max(x, y)})) apart = false;
        if (!apart) continue;
        removed[ta] = removed[tb] = 1;
        for (uint32_t x : a) usedVertex[x] = 1;
        for (uint32_t y : b) usedVertex[y] = 1;
        auto m = [](int i) { return (3 - i) % 3; };
        for (int i = 0; i < 3; ++i) {
            const uint32_t a0 = a[i], a1 = a[(i + 1) % 3], b0 = b[m(i)], b1 = b[m(i + 1)];
            tubes.push_back({a0, a1, b1});
            tubes.push_back({a0, b1, b0});
        }
        ++made;
    }
    STriangleList out;
    for (size_t t = 0; t < tris.size(); ++t)
        if (!removed[t]) out.push_back(tris[t]);
    out.insert(out.end(), tubes.begin(), tubes.end());
    return MeshFromTriangles(vertexCount, out);
}

CTriangulation PunchHoles(const CTriangulation& mesh, unsigned holes, unsigned maxHoleTriangles, uint32_t seed) {
    STriangleList tris = TrianglesOf(mesh);
    const uint32_t vertexCount = mesh.GetVertexSlotCount();
    std::map<std::pair<uint32_t, uint32_t>, uint32_t> byEdge;
    for (uint32_t t = 0; t < tris.size(); ++t)
        for (int k = 0; k < 3; ++k) byEdge[{tris[t][k], tris[t][(k + 1) % 3]}] = t;
    std::mt19937 rng(seed);
    std::vector<uint8_t> removed(tris.size(), 0);
    for (unsigned h = 0; h < holes; ++h) {
        const uint32_t size = 1 + rng() % std::max(1u, maxHoleTriangles);
        std::vector<uint32_t> front{static_cast<uint32_t>(rng() % tris.size())};
        for (uint32_t taken = 0; taken < size && !front.empty();) {
            const size_t i = rng() % front.size();
            const uint32_t t = front[i];
            front.erase(front.begin() + static_cast<long>(i));
            if (removed[t]) continue;
            removed[t] = 1;
            ++taken;
            for (int k = 0; k < 3; ++k) {
                auto it = byEdge.find({tris[t][(k + 1) % 3], tris[t][k]});
                if (it != byEdge.end() && !removed[it->second]) front.push_back(it->second);
            }
        }
    }
    STriangleList kept;
    for (uint32_t t = 0; t < tris.size(); ++t)
        if (!removed[t]) kept.push_back(tris[t]);
    return cleanUp(vertexCount, kept);
}

CTriangulation RandomPatch(const CTriangulation& mesh, double keep, uint32_t seed) {
    std::mt19937 rng(seed);
    std::bernoulli_distribution coin(keep);
    STriangleList kept;
    for (const auto& t : TrianglesOf(mesh))
        if (coin(rng)) kept.push_back(t);
    return cleanUp(mesh.GetVertexSlotCount(), kept);
}

CTriangulation Shuffle(const CTriangulation& mesh, uint32_t seed) {
    std::mt19937 rng(seed);
    const uint32_t n = mesh.GetVertexCount();
    std::vector<uint32_t> perm(n);
    std::iota(perm.begin(), perm.end(), 0u);
    std::shuffle(perm.begin(), perm.end(), rng);
    STriangleList tris = TrianglesOf(mesh);
    std::shuffle(tris.begin(), tris.end(), rng);
    for (auto& t : tris) {
        for (auto& c : t) c = perm[c];
        std::rotate(t.begin(), t.begin() + rng() % 3, t.end());
    }
    return MeshFromTriangles(n, tris);
}

CTriangulation Concatenate(const std::vector<CTriangulation>& meshes) {
    STriangleList all;
    uint32_t base = 0;
    for (const auto& m : meshes) {
        for (auto t : TrianglesOf(m)) {
            for (auto& c : t) c += base;
            all.push_back(t);
        }
        base += m.GetVertexSlotCount();
    }
    return MeshFromTriangles(base, all);
}

CTriangulation WithDeletedSlots(const CTriangulation& mesh, uint32_t seed) {
    std::mt19937 rng(seed);
    CTriangulation out;
    std::vector<uint32_t> slotOf(mesh.GetVertexSlotCount());
    std::vector<uint32_t> deadVertices, deadTriangles;
    for (CVertexRef v : mesh.Vertices()) {
        if (rng() % 3 == 0) deadVertices.push_back(out.AddVertex(CbVector3f(-1, -1, -1)));
        slotOf[v] = out.AddVertex(mesh.GetPosition(v));
    }
    deadVertices.push_back(out.AddVertex(CbVector3f(-2, -2, -2)));
    for (CTriangleRef t : mesh.Triangles()) {
        if (rng() % 3 == 0)
            deadTriangles.push_back(out.AddTriangle(CVertexRef(deadVertices[0]), CVertexRef(deadVertices.back()), CVertexRef(deadVertices[0])));
        const auto& c = mesh.GetCorners(t);
        out.AddTriangle(CVertexRef(slotOf[c[0]]), CVertexRef(slotOf[c[1]]), CVertexRef(slotOf[c[2]]));
    }
    for (uint32_t t : deadTriangles) out.RemoveTriangle(CTriangleRef(t));
    for (uint32_t v : deadVertices) out.RemoveVertex(CVertexRef(v));
    return out;
}

bool IsManifold(const CTriangulation& mesh, bool unused) {
    std::set<std::pair<uint32_t, uint32_t>> directed;
    std::vector<uint8_t> referenced(mesh.GetVertexSlotCount(), 0);
    STriangleList tris;
    for (CTriangleRef t : mesh.Triangles()) {
        const auto& c = mesh.GetCorners(t);
        if (c[0] == c[1] || c[1] == c[2] || c[0] == c[2]) return false;
        for (int k = 0; k < 3; ++k) {
            if (!mesh.IsVertexLive(c[k])) return false;
            referenced[c[k]] = 1;
            if (!directed.emplace(c[k], c[(k + 1) % 3]).second) return false;
        }
        tris.push_back(c);
    }
    if (!unused)
        for (CVertexRef v : mesh.Vertices())
            if (!referenced[v]) return false;
    return nonManifoldVertices(mesh.GetVertexSlotCount(), tris).empty();
}

} // namespace VnTest

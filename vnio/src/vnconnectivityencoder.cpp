// Connectivity encoder: an Edgebreaker traversal per connected component that copes with
// boundary loops (coded whole at a hole split) and handles (splits whose left branch was
// reached from the other side, paired with their twin edge on the zipped boundary).
//
// The encoder works on a half-edge table of its own rather than on the mesh's adjacency:
// it needs the twin of every directed edge anyway to check that the mesh is one it can
// reproduce, and the mesh is taken const.
#include <algorithm>
#include <unordered_map>

#include "detail/vnconnectivity.h"

namespace VnConnectivity {
namespace {

using namespace VnClers;

// 64-bit FNV-1a over the key's bytes: directed-edge keys are two vertex indices side by
// side, which the identity hash of the standard library spreads badly.
struct SFnv1a {
    size_t operator()(uint64_t key) const {
        uint64_t h = 0xcbf29ce484222325ull;
        for (int i = 0; i < 8; ++i) {
            h ^= (key >> (8 * i)) & 0xFF;
            h *= 0x100000001b3ull;
        }
        return static_cast<size_t>(h);
    }
};

inline uint64_t edgeKey(uint32_t from, uint32_t to) { return (static_cast<uint64_t>(from) << 32) | to; }

class CEncoder {
public:
    CEncoder(const Geometry::CTriangulation& mesh, SEncodedMesh& out)
        : m_mesh(mesh), m_corners(mesh.GetCornerArray()), m_out(out) {}

    bool Run() {
        m_out = SEncodedMesh{};
        const uint32_t tLive = m_mesh.GetTriangleCount();
        const uint32_t vLive = m_mesh.GetVertexCount();
        if (tLive == 0) return vLive == 0;
        if (!buildHalfEdges() || !checkVertexFans() || !buildLoops()) return false;

        m_coded.assign(m_mesh.GetVertexSlotCount(), 0);
        m_visited.assign(m_mesh.GetTriangleSlotCount(), 0);
        m_out.vertexOrder.reserve(vLive);
        m_out.vertexTriangle.reserve(vLive);
        m_out.triangleOrder.reserve(tLive);
        m_out.tipOrder.reserve(tLive);
        m_out.gateCorner.reserve(tLive);
        m_list.Reserve(tLive + 2);

        while (m_out.triangleOrder.size() < tLive) {
            SComponent comp;
            comp.firstVertex = static_cast<uint32_t>(m_out.vertexOrder.size());
            comp.firstTriangle = static_cast<uint32_t>(m_out.triangleOrder.size());
            m_list.Clear();
            if (!findStart(comp) || !generateClers(comp) || !zip() || !computeHandleOffsets(comp)) return false;
            comp.vertexCount = static_cast<uint32_t>(m_out.vertexOrder.size()) - comp.firstVertex;
            m_out.components.push_back(std::move(comp));
        }
        // A vertex no triangle uses would be missing from the order, and a reader could not
        // rebuild the vertex count.
        return m_out.triangleOrder.size() == tLive && m_out.vertexOrder.size() == vLive;
    }

private:
    uint32_t target(uint32_t h) const { return m_corners[h / 3][(h % 3 + 1) % 3]; }
    uint32_t origin(uint32_t h) const { return m_corners[h / 3][h % 3]; }
    uint32_t neighbour(uint32_t t, uint32_t k) const {
        const uint32_t o = m_opposite[3 * t + k];
        return o == c_None ? c_None : o / 3;
    }

    // Outgoing half-edges grouped by origin vertex, each with its target beside it so that
    // finding twins reads the compact table rather than the corners of scattered triangles.
    bool buildHalfEdges() {
        const uint32_t vSlots = m_mesh.GetVertexSlotCount();
        const uint32_t tSlots = m_mesh.GetTriangleSlotCount();
        m_outStart.assign(static_cast<size_t>(vSlots) + 1, 0);
        for (Geometry::CTriangleRef t : m_mesh.Triangles()) {
            const auto& c = m_corners[t];
            for (int k = 0; k < 3; ++k)
                if (c[k] >= vSlots || !m_mesh.IsVertexLive(c[k])) return false;
            if (c[0] == c[1] || c[1] == c[2] || c[2] == c[0]) return false;
            for (int k = 0; k < 3; ++k) ++m_outStart[c[k] + 1];
        }
        for (uint32_t v = 0; v < vSlots; ++v) m_outStart[v + 1] += m_outStart[v];
        m_outEdges.resize(m_outStart[vSlots]);
        std::vector<uint32_t> outTarget(m_outStart[vSlots]);
        {
            std::vector<uint32_t> fill(m_outStart.begin(), m_outStart.end() - 1);
            for (Geometry::CTriangleRef t : m_mesh.Triangles()) {
                const auto& c = m_corners[t];
                for (uint32_t k = 0; k < 3; ++k) {
                    const uint32_t at = fill[c[k]]++;
                    m_outEdges[at] = 3 * t + k;
                    outTarget[at] = c[(k + 1) % 3];
                }
            }
        }
        m_opposite.assign(static_cast<size_t>(tSlots) * 3, c_None);
        for (uint32_t a = 0; a < vSlots; ++a) {
            const uint32_t begin = m_outStart[a], end = m_outStart[a + 1];
            for (uint32_t i = begin; i < end; ++i) {
                const uint32_t b = outTarget[i];
                for (uint32_t j = i + 1; j < end; ++j)
                    if (outTarget[j] == b) return false; // the same edge twice in one direction
                const uint32_t h = m_outEdges[i];
                if (m_opposite[h] != c_None) continue;
                for (uint32_t j = m_outStart[b]; j < m_outStart[b + 1]; ++j)
                    if (outTarget[j] == a) {
                        m_opposite[h] = m_outEdges[j];
                        m_opposite[m_outEdges[j]] = h;
                        break; // b holds no second edge to a: its own scan rejects that
                    }
            }
        }
        return true;
    }

    // Every vertex must carry one fan of triangles (closed, or open with one boundary
    // edge on each side); otherwise it would be coded twice or reached from two sides.
    bool checkVertexFans() {
        const uint32_t vSlots = m_mesh.GetVertexSlotCount();
        m_boundaryIn.assign(vSlots, c_None);
        for (uint32_t v = 0; v < vSlots; ++v) {
            const uint32_t begin = m_outStart[v], end = m_outStart[v + 1];
            if (begin == end) continue;
            uint32_t start = m_outEdges[begin];
            uint32_t boundaryOut = 0;
            for (uint32_t i = begin; i < end; ++i)
                if (m_opposite[m_outEdges[i]] == c_None) {
                    ++boundaryOut;
                    start = m_outEdges[i];
                }
            if (boundaryOut > 1) return false;
            // Turn around v: from v->x in t to the triangle across the edge entering v in t.
            uint32_t h = start, steps = 0;
            do {
                ++steps;
                if (steps > end - begin) return false;
                const uint32_t enter = 3 * (h / 3) + (h % 3 + 2) % 3;
                if (m_opposite[enter] == c_None) {
                    m_boundaryIn[v] = enter;
                    break;
                }
                h = m_opposite[enter];
            } while (h != start);
            if (steps != end - begin) return false;
        }
        return true;
    }

    // Boundary loops in the order of their lowest triangle slot and edge slot; each starts
    // at that edge's start vertex and runs against the triangles' orientation, so that the
    // triangle of loop vertex j holds the edge from vertex j+1 to vertex j.
    bool buildLoops() {
        const uint32_t vSlots = m_mesh.GetVertexSlotCount();
        m_holeOf.assign(vSlots, c_None);
        m_posInLoop.assign(vSlots, 0);
        m_loopStart.assign(1, 0);
        for (Geometry::CTriangleRef t : m_mesh.Triangles()) {
            for (uint32_t k = 0; k < 3; ++k) {
                const uint32_t h0 = 3 * t + k;
                if (m_opposite[h0] != c_None || m_holeOf[origin(h0)] != c_None) continue;
                const uint32_t loop = static_cast<uint32_t>(m_loopStart.size() - 1);
                const uint32_t first = origin(h0);
                uint32_t cur = first;
                for (;;) {
                    if (m_holeOf[cur] != c_None) return false;
                    m_holeOf[cur] = loop;
                    m_posInLoop[cur] = static_cast<uint32_t>(m_loopVertices.size() - m_loopStart[loop]);
                    m_loopVertices.push_back(cur);
                    const uint32_t in = m_boundaryIn[cur];
                    if (in == c_None) return false;
                    m_loopTriangles.push_back(in / 3);
                    cur = origin(in);
                    if (cur == first) break;
                }
                m_loopStart.push_back(static_cast<uint32_t>(m_loopVertices.size()));
            }
        }
        return true;
    }

    uint32_t loopCount() const { return static_cast<uint32_t>(m_loopStart.size() - 1); }
    uint32_t loopSize(uint32_t loop) const { return m_loopStart[loop + 1] - m_loopStart[loop]; }

    void code(uint32_t v, uint32_t t) {
        m_out.vertexOrder.push_back(v);
        m_out.vertexTriangle.push_back(t);
        m_coded[v] = 1;
    }

    // Codes every vertex of a loop, starting at v: the first in t, each later one in the
    // triangle of the loop vertex before it.
    void visitHole(SComponent& comp, uint32_t loop, uint32_t v, uint32_t t) {
        const uint32_t base = m_loopStart[loop], n = loopSize(loop);
        const uint32_t j = m_posInLoop[v];
        for (uint32_t m = 0; m < n; ++m) {
            const uint32_t at = base + (j + m) % n;
            code(m_loopVertices[at], t);
            t = m_loopTriangles[at];
        }
        comp.holeSizes.push_back(n);
    }

    bool findStart(SComponent& comp) {
        uint32_t chosen = c_None;
        if (m_out.components.empty()) {
            for (uint32_t l = 0; l < loopCount(); ++l)
                if (!m_coded[m_loopVertices[m_loopStart[l]]] && (chosen == c_None || loopSize(l) > loopSize(chosen)))
                    chosen = l;
        } else {
            while (m_loopCursor < loopCount() && m_coded[m_loopVertices[m_loopStart[m_loopCursor]]]) ++m_loopCursor;
            if (m_loopCursor < loopCount()) chosen = m_loopCursor;
        }
        if (chosen != c_None) {
            const uint32_t base = m_loopStart[chosen];
            const uint32_t u = m_loopVertices[base], w = m_loopVertices[base + 1], t0 = m_loopTriangles[base];
            m_list.PushBack({w, t0, eStatePlain, 0});
            m_list.PushBack({u, c_None, eStatePlain, 0});
            visitHole(comp, chosen, u, t0);
            return true;
        }
        const uint32_t tSlots = m_mesh.GetTriangleSlotCount();
        while (m_triangleCursor < tSlots && (!m_mesh.IsTriangleLive(m_triangleCursor) || m_visited[m_triangleCursor]))
            ++m_triangleCursor;
        if (m_triangleCursor >= tSlots) return false;
        const uint32_t t = m_triangleCursor;
        const uint32_t a = m_corners[t][0], b = m_corners[t][1];
        code(b, t);
        code(a, t);
        comp.holeSizes.push_back(2);
        m_list.PushBack({a, t, eStatePlain, 0});
        m_list.PushBack({b, c_None, eStatePlain, 0});
        return true;
    }

    int cornerOf(uint32_t t, uint32_t v) const {
        const auto& c = m_corners[t];
        return c[0] == v ? 0 : c[1] == v ? 1 : c[2] == v ? 2 : -1;
    }

    bool generateClers(SComponent& comp) {
        struct SSplit {
            uint32_t entry;
            uint32_t symbol;
        };
        std::vector<SSplit> stack;
        stack.reserve(100);
        std::vector<uint8_t>& symbols = comp.symbols;
        uint32_t g = m_list.Head();
        for (;;) {
            const uint32_t t = m_list[g].triangle;
            if (t == c_None || m_visited[t]) return false;
            const int i = cornerOf(t, m_list[g].vertex);
            if (i < 0) return false;
            const uint32_t tip = m_corners[t][(i + 2) % 3];
            const uint32_t right = neighbour(t, (i + 2) % 3);
            const uint32_t left = neighbour(t, (i + 1) % 3);
            m_visited[t] = 1;
            m_out.triangleOrder.push_back(t);
            m_out.tipOrder.push_back(tip);
            m_out.gateCorner.push_back(static_cast<uint8_t>(i));
            const uint32_t n = m_list.InsertAfter(g, {tip, t, eStatePlain, 0});

            if (!m_coded[tip] && m_holeOf[tip] == c_None) {
                symbols.push_back(eSymbolC);
                code(tip, t);
                m_list[n].state = eStateCoded;
                m_list[g].triangle = right;
                continue;
            }
            const bool rightFree = right != c_None && !m_visited[right];
            const bool leftFree = left != c_None && !m_visited[left];
            if (rightFree) {
                if (leftFree) {
                    if (m_coded[tip]) {
                        stack.push_back({n, static_cast<uint32_t>(symbols.size())});
                        symbols.push_back(eSymbolS);
                    } else {
                        symbols.push_back(eSymbolSHole);
                        visitHole(comp, m_holeOf[tip], tip, t);
                        m_list[n].state = eStateHole;
                    }
                } else {
                    if (!m_coded[tip]) return false;
                    symbols.push_back(eSymbolL);
                }
                m_list[g].triangle = right;
                continue;
            }
            if (!m_coded[tip]) return false;
            if (leftFree) {
                symbols.push_back(eSymbolR);
                g = n;
                m_list[n].triangle = left;
                continue;
            }
            symbols.push_back(eSymbolE);
            bool resumed = false;
            while (!stack.empty()) {
                const SSplit top = stack.back();
                stack.pop_back();
                SBoundaryHalfEdge& m = m_list[top.entry];
                const int c = cornerOf(m.triangle, m.vertex);
                if (c < 0) return false;
                const uint32_t w = neighbour(m.triangle, (c + 2) % 3);
                if (w != c_None && !m_visited[w]) {
                    m.triangle = w;
                    g = top.entry;
                    resumed = true;
                    break;
                }
                symbols[top.symbol] = eSymbolSHandle;
                m.state = eStateHandle;
                ++comp.handleCount;
            }
            if (!resumed) return true;
        }
    }

    // The encoder zips only to give its boundary list the decoder's shape; a fold whose two
    // sides are different vertices would make the decoder glue the wrong vertices.
    bool zip() {
        bool consistent = true;
        ZipAll(m_list, [&](SBoundaryHalfEdge& y, SBoundaryHalfEdge& p) {
            if (y.vertex != p.vertex) consistent = false;
        });
        return consistent;
    }

    // Pairs each handle entry with the entry of its twin edge, walking the zipped list
    // from its back; the offset is the distance from the handle to its partner.
    bool computeHandleOffsets(SComponent& comp) {
        if (comp.handleCount == 0) return true;
        std::unordered_map<uint64_t, uint32_t, SFnv1a> pending;
        std::vector<int64_t> offsets;
        offsets.reserve(comp.handleCount);
        const uint32_t head = m_list.Head();
        int64_t step = 0;
        for (uint32_t x = m_list.Tail(); x != c_None; x = m_list.Prev(x), ++step) {
            const SBoundaryHalfEdge& e = m_list[x];
            const uint32_t nx = m_list.Next(x);
            const uint32_t nextVertex = m_list[nx == c_None ? head : nx].vertex;
            if (e.state == eStateHandle) {
                if (!pending.emplace(edgeKey(nextVertex, e.vertex), static_cast<uint32_t>(offsets.size())).second)
                    return false;
                offsets.push_back(-step);
            } else if (!pending.empty()) {
                const auto it = pending.find(edgeKey(e.vertex, nextVertex));
                if (it != pending.end()) {
                    offsets[it->second] += step;
                    pending.erase(it);
                }
            }
            if (pending.empty() && offsets.size() == comp.handleCount) break;
        }
        if (!pending.empty() || offsets.size() != comp.handleCount) return false;
        comp.handleOffsets.reserve(offsets.size());
        for (int64_t o : offsets) {
            if (o <= 0 || o > 0xFFFFFFFFll) return false;
            comp.handleOffsets.push_back(static_cast<uint32_t>(o));
        }
        return true;
    }

    const Geometry::CTriangulation& m_mesh;
    const Geometry::STriangleCorners* m_corners;
    SEncodedMesh& m_out;

    std::vector<uint32_t> m_outStart, m_outEdges, m_opposite, m_boundaryIn;
    std::vector<uint32_t> m_holeOf, m_posInLoop, m_loopStart, m_loopVertices, m_loopTriangles;
    std::vector<uint8_t> m_coded, m_visited;
    uint32_t m_loopCursor = 0;
    uint32_t m_triangleCursor = 0;
    CBoundaryList m_list;
};

} // namespace

bool EncodeMesh(const Geometry::CTriangulation& mesh, SEncodedMesh& out) {
    CEncoder encoder(mesh, out);
    return encoder.Run();
}

void EncodeSplitRuns(std::vector<uint8_t>& symbols, std::vector<uint32_t>& holeRuns, std::vector<uint32_t>& handleRuns) {
    holeRuns.clear();
    handleRuns.clear();
    uint32_t sinceHandle = 0, sinceHole = 0;
    for (uint8_t& s : symbols) {
        switch (s) {
        case eSymbolS:
            ++sinceHandle;
            ++sinceHole;
            break;
        case eSymbolSHole:
            s = eSymbolS;
            holeRuns.push_back(sinceHole);
            sinceHole = 0;
            ++sinceHandle;
            break;
        case eSymbolSHandle:
            s = eSymbolS;
            handleRuns.push_back(sinceHandle);
            sinceHandle = 0;
            ++sinceHole;
            break;
        default:
            break;
        }
    }
}

} // namespace VnConnectivity

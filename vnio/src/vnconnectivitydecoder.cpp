// Connectivity decoder (Wrap&Zip): every symbol makes one triangle at once, a C with a new
// known vertex, every other symbol with a provisional one; zipping the boundary, gluing
// the handle pairs and gluing the holes then send every provisional index to the known
// vertex it stands for.
//
// The input is untrusted: every count, index and walk is checked, and an inconsistency ends
// as CbExceptionStream raised with the caller's source name and function.
#include <algorithm>
#include <numeric>
#include <queue>

#include "basepool/cbexception.h"
#include "detail/vnconnectivity.h"

namespace VnConnectivity {

using namespace VnClers;

uint32_t DecodeSplitRuns(std::vector<uint8_t>& symbols, const std::vector<uint32_t>& holeRuns,
                         const std::vector<uint32_t>& holeSizes, const std::vector<uint32_t>& handleRuns,
                         const char* sourceFile, const char* function) {
    if (holeSizes.empty() || holeRuns.size() + 1 != holeSizes.size()) throw CbExceptionStream(sourceFile, __LINE__, function);
    uint64_t known = 0;
    for (uint32_t h : holeSizes) known += h;
    size_t nextHole = 0, nextHandle = 0;
    auto take = [](const std::vector<uint32_t>& runs, size_t& i) { return i < runs.size() ? runs[i++] : c_None; };
    // Counters of the plain splits still to pass before the next hole and handle split.
    uint32_t toHole = take(holeRuns, nextHole);
    uint32_t toHandle = take(handleRuns, nextHandle);
    for (uint8_t& s : symbols) {
        if (s >= c_WrittenAlphabet) throw CbExceptionStream(sourceFile, __LINE__, function);
        if (s == eSymbolC) {
            ++known;
        } else if (s == eSymbolS) {
            // A hole wins when both counters stand at 0; the encoder never makes that case.
            if (toHole == 0) {
                s = eSymbolSHole;
                toHole = take(holeRuns, nextHole);
                --toHandle;
            } else if (toHandle == 0) {
                s = eSymbolSHandle;
                toHandle = take(handleRuns, nextHandle);
                --toHole;
            } else {
                --toHole;
                --toHandle;
            }
        }
    }
    if (known >= c_None) throw CbExceptionStream(sourceFile, __LINE__, function);
    return static_cast<uint32_t>(known);
}

namespace {

class CDecoder {
public:
    CDecoder(const std::vector<uint8_t>& symbols, const std::vector<uint32_t>& holeSizes,
             const std::vector<uint32_t>& handleOffsets, SDecodedComponent& out, const char* sourceFile,
             const char* function)
        : m_symbols(symbols), m_holeSizes(holeSizes), m_handleOffsets(handleOffsets), m_out(out),
          m_sourceFile(sourceFile), m_function(function) {}

    void Run(uint32_t maxVertices) {
        const size_t n = m_symbols.size();
        if (n == 0 || m_holeSizes.empty() || m_holeSizes[0] < 2 || m_holeSizes[0] > maxVertices) fail(__LINE__);
        uint64_t known = 0;
        for (uint32_t h : m_holeSizes) known += h;
        for (uint8_t s : m_symbols) known += s == eSymbolC;
        // Every triangle of a connected component after its first brings at most one new
        // vertex, so K <= N + 2; this also bounds every allocation by the symbol count.
        if (known > maxVertices || known > n + 2) fail(__LINE__);
        m_known = static_cast<uint32_t>(known);

        decodeClers();
        m_resolution.resize(m_provisionalEnd);
        std::iota(m_resolution.begin(), m_resolution.end(), 0u);
        auto action = [this](SBoundaryHalfEdge& y, SBoundaryHalfEdge& p) { identify(y, p); };
        ZipAll(m_list, action);
        glueHandles();
        ZipAll(m_list, action);
        glueHoles();
        resolve();
        findReferenceTriangles();
    }

private:
    [[noreturn]] void fail(uint32_t line) const { throw CbExceptionStream(m_sourceFile, line, m_function); }

    // The smaller index survives; entries on the boundary always hold roots, so one write
    // keeps every chain pointing downwards.
    void identify(SBoundaryHalfEdge& y, SBoundaryHalfEdge& p) {
        const uint32_t lo = std::min(y.vertex, p.vertex), hi = std::max(y.vertex, p.vertex);
        m_resolution[hi] = lo;
        y.vertex = lo;
        p.vertex = lo;
    }

    void decodeClers() {
        const uint32_t n = static_cast<uint32_t>(m_symbols.size());
        m_out.vertexCount = m_known;
        m_out.triangles.assign(n, Geometry::STriangleCorners{0, 0, 0});
        m_list.Clear();
        m_list.Reserve(static_cast<size_t>(n) + 2);
        uint32_t gate = m_list.PushBack({1, 0, eStatePlain, 0});
        m_list.PushBack({0, 0, eStatePlain, 0});
        uint32_t nextKnown = m_holeSizes[0];
        uint32_t nextProvisional = m_known;
        size_t nextHole = 1;
        std::vector<uint32_t> stack;
        bool done = false;
        for (uint32_t k = 0; k < n; ++k) {
            if (done) fail(__LINE__); // the final E came before the last symbol
            const uint32_t after = m_list.Next(gate);
            if (after == c_None) fail(__LINE__);
            const uint32_t s = m_list[gate].vertex, e = m_list[after].vertex;
            uint32_t x = 0;
            switch (m_symbols[k]) {
            case eSymbolC:
                if (nextKnown >= m_known) fail(__LINE__);
                x = nextKnown++;
                m_list.InsertAfter(gate, {x, k, eStateCoded, 0});
                break;
            case eSymbolL:
                x = nextProvisional++;
                m_list.InsertAfter(gate, {x, k, eStatePlain, 0});
                break;
            case eSymbolE:
                x = nextProvisional++;
                m_list.InsertAfter(gate, {x, k, eStatePlain, 0});
                m_list[gate].triangle = k;
                if (stack.empty()) {
                    done = true;
                } else {
                    gate = stack.back();
                    stack.pop_back();
                }
                break;
            case eSymbolR: {
                x = nextProvisional++;
                const uint32_t created = m_list.InsertAfter(gate, {x, k, eStatePlain, 0});
                m_list[gate].triangle = k;
                gate = created;
                break;
            }
            case eSymbolS:
                x = nextProvisional++;
                stack.push_back(m_list.InsertAfter(gate, {x, k, eStatePlain, 0}));
                break;
            case eSymbolSHole: {
                if (nextHole >= m_holeSizes.size()) fail(__LINE__);
                const uint32_t h = m_holeSizes[nextHole++];
                if (h < 3 || h > m_known - nextKnown) fail(__LINE__);
                x = nextKnown;
                nextKnown += h;
                m_list.InsertAfter(gate, {x, k, eStateHole, static_cast<int32_t>(h)});
                break;
            }
            case eSymbolSHandle:
                x = nextProvisional++;
                m_list.InsertAfter(gate, {x, k, eStateHandle, 0});
                break;
            default:
                fail(__LINE__);
            }
            m_out.triangles[k] = {s, e, x};
        }
        if (!done || nextKnown != m_known || nextHole != m_holeSizes.size()) fail(__LINE__);
        m_provisionalEnd = nextProvisional;
    }

    // Pairs every handle entry with the entry its offset points to (counted towards the
    // front of the zipped list), then glues each pair: the handle entry's edge and its
    // partner's are twins, so the partner's vertex meets the handle's successor and the
    // partner's successor meets the handle. The list is closed into a cycle while gluing;
    // each glue splits one cycle or joins two, and the cycle that keeps the tail (the start
    // boundary's closing edge, never part of a pair) is opened again right after it.
    void glueHandles() {
        const size_t handles = m_handleOffsets.size();
        struct SPending {
            uint64_t target;
            uint32_t entry;
            bool operator>(const SPending& o) const { return target > o.target; }
        };
        std::priority_queue<SPending, std::vector<SPending>, std::greater<SPending>> queue;
        std::vector<std::pair<uint32_t, uint32_t>> pairs;
        pairs.reserve(handles);
        size_t used = 0;
        uint64_t number = 1;
        for (uint32_t x = m_list.Tail(); x != c_None && (used < handles || !queue.empty()); x = m_list.Prev(x), ++number) {
            if (m_list[x].state == eStateHandle) {
                if (used >= handles) fail(__LINE__);
                queue.push({number + m_handleOffsets[used++], x});
            } else if (!queue.empty() && queue.top().target == number) {
                pairs.emplace_back(queue.top().entry, x);
                queue.pop();
            }
            if (!queue.empty() && queue.top().target <= number) fail(__LINE__);
        }
        if (used != handles || !queue.empty()) fail(__LINE__);
        if (pairs.empty()) return;

        const uint32_t tail = m_list.Tail();
        m_list.CloseCycle();
        for (const auto& [h, p] : pairs) {
            if (h == tail || p == tail) fail(__LINE__);
            const uint32_t a = m_list.Prev(h), b = m_list.Next(h);
            const uint32_t c = m_list.Prev(p), d = m_list.Next(p);
            if (b == p && d == h) {
                continue; // the pair closes a cycle of its own; nothing remains of it
            } else if (b == p) {
                identify(m_list[d], m_list[h]);
                m_list.Link(a, d);
            } else if (d == h) {
                identify(m_list[b], m_list[p]);
                m_list.Link(c, b);
            } else {
                identify(m_list[b], m_list[p]);
                identify(m_list[d], m_list[h]);
                m_list.Link(c, b);
                m_list.Link(a, d);
            }
            m_list[h].state = eStatePlain;
        }
        m_list.OpenAfter(tail);
    }

    void renumber(uint32_t entry, uint32_t index) {
        const uint32_t old = m_list[entry].vertex;
        if (old == index) return;
        if (old < m_known) fail(__LINE__); // a known vertex is never renumbered
        m_resolution[old] = index;
        m_list[entry].vertex = index;
    }

    // Each hole entry is left as the tip of a fold that nothing zipped, with the hole's
    // stretch right before it: number the stretch, cut it out, and zip the fold.
    void glueHoles() {
        auto action = [this](SBoundaryHalfEdge& y, SBoundaryHalfEdge& p) { identify(y, p); };
        uint32_t x = m_list.Head();
        while (x != c_None) {
            if (m_list[x].state != eStateHole) {
                x = m_list.Next(x);
                continue;
            }
            const uint32_t h = static_cast<uint32_t>(m_list[x].offset);
            const uint32_t k = m_list[x].triangle;
            if (k >= m_out.triangles.size()) fail(__LINE__);
            const uint32_t f = m_out.triangles[k][2];
            uint32_t y = m_list.Prev(x);
            for (uint32_t j = 0; j < h; ++j) {
                if (y == c_None) fail(__LINE__);
                renumber(y, j + 1 < h ? f + h - 1 - j : f);
                const uint32_t before = m_list.Prev(y);
                m_list.Remove(y);
                y = before;
            }
            const uint32_t p = m_list.Prev(x), after = m_list.Next(x);
            if (p == c_None || after == c_None) {
                m_list[x].state = eStatePlain;
                x = after;
                continue;
            }
            m_list.Remove(x);
            identify(m_list[after], m_list[p]);
            const uint32_t before = m_list.Prev(p);
            m_list.Remove(p);
            x = after;
            if (before != c_None && m_list[x].state == eStateCoded && m_list[before].state == eStatePlain)
                x = ZipFrom(m_list, x, action);
        }

        // The start boundary: known 1 and 0 are the two first entries; the rest lie between.
        const uint32_t s = m_holeSizes[0];
        const uint32_t head = m_list.Head();
        if (head == c_None) fail(__LINE__);
        uint32_t y = m_list.Next(head);
        for (uint32_t index = 2; index < s; ++index) {
            if (y == c_None) fail(__LINE__);
            renumber(y, index);
            y = m_list.Next(y);
        }
    }

    void resolve() {
        for (uint32_t u = m_known; u < m_provisionalEnd; ++u) m_resolution[u] = m_resolution[m_resolution[u]];
        for (uint32_t v = 0; v < m_known; ++v)
            if (m_resolution[v] != v) fail(__LINE__);
        for (auto& tri : m_out.triangles) {
            for (uint32_t& c : tri) {
                c = m_resolution[c];
                if (c >= m_known) fail(__LINE__);
            }
        }
    }

    // The triangle each vertex is predicted in, as the encoder chose it: a C vertex in its
    // own triangle, a loop's first vertex in the triangle that opened the loop, and every
    // later loop vertex in the triangle holding the edge from it to the loop vertex before.
    void findReferenceTriangles() {
        std::vector<uint32_t>& ref = m_out.vertexTriangle;
        ref.assign(m_known, c_None);
        std::vector<uint32_t> loopFirst(m_known, c_None);
        for (uint32_t v = 0; v < m_holeSizes[0]; ++v) loopFirst[v] = 0;
        ref[0] = 0;
        const uint32_t n = static_cast<uint32_t>(m_symbols.size());
        size_t nextHole = 1;
        for (uint32_t k = 0; k < n; ++k) {
            if (m_symbols[k] == eSymbolC) {
                ref[m_out.triangles[k][2]] = k;
            } else if (m_symbols[k] == eSymbolSHole) {
                // decodeClers checked that the hole's indices fit below K
                const uint32_t f = m_out.triangles[k][2], h = m_holeSizes[nextHole++];
                ref[f] = k;
                for (uint32_t v = f; v < f + h; ++v) loopFirst[v] = f;
            }
        }
        for (uint32_t t = 0; t < n; ++t) {
            const auto& c = m_out.triangles[t];
            for (int j = 0; j < 3; ++j) {
                const uint32_t p = c[j], q = c[(j + 1) % 3];
                if (p == q + 1 && loopFirst[p] != c_None && loopFirst[p] == loopFirst[q]) ref[p] = t;
            }
        }
        for (uint32_t v = 0; v < m_known; ++v)
            if (ref[v] == c_None) fail(__LINE__);
    }

    const std::vector<uint8_t>& m_symbols;
    const std::vector<uint32_t>& m_holeSizes;
    const std::vector<uint32_t>& m_handleOffsets;
    SDecodedComponent& m_out;
    const char* m_sourceFile;
    const char* m_function;
    uint32_t m_known = 0;
    uint32_t m_provisionalEnd = 0;
    std::vector<uint32_t> m_resolution;
    CBoundaryList m_list;
};

} // namespace

void DecodeComponent(const std::vector<uint8_t>& symbols, const std::vector<uint32_t>& holeSizes,
                     const std::vector<uint32_t>& handleOffsets, uint32_t maxVertices, SDecodedComponent& out,
                     const char* sourceFile, const char* function) {
    CDecoder decoder(symbols, holeSizes, handleOffsets, out, sourceFile, function);
    decoder.Run(maxVertices);
}

} // namespace VnConnectivity

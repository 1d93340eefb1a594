#pragma once
// Shared pieces of the connectivity coder of the compressed triangulation stream: the
// CLERS symbol codes, the active-boundary entry, the boundary list and its zipping.
//
// Both the encoder and the decoder keep the active boundary as a doubly linked list of
// half-edges: an entry stands for the edge from its vertex to the vertex of the entry
// after it (the last entry's edge closes back to the first). The list lives in one flat
// node array addressed by 32-bit positions, so a traversal of millions of triangles makes
// no allocation per step and removal never invalidates other positions.
#include <cstdint>
#include <vector>

namespace VnClers {

// Symbol codes. 5 and 6 exist in memory only: the written alphabet is 0..4, and the
// hole and handle splits travel as run lengths in the side tables.
enum ESymbol : uint8_t {
    eSymbolC = 0,
    eSymbolL = 1,
    eSymbolE = 2,
    eSymbolR = 3,
    eSymbolS = 4,
    eSymbolSHole = 5,
    eSymbolSHandle = 6,
};
constexpr uint32_t c_WrittenAlphabet = 5;

// Entry states.
enum EEntryState : uint32_t {
    eStatePlain = 0,
    eStateCoded = 1,  // made by a C: its vertex was coded at that step
    eStateHole = 2,   // made by a hole split
    eStateHandle = 3, // made by a split whose left branch was reached from the other side
};

constexpr uint32_t c_None = 0xFFFFFFFFu;

struct SBoundaryHalfEdge {
    uint32_t vertex = 0;
    uint32_t triangle = c_None;
    uint32_t state = eStatePlain;
    int32_t offset = 0;
};

class CBoundaryList {
public:
    void Clear() {
        m_nodes.clear();
        m_head = m_tail = c_None;
    }
    void Reserve(size_t n) { m_nodes.reserve(n); }

    uint32_t Head() const { return m_head; }
    uint32_t Tail() const { return m_tail; }
    uint32_t Next(uint32_t p) const { return m_nodes[p].next; }
    uint32_t Prev(uint32_t p) const { return m_nodes[p].prev; }
    SBoundaryHalfEdge& operator[](uint32_t p) { return m_nodes[p].entry; }
    const SBoundaryHalfEdge& operator[](uint32_t p) const { return m_nodes[p].entry; }
    // Number of positions ever handed out (live or removed).
    size_t Capacity() const { return m_nodes.size(); }

    uint32_t PushBack(const SBoundaryHalfEdge& e) {
        const uint32_t p = newNode(e);
        m_nodes[p].prev = m_tail;
        if (m_tail != c_None) m_nodes[m_tail].next = p;
        else m_head = p;
        m_tail = p;
        return p;
    }
    uint32_t InsertAfter(uint32_t at, const SBoundaryHalfEdge& e) {
        const uint32_t p = newNode(e);
        const uint32_t n = m_nodes[at].next;
        m_nodes[p].prev = at;
        m_nodes[p].next = n;
        m_nodes[at].next = p;
        if (n != c_None) m_nodes[n].prev = p;
        else m_tail = p;
        return p;
    }
    void Remove(uint32_t p) {
        const uint32_t a = m_nodes[p].prev, b = m_nodes[p].next;
        if (a != c_None) m_nodes[a].next = b;
        if (b != c_None) m_nodes[b].prev = a;
        if (m_head == p) m_head = b;
        if (m_tail == p) m_tail = a;
        m_nodes[p].prev = m_nodes[p].next = c_None;
    }
    // Raw relinking for the handle gluing, which works on the list closed into a cycle.
    void Link(uint32_t a, uint32_t b) {
        m_nodes[a].next = b;
        m_nodes[b].prev = a;
    }
    // Closes the list into a cycle (head and tail stay as they are).
    void CloseCycle() {
        if (m_head != c_None) Link(m_tail, m_head);
    }
    // Opens the cycle that holds `tail` right after it.
    void OpenAfter(uint32_t tail) {
        m_tail = tail;
        m_head = m_nodes[tail].next;
        m_nodes[m_head].prev = c_None;
        m_nodes[tail].next = c_None;
    }

private:
    struct SNode {
        SBoundaryHalfEdge entry;
        uint32_t prev = c_None;
        uint32_t next = c_None;
    };
    uint32_t newNode(const SBoundaryHalfEdge& e) {
        m_nodes.push_back(SNode{e, c_None, c_None});
        return static_cast<uint32_t>(m_nodes.size() - 1);
    }
    std::vector<SNode> m_nodes;
    uint32_t m_head = c_None;
    uint32_t m_tail = c_None;
};

// Zips a fold whose tip is `x` (state 1, after an entry in state 0) and goes on folding
// backwards while the pattern repeats. `action(Y, P)` identifies the vertices of the two
// entries that become one. Returns the entry from which a forward walk continues.
template <class Action> uint32_t ZipFrom(CBoundaryList& list, uint32_t x, Action&& action) {
    uint32_t p = list.Prev(x);
    for (;;) {
        const uint32_t y = list.Next(x);
        if (y == c_None) return x; // a fold tip at the end of the list has nothing to meet
        list.Remove(x);
        action(list[y], list[p]);
        const uint32_t before = list.Prev(p);
        list.Remove(p);
        x = y;
        p = before;
        if (p == c_None || list[x].state != eStateCoded || list[p].state != eStatePlain) return x;
    }
}

// Walks the list from its head and zips every fold it meets.
template <class Action> void ZipAll(CBoundaryList& list, Action&& action) {
    uint32_t p = list.Head();
    if (p == c_None) return;
    uint32_t x = list.Next(p);
    while (x != c_None) {
        if (list[x].state == eStateCoded && list[p].state == eStatePlain) {
            x = ZipFrom(list, x, action);
        }
        p = x;
        x = list.Next(x);
    }
}

} // namespace VnClers

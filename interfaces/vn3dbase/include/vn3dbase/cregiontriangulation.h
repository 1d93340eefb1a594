#pragma once
// Geometry::CRegionTriangulation: a subset of the elements of one slot array (triangles or
// vertices), one bit per slot. The set grows on demand, so a region can be filled before the
// mesh it describes is complete; slots never set read as outside.
#include <bit>
#include <cstdint>
#include <vector>

#include "vn3dbase/meshtypes.h"

namespace Geometry {

template <class Ref> class CRegionTriangulation {
public:
    CRegionTriangulation() = default;
    // Room for `slots` elements up front, all outside.
    explicit CRegionTriangulation(uint32_t slots) { m_words.reserve((size_t(slots) + 63) / 64); }

    void SetInside(Ref r, bool inside) {
        const uint32_t i = r.Index();
        const size_t word = i / 64;
        const uint64_t bit = uint64_t(1) << (i % 64);
        if (word >= m_words.size()) {
            if (!inside) return;
            m_words.resize(word + 1, 0);
        }
        const bool was = (m_words[word] & bit) != 0;
        if (was == inside) return;
        if (inside) {
            m_words[word] |= bit;
            ++m_count;
        } else {
            m_words[word] &= ~bit;
            --m_count;
        }
    }
    bool IsInside(Ref r) const {
        const uint32_t i = r.Index();
        const size_t word = i / 64;
        return word < m_words.size() && (m_words[word] >> (i % 64)) & 1u;
    }
    // Number of elements inside.
    uint32_t GetCount() const { return m_count; }
    bool IsEmpty() const { return m_count == 0; }
    void RemoveAll() {
        m_words.clear();
        m_count = 0;
    }
    // Calls f(Ref) for every element inside, in increasing index order.
    template <class F> void ForEachInside(F&& f) const {
        for (size_t w = 0; w < m_words.size(); ++w)
            for (uint64_t bits = m_words[w]; bits; bits &= bits - 1)
                f(Ref(static_cast<uint32_t>(w * 64 + static_cast<size_t>(std::countr_zero(bits)))));
    }
    friend bool operator==(const CRegionTriangulation& a, const CRegionTriangulation& b) {
        if (a.m_count != b.m_count) return false;
        const size_t n = a.m_words.size() < b.m_words.size() ? a.m_words.size() : b.m_words.size();
        for (size_t w = 0; w < n; ++w)
            if (a.m_words[w] != b.m_words[w]) return false;
        return true; // equal counts and equal common words leave the tails empty
    }

private:
    std::vector<uint64_t> m_words;
    uint32_t m_count = 0;
};

} // namespace Geometry

#pragma once
// Hash set that iterates in insertion order; a CbMap whose values carry nothing, so it
// shares the map's bucket table, node pool and ordering rules.
#include <cstddef>
#include <initializer_list>
#include <iterator>

#include "basepool/cbmap.h"

template <class T> class CbSet {
    using Map = CbMap<T, CbMapTypes::SEmpty>;

public:
    using value_type = T;

    // Throws CbExceptionContainer when `blockSize` is 0.
    explicit CbSet(unsigned int blockSize = Map::kDefaultBlockSize) : m_map(blockSize) {}
    CbSet(std::initializer_list<T> values) {
        for (const T& v : values) Add(v);
    }

    int GetCount() const { return m_map.GetCount(); }
    int GetSize() const { return m_map.GetCount(); }
    bool IsEmpty() const { return m_map.IsEmpty(); }
    void InitHashTable(size_t count) { m_map.InitHashTable(count); }

    // True when `v` was not in the set before.
    bool Add(const T& v) {
        int before = m_map.GetCount();
        m_map[v];
        return m_map.GetCount() != before;
    }
    bool Contains(const T& v) const { return m_map.Contains(v); }
    // True when `v` was in the set.
    bool Remove(const T& v) { return m_map.RemoveKey(v); }
    void RemoveAll() { m_map.RemoveAll(); }
    void Swap(CbSet& other) noexcept { m_map.Swap(other.m_map); }

    class const_iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const T*;
        using reference = const T&;
        const_iterator() = default;
        reference operator*() const { return m_it->first; }
        pointer operator->() const { return &m_it->first; }
        const_iterator& operator++() { ++m_it; return *this; }
        const_iterator operator++(int) { const_iterator t = *this; ++m_it; return t; }
        bool operator==(const const_iterator& o) const { return m_it == o.m_it; }

    private:
        friend class CbSet;
        explicit const_iterator(typename Map::const_iterator it) : m_it(it) {}
        typename Map::const_iterator m_it;
    };
    using iterator = const_iterator;
    const_iterator begin() const { return const_iterator(m_map.begin()); }
    const_iterator end() const { return const_iterator(m_map.end()); }

    friend bool operator==(const CbSet& a, const CbSet& b) {
        if (a.GetCount() != b.GetCount()) return false;
        for (const T& v : a)
            if (!b.Contains(v)) return false;
        return true;
    }

private:
    Map m_map;
};

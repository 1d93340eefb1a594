#pragma once
// Hash map that iterates in insertion order. The hash index is a power-of-two bucket
// table (bucket = hash & (tableSize - 1)) of singly linked chains; beside it every
// association sits in a doubly linked list in the order keys were first inserted, so
// file layouts that follow map order are deterministic. Associations come from a
// CbPlexManager through CbMapPolicyPlexManager. The table doubles when the count reaches
// its size, which keeps chains short (expected O(1) lookup, insert and removal).
//
// Re-assigning an existing key keeps its place in the order; removing and re-inserting a
// key moves it to the end.
//
//   for (auto& [key, value] : map) ...
#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>
#include <vector>

#include "basepool/cbhash.h"
#include "basepool/cbmappolicyplexmanager.h"
#include "basepool/cbposition.h"

template <class K, class V> class CbMap {
    using SAssociation = CbMapTypes::SAssociation<K, V>;

public:
    using Policy = CbMapPolicyPlexManager<K, V>;
    using key_type = K;
    using mapped_type = V;
    using value_type = std::pair<const K, V>;
    static constexpr unsigned int kDefaultBlockSize = 16;

    // Throws CbExceptionContainer when `blockSize` is 0.
    explicit CbMap(unsigned int blockSize = kDefaultBlockSize) : m_policy(blockSize) {}
    ~CbMap() { RemoveAll(); }
    CbMap(const CbMap& other) : m_policy(other.m_policy.GetBlockSize()) {
        InitHashTable(other.GetCount());
        for (const auto& kv : other) SetAt(kv.first, kv.second);
    }
    CbMap(CbMap&& other) noexcept : m_policy(other.m_policy.GetBlockSize()) { Swap(other); }
    CbMap& operator=(const CbMap& other) {
        if (this != &other) {
            CbMap copy(other);
            Swap(copy);
        }
        return *this;
    }
    CbMap& operator=(CbMap&& other) noexcept {
        if (this != &other) {
            RemoveAll();
            Swap(other);
        }
        return *this;
    }
    void Swap(CbMap& other) noexcept {
        m_policy.Swap(other.m_policy);
        m_buckets.swap(other.m_buckets);
        std::swap(m_head, other.m_head);
        std::swap(m_tail, other.m_tail);
        std::swap(m_count, other.m_count);
    }

    // The node allocation policy, e.g. to cap the pool's block count.
    Policy& GetPolicy() { return m_policy; }
    const Policy& GetPolicy() const { return m_policy; }

    int GetCount() const { return static_cast<int>(m_count); }
    int GetSize() const { return GetCount(); }
    bool IsEmpty() const { return m_count == 0; }
    // Current bucket count (0 before the first insertion, else a power of two).
    size_t GetHashTableSize() const { return m_buckets.size(); }
    // Sizes the table for about `count` keys up front; never shrinks it.
    void InitHashTable(size_t count) {
        size_t size = kMinBuckets;
        while (size < count) size *= 2;
        if (size > m_buckets.size()) rehash(size);
    }

    // Inserts or overwrites; returns the stored value.
    V& SetAt(const K& key, const V& value) { return findOrInsert(key).second = value; }
    V& SetAt(const K& key, V&& value) { return findOrInsert(key).second = std::move(value); }
    // The value of `key`, inserting a value-initialised one when absent.
    V& operator[](const K& key) { return findOrInsert(key).second; }

    bool Lookup(const K& key, V& value) const {
        const V* v = PLookup(key);
        if (v) value = *v;
        return v != nullptr;
    }
    V* PLookup(const K& key) {
        SAssociation* a = find(key, hashOf(key));
        return a ? &a->kv.second : nullptr;
    }
    const V* PLookup(const K& key) const { return const_cast<CbMap*>(this)->PLookup(key); }
    bool Contains(const K& key) const { return PLookup(key) != nullptr; }

    bool RemoveKey(const K& key) {
        if (m_buckets.empty()) return false;
        size_t h = hashOf(key);
        SAssociation** link = &m_buckets[h & (m_buckets.size() - 1)];
        for (SAssociation* a = *link; a; link = &a->nextInBucket, a = *link) {
            if (a->hash == h && a->kv.first == key) {
                *link = a->nextInBucket;
                (a->prev ? a->prev->next : m_head) = a->next;
                (a->next ? a->next->prev : m_tail) = a->prev;
                --m_count;
                m_policy.FreeAssociation(a);
                return true;
            }
        }
        return false;
    }
    // Removes every key and returns the node blocks and the table to the heap.
    void RemoveAll() {
        for (SAssociation* a = m_head; a;) {
            SAssociation* next = a->next;
            m_policy.FreeAssociation(a);
            a = next;
        }
        m_head = m_tail = nullptr;
        m_count = 0;
        m_policy.FreeAll();
        std::vector<SAssociation*>().swap(m_buckets);
    }

    // Position-style walk in insertion order.
    CbPosition GetStartPosition() const { return reinterpret_cast<CbPosition>(m_head); }
    void GetNextAssoc(CbPosition& pos, K& key, V& value) const {
        const SAssociation* a = reinterpret_cast<const SAssociation*>(pos);
        if (!a) throw CbExceptionPreconditionViolation("basepool/cbmap", __LINE__, "CbMap::GetNextAssoc");
        key = a->kv.first;
        value = a->kv.second;
        pos = reinterpret_cast<CbPosition>(a->next);
    }

    template <bool Const> class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = std::pair<const K, V>;
        using difference_type = std::ptrdiff_t;
        using pointer = std::conditional_t<Const, const value_type*, value_type*>;
        using reference = std::conditional_t<Const, const value_type&, value_type&>;
        Iterator() = default;
        // A mutable iterator converts to a const one.
        template <bool C = Const, std::enable_if_t<C, int> = 0> Iterator(const Iterator<false>& o) : m_node(o.m_node) {}
        reference operator*() const { return m_node->kv; }
        pointer operator->() const { return &m_node->kv; }
        Iterator& operator++() { m_node = m_node->next; return *this; }
        Iterator operator++(int) { Iterator t = *this; ++*this; return t; }
        bool operator==(const Iterator& o) const { return m_node == o.m_node; }

    private:
        friend class CbMap;
        template <bool> friend class Iterator;
        explicit Iterator(SAssociation* a) : m_node(a) {}
        SAssociation* m_node = nullptr;
    };
    using iterator = Iterator<false>;
    using const_iterator = Iterator<true>;
    iterator begin() { return iterator(m_head); }
    iterator end() { return iterator(nullptr); }
    const_iterator begin() const { return const_iterator(m_head); }
    const_iterator end() const { return const_iterator(nullptr); }
    // Iterator at `key`, or end().
    iterator find(const K& key) { return iterator(find(key, hashOf(key))); }
    const_iterator find(const K& key) const { return const_iterator(const_cast<CbMap*>(this)->find(key, hashOf(key))); }

private:
    static constexpr size_t kMinBuckets = 16;

    static size_t hashOf(const K& key) { return CbHash<K>{}(key); }

    SAssociation* find(const K& key, size_t h) const {
        if (m_buckets.empty()) return nullptr;
        for (SAssociation* a = m_buckets[h & (m_buckets.size() - 1)]; a; a = a->nextInBucket)
            if (a->hash == h && a->kv.first == key) return a;
        return nullptr;
    }

    value_type& findOrInsert(const K& key) {
        size_t h = hashOf(key);
        if (SAssociation* a = find(key, h)) return a->kv;
        if (m_count >= m_buckets.size()) rehash(m_buckets.empty() ? kMinBuckets : m_buckets.size() * 2);
        SAssociation* a = m_policy.NewAssociation(h, key);
        SAssociation*& bucket = m_buckets[h & (m_buckets.size() - 1)];
        a->nextInBucket = bucket;
        bucket = a;
        a->prev = m_tail;
        (m_tail ? m_tail->next : m_head) = a;
        m_tail = a;
        ++m_count;
        return a->kv;
    }

    // Rebuilds the chains for `size` buckets; the order list is untouched.
    void rehash(size_t size) {
        std::vector<SAssociation*> buckets(size, nullptr);
        for (SAssociation* a = m_head; a; a = a->next) {
            SAssociation*& bucket = buckets[a->hash & (size - 1)];
            a->nextInBucket = bucket;
            bucket = a;
        }
        m_buckets.swap(buckets);
    }

    Policy m_policy;
    std::vector<SAssociation*> m_buckets;
    SAssociation* m_head = nullptr;
    SAssociation* m_tail = nullptr;
    size_t m_count = 0;
};

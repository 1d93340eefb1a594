#pragma once
// Doubly linked list with opaque positions. A position stays valid until its element is
// removed, whatever else is inserted or removed. Nodes come from a CbPlexManager, so a
// long list costs one heap call per block of nodes rather than one per element.
//
//   for (CbPosition pos = list.GetHeadPosition(); pos;) { T& v = list.GetNext(pos); ... }
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <type_traits>
#include <utility>

#include "basepool/cbexception.h"
#include "basepool/cbplexmanager.h"
#include "basepool/cbposition.h"

namespace CbListTypes {
template <class T> struct SNode {
    template <class... Args> explicit SNode(Args&&... args) : value(std::forward<Args>(args)...) {}
    T value;
    SNode* prev = nullptr;
    SNode* next = nullptr;
};
} // namespace CbListTypes

template <class T> struct CbTypeName<CbListTypes::SNode<T>> {
    static std::string Get() { return "struct CbListTypes::SNode<" + CbTypeName<T>::Get() + ">"; }
};

namespace CbListDetail {
[[noreturn]] inline void throwPrecondition(uint32_t line, const char* function) {
    throw CbExceptionPreconditionViolation("basepool/cblist", line, function);
}
} // namespace CbListDetail

template <class T> class CbList {
    using SNode = CbListTypes::SNode<T>;
    using Plex = CbPlexManager<SNode, 0, 0, unsigned int>;

public:
    static constexpr unsigned int kDefaultBlockSize = 16;

    // Throws CbExceptionContainer when `blockSize` is 0.
    explicit CbList(unsigned int blockSize = kDefaultBlockSize) : m_plex(blockSize) {}
    CbList(std::initializer_list<T> values) : m_plex(kDefaultBlockSize) {
        for (const T& v : values) AddTail(v);
    }
    ~CbList() { RemoveAll(); }
    CbList(const CbList& other) : m_plex(other.m_plex.GetBlockSize()) {
        for (const T& v : other) AddTail(v);
    }
    CbList(CbList&& other) noexcept : m_plex(other.m_plex.GetBlockSize()) { Swap(other); }
    CbList& operator=(const CbList& other) {
        if (this != &other) {
            CbList copy(other);
            Swap(copy);
        }
        return *this;
    }
    CbList& operator=(CbList&& other) noexcept {
        if (this != &other) {
            RemoveAll();
            Swap(other);
        }
        return *this;
    }
    void Swap(CbList& other) noexcept {
        m_plex.Swap(other.m_plex);
        std::swap(m_head, other.m_head);
        std::swap(m_tail, other.m_tail);
        std::swap(m_count, other.m_count);
    }

    int GetCount() const { return static_cast<int>(m_count); }
    int GetSize() const { return GetCount(); }
    bool IsEmpty() const { return m_count == 0; }

    CbPosition AddHead(const T& v) { return insertNode(nullptr, m_head, v); }
    CbPosition AddHead(T&& v) { return insertNode(nullptr, m_head, std::move(v)); }
    CbPosition AddTail(const T& v) { return insertNode(m_tail, nullptr, v); }
    CbPosition AddTail(T&& v) { return insertNode(m_tail, nullptr, std::move(v)); }
    // A null `pos` inserts at the head (InsertBefore) or the tail (InsertAfter).
    CbPosition InsertBefore(CbPosition pos, const T& v) {
        SNode* n = node(pos);
        return n ? insertNode(n->prev, n, v) : AddHead(v);
    }
    CbPosition InsertAfter(CbPosition pos, const T& v) {
        SNode* n = node(pos);
        return n ? insertNode(n, n->next, v) : AddTail(v);
    }

    CbPosition GetHeadPosition() const { return position(m_head); }
    CbPosition GetTailPosition() const { return position(m_tail); }
    // Return the element at `pos` and move `pos` on (null after the last element).
    T& GetNext(CbPosition& pos) { return step(pos, true, "CbList::GetNext"); }
    const T& GetNext(CbPosition& pos) const { return const_cast<CbList*>(this)->step(pos, true, "CbList::GetNext"); }
    T& GetPrev(CbPosition& pos) { return step(pos, false, "CbList::GetPrev"); }
    const T& GetPrev(CbPosition& pos) const { return const_cast<CbList*>(this)->step(pos, false, "CbList::GetPrev"); }
    T& GetAt(CbPosition pos) { return checked(pos, "CbList::GetAt")->value; }
    const T& GetAt(CbPosition pos) const { return checked(pos, "CbList::GetAt")->value; }
    void SetAt(CbPosition pos, const T& v) { checked(pos, "CbList::SetAt")->value = v; }
    T& GetHead() { return nonEmpty(m_head, "CbList::GetHead")->value; }
    const T& GetHead() const { return nonEmpty(m_head, "CbList::GetHead")->value; }
    T& GetTail() { return nonEmpty(m_tail, "CbList::GetTail")->value; }
    const T& GetTail() const { return nonEmpty(m_tail, "CbList::GetTail")->value; }
    // Position of the first element equal to `v` at or after `start` (null: from the head).
    CbPosition Find(const T& v, CbPosition start = nullptr) const {
        for (SNode* n = start ? node(start) : m_head; n; n = n->next)
            if (n->value == v) return position(n);
        return nullptr;
    }

    // Removal throws CbExceptionPreconditionViolation on a null position or an empty list.
    void RemoveAt(CbPosition pos) { unlink(checked(pos, "CbList::RemoveAt")); }
    T RemoveHead() { return take(nonEmpty(m_head, "CbList::RemoveHead")); }
    T RemoveTail() { return take(nonEmpty(m_tail, "CbList::RemoveTail")); }
    void RemoveAll() {
        for (SNode* n = m_head; n;) {
            SNode* next = n->next;
            m_plex.Delete(n);
            n = next;
        }
        m_head = m_tail = nullptr;
        m_count = 0;
        m_plex.FreeAll();
    }

    template <bool Const> class Iterator {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = std::conditional_t<Const, const T*, T*>;
        using reference = std::conditional_t<Const, const T&, T&>;
        Iterator() = default;
        // A mutable iterator converts to a const one.
        template <bool C = Const, std::enable_if_t<C, int> = 0>
        Iterator(const Iterator<false>& o) : m_list(o.m_list), m_node(o.m_node) {}
        reference operator*() const { return m_node->value; }
        pointer operator->() const { return &m_node->value; }
        Iterator& operator++() { m_node = m_node->next; return *this; }
        Iterator operator++(int) { Iterator t = *this; ++*this; return t; }
        Iterator& operator--() { m_node = m_node ? m_node->prev : m_list->m_tail; return *this; }
        Iterator operator--(int) { Iterator t = *this; --*this; return t; }
        bool operator==(const Iterator& o) const { return m_node == o.m_node; }
        CbPosition GetPosition() const { return position(m_node); }

    private:
        friend class CbList;
        template <bool> friend class Iterator;
        Iterator(const CbList* list, SNode* n) : m_list(list), m_node(n) {}
        const CbList* m_list = nullptr;
        SNode* m_node = nullptr;
    };
    using iterator = Iterator<false>;
    using const_iterator = Iterator<true>;
    iterator begin() { return iterator(this, m_head); }
    iterator end() { return iterator(this, nullptr); }
    const_iterator begin() const { return const_iterator(this, m_head); }
    const_iterator end() const { return const_iterator(this, nullptr); }

private:
    static SNode* node(CbPosition pos) { return reinterpret_cast<SNode*>(pos); }
    static CbPosition position(SNode* n) { return reinterpret_cast<CbPosition>(n); }
    static SNode* checked(CbPosition pos, const char* function) {
        if (!pos) CbListDetail::throwPrecondition(__LINE__, function);
        return node(pos);
    }
    static SNode* nonEmpty(SNode* n, const char* function) {
        if (!n) CbListDetail::throwPrecondition(__LINE__, function);
        return n;
    }

    template <class V> CbPosition insertNode(SNode* prev, SNode* next, V&& v) {
        SNode* n = m_plex.New(std::forward<V>(v));
        n->prev = prev;
        n->next = next;
        (prev ? prev->next : m_head) = n;
        (next ? next->prev : m_tail) = n;
        ++m_count;
        return position(n);
    }
    T& step(CbPosition& pos, bool forward, const char* function) {
        SNode* n = checked(pos, function);
        pos = position(forward ? n->next : n->prev);
        return n->value;
    }
    void unlink(SNode* n) {
        (n->prev ? n->prev->next : m_head) = n->next;
        (n->next ? n->next->prev : m_tail) = n->prev;
        --m_count;
        m_plex.Delete(n);
    }
    T take(SNode* n) {
        T v = std::move(n->value);
        unlink(n);
        return v;
    }

    Plex m_plex;
    SNode* m_head = nullptr;
    SNode* m_tail = nullptr;
    size_t m_count = 0;
};

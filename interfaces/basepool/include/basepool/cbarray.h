#pragma once
// Growable array with int indices. operator[] is unchecked (asserted in debug builds) so
// that hot loops compile to plain indexing; the named accessors check their index and
// throw CbExceptionPreconditionViolation on a bad one.
#include <cassert>
#include <climits>
#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

#include "basepool/cbexception.h"

namespace CbArrayDetail {
[[noreturn]] inline void throwPrecondition(uint32_t line, const char* function) {
    throw CbExceptionPreconditionViolation("basepool/cbarray", line, function);
}
[[noreturn]] inline void throwContainer(uint32_t line, const char* function) {
    throw CbExceptionContainer("basepool/cbarray", line, function);
}
} // namespace CbArrayDetail

template <class T> class CbArray {
public:
    using value_type = T;
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    CbArray() = default;
    CbArray(std::initializer_list<T> values) : m_data(values) {}

    int GetSize() const { return static_cast<int>(m_data.size()); }
    int GetCount() const { return GetSize(); }
    int GetUpperBound() const { return GetSize() - 1; }
    bool IsEmpty() const { return m_data.empty(); }

    // New elements are value-initialised. `growBy` is accepted for source compatibility;
    // growth is geometric regardless.
    void SetSize(int n, int growBy = -1) {
        (void)growBy;
        if (n < 0) CbArrayDetail::throwPrecondition(__LINE__, "CbArray::SetSize");
        m_data.resize(static_cast<size_t>(n));
    }
    void Reserve(int n) {
        if (n < 0) CbArrayDetail::throwPrecondition(__LINE__, "CbArray::Reserve");
        m_data.reserve(static_cast<size_t>(n));
    }

    // Append and return the new element's index.
    int Add(const T& v) {
        checkRoom(1, "CbArray::Add");
        m_data.push_back(v);
        return GetSize() - 1;
    }
    int Add(T&& v) {
        checkRoom(1, "CbArray::Add");
        m_data.push_back(std::move(v));
        return GetSize() - 1;
    }
    // Appends all of `other`; returns the index of its first element here.
    int Append(const CbArray& other) {
        checkRoom(other.m_data.size(), "CbArray::Append");
        int first = GetSize();
        m_data.insert(m_data.end(), other.m_data.begin(), other.m_data.end());
        return first;
    }

    T& operator[](int i) {
        assert(i >= 0 && i < GetSize());
        return m_data[static_cast<size_t>(i)];
    }
    const T& operator[](int i) const {
        assert(i >= 0 && i < GetSize());
        return m_data[static_cast<size_t>(i)];
    }
    T& ElementAt(int i) { return m_data[checkIndex(i, "CbArray::ElementAt")]; }
    const T& GetAt(int i) const { return m_data[checkIndex(i, "CbArray::GetAt")]; }
    void SetAt(int i, const T& v) { m_data[checkIndex(i, "CbArray::SetAt")] = v; }
    void SetAt(int i, T&& v) { m_data[checkIndex(i, "CbArray::SetAt")] = std::move(v); }
    // Index i may equal GetSize() (append). Inserts `count` copies of `v`.
    void InsertAt(int i, const T& v, int count = 1) {
        if (i < 0 || i > GetSize() || count < 0) CbArrayDetail::throwPrecondition(__LINE__, "CbArray::InsertAt");
        checkRoom(static_cast<size_t>(count), "CbArray::InsertAt");
        m_data.insert(m_data.begin() + i, static_cast<size_t>(count), v);
    }
    // Removes `count` elements starting at i; the range must lie inside the array.
    void RemoveAt(int i, int count = 1) {
        if (i < 0 || count < 0 || count > GetSize() - i) CbArrayDetail::throwPrecondition(__LINE__, "CbArray::RemoveAt");
        m_data.erase(m_data.begin() + i, m_data.begin() + i + count);
    }
    void RemoveAll() { m_data.clear(); }
    // Releases capacity beyond the size.
    void FreeExtra() { m_data.shrink_to_fit(); }

    T* GetData() { return m_data.data(); }
    const T* GetData() const { return m_data.data(); }
    iterator begin() { return m_data.begin(); }
    iterator end() { return m_data.end(); }
    const_iterator begin() const { return m_data.begin(); }
    const_iterator end() const { return m_data.end(); }

    friend bool operator==(const CbArray& a, const CbArray& b) { return a.m_data == b.m_data; }

private:
    size_t checkIndex(int i, const char* function) const {
        if (i < 0 || i >= GetSize()) CbArrayDetail::throwPrecondition(__LINE__, function);
        return static_cast<size_t>(i);
    }
    // Sizes are ints; refuse growth that would overflow them.
    void checkRoom(size_t extra, const char* function) const {
        if (extra > static_cast<size_t>(INT_MAX) - m_data.size()) CbArrayDetail::throwContainer(__LINE__, function);
    }

    std::vector<T> m_data;
};

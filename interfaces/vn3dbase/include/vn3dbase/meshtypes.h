#pragma once
// Element handles and owning blocks of the mesh model.
#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace Geometry {

// The "end" position of an iteration, and the marker of a missing neighbour.
constexpr uint32_t c_IndexEnd = 0x80000000u;
constexpr uint32_t c_IndexInvalid = 0xFFFFFFFFu;

// Handles are unsigned 32-bit slot indices. Construction from an integer is explicit so
// that a vertex index is never taken for a triangle handle by accident.
class CVertexRef {
public:
    constexpr CVertexRef() = default;
    constexpr explicit CVertexRef(uint32_t index) : m_index(index) {}
    constexpr operator uint32_t() const { return m_index; }
    constexpr uint32_t Index() const { return m_index; }

private:
    uint32_t m_index = c_IndexEnd;
};

class CTriangleRef {
public:
    constexpr CTriangleRef() = default;
    constexpr explicit CTriangleRef(uint32_t index) : m_index(index) {}
    constexpr operator uint32_t() const { return m_index; }
    constexpr uint32_t Index() const { return m_index; }

private:
    uint32_t m_index = c_IndexEnd;
};

// Container numbers of the two attribute maps.
enum EAttributeContainer : int { eContainerVertex = 0, eContainerTriangle = 1 };

template <class Ref> struct SContainerOf;
template <> struct SContainerOf<CVertexRef> { static constexpr int value = eContainerVertex; };
template <> struct SContainerOf<CTriangleRef> { static constexpr int value = eContainerTriangle; };

// An owning block of elements by which whole arrays move into and out of a mesh.
template <class T> class SMemoryBlock {
public:
    SMemoryBlock() = default;
    explicit SMemoryBlock(std::vector<T> data) : m_data(std::move(data)) {}
    explicit SMemoryBlock(size_t count) : m_data(count) {}
    T* GetData() { return m_data.data(); }
    const T* GetData() const { return m_data.data(); }
    size_t GetCount() const { return m_data.size(); }
    std::vector<T>& Vector() { return m_data; }
    std::vector<T> Take() { return std::move(m_data); }

private:
    std::vector<T> m_data;
};

using STriangleCorners = std::array<uint32_t, 3>;

} // namespace Geometry

#pragma once
// A polyline whose points lie on the triangles of one mesh: each point is a triangle and the
// barycentric coordinates of the point in it (weights of corners 0, 1, 2), plus, for points
// that sit on a mesh vertex, that vertex (c_IndexInvalid otherwise).
//
// Serialised form: u32 point count, then per point u32 triangle, 3 x f32 coordinates,
// u32 mesh vertex. Reading checks the count against the bytes left and every triangle
// against the bound mesh's triangle count, and throws CbExceptionStream.
#include <array>
#include <cstdint>
#include <vector>

#include "basepool/cbstreambinary.h"
#include "vn3dbase/ctriangulation.h"

class VnBarycentricCoordinates {
public:
    constexpr VnBarycentricCoordinates() = default;
    constexpr VnBarycentricCoordinates(float c0, float c1, float c2) : m_c{c0, c1, c2} {}
    constexpr float operator[](int k) const { return m_c[k]; }
    constexpr float& operator[](int k) { return m_c[k]; }
    // Renames the corners so that old corner r becomes corner 0: c'[j] = c[(j + r) mod 3].
    // Used when a triangle is stored starting at its corner r.
    void Rotate(int r);
    friend bool operator==(const VnBarycentricCoordinates&, const VnBarycentricCoordinates&) = default;

private:
    std::array<float, 3> m_c{1.f, 0.f, 0.f};
};

class VnPolylineTriangulation {
public:
    struct SPoint {
        Geometry::CTriangleRef triangle;
        VnBarycentricCoordinates coordinates;
        uint32_t vertex = Geometry::c_IndexInvalid;
        friend bool operator==(const SPoint&, const SPoint&) = default;
    };

    VnPolylineTriangulation() = default;
    explicit VnPolylineTriangulation(const Geometry::CTriangulation& mesh) : m_mesh(&mesh) {}

    // Binds the polyline to a mesh; the flag is accepted for compatibility.
    void SetTriangulation(const Geometry::CTriangulation* mesh, bool flag = false);
    const Geometry::CTriangulation* getCTriangulation() const { return m_mesh; }
    // Removes every point; the mesh binding stays.
    void Reset() { m_points.clear(); }

    uint32_t GetVertexCount() const { return static_cast<uint32_t>(m_points.size()); }
    void AddVertex(Geometry::CTriangleRef t, const VnBarycentricCoordinates& c, uint32_t vertex = Geometry::c_IndexInvalid) {
        m_points.push_back({t, c, vertex});
    }
    // Index arguments must be below GetVertexCount (CbExceptionPreconditionViolation).
    Geometry::CTriangleRef GetTriangle(uint32_t i) const { return at(i).triangle; }
    void SetTriangle(uint32_t i, Geometry::CTriangleRef t) { at(i).triangle = t; }
    const VnBarycentricCoordinates& GetBarycentricCoordinates(uint32_t i) const { return at(i).coordinates; }
    void SetBarycentricCoordinates(uint32_t i, const VnBarycentricCoordinates& c) { at(i).coordinates = c; }
    uint32_t GetTriangulationVertex(uint32_t i) const { return at(i).vertex; }
    void SetTriangulationVertex(uint32_t i, uint32_t vertex) { at(i).vertex = vertex; }
    const std::vector<SPoint>& GetPoints() const { return m_points; }
    // Reverses the order of the points.
    void ReverseDirection();

    void Serialize(CbStreamWriteBinary& stream) const;
    // Replaces the points by those read; on failure the polyline is left empty.
    void Serialize(CbStreamReadBinary& stream);

private:
    SPoint& at(uint32_t i);
    const SPoint& at(uint32_t i) const { return const_cast<VnPolylineTriangulation*>(this)->at(i); }

    const Geometry::CTriangulation* m_mesh = nullptr;
    std::vector<SPoint> m_points;
};

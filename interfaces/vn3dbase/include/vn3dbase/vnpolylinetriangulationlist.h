#pragma once
// An ordered list of polylines on one mesh. Positions follow the list idiom of the
// containers: a position is 0 past the end, GetNext returns the element and advances.
#include <deque>

#include "vn3dbase/vnpolylinetriangulation.h"

class VnPolylineTriangulationList {
public:
    using POSITION = size_t;

    VnPolylineTriangulationList() = default;
    explicit VnPolylineTriangulationList(const Geometry::CTriangulation& mesh) : m_mesh(&mesh) {}

    // Binds the list (and, when `bindPolylines` is set, every polyline in it) to a mesh.
    void SetTriangulation(const Geometry::CTriangulation* mesh, bool bindPolylines = true);
    const Geometry::CTriangulation* GetTriangulation() const { return m_mesh; }
    const Geometry::CTriangulation* getCTriangulation() const { return m_mesh; }

    // Appends a polyline bound to the list's mesh and returns it.
    VnPolylineTriangulation& AddTail();
    VnPolylineTriangulation& AddTail(const VnPolylineTriangulation& polyline);
    void RemoveAll() { m_items.clear(); }
    uint32_t GetCount() const { return static_cast<uint32_t>(m_items.size()); }
    bool IsEmpty() const { return m_items.empty(); }
    // Index must be below GetCount (CbExceptionPreconditionViolation).
    VnPolylineTriangulation& GetAt(uint32_t i);
    const VnPolylineTriangulation& GetAt(uint32_t i) const { return const_cast<VnPolylineTriangulationList*>(this)->GetAt(i); }

    POSITION GetHeadPosition() const { return m_items.empty() ? 0 : 1; }
    POSITION GetTailPosition() const { return m_items.size(); }
    VnPolylineTriangulation& GetNext(POSITION& pos);
    const VnPolylineTriangulation& GetNext(POSITION& pos) const { return const_cast<VnPolylineTriangulationList*>(this)->GetNext(pos); }

    std::deque<VnPolylineTriangulation>::iterator begin() { return m_items.begin(); }
    std::deque<VnPolylineTriangulation>::iterator end() { return m_items.end(); }
    std::deque<VnPolylineTriangulation>::const_iterator begin() const { return m_items.begin(); }
    std::deque<VnPolylineTriangulation>::const_iterator end() const { return m_items.end(); }

private:
    const Geometry::CTriangulation* m_mesh = nullptr;
    std::deque<VnPolylineTriangulation> m_items; // stable addresses on append
};

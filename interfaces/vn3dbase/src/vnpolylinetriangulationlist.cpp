#include "vn3dbase/vnpolylinetriangulationlist.h"

namespace {
constexpr const char* kSource = "vnlibraries/vn3dbase/vnpolylinetriangulationlist";
} // namespace

void VnPolylineTriangulationList::SetTriangulation(const Geometry::CTriangulation* mesh, bool bindPolylines) {
    m_mesh = mesh;
    if (bindPolylines)
        for (VnPolylineTriangulation& p : m_items) p.SetTriangulation(mesh, false);
}

VnPolylineTriangulation& VnPolylineTriangulationList::AddTail() {
    m_items.emplace_back();
    m_items.back().SetTriangulation(m_mesh, false);
    return m_items.back();
}

VnPolylineTriangulation& VnPolylineTriangulationList::AddTail(const VnPolylineTriangulation& polyline) {
    m_items.push_back(polyline);
    return m_items.back();
}

VnPolylineTriangulation& VnPolylineTriangulationList::GetAt(uint32_t i) {
    if (i >= m_items.size()) throw CbExceptionPreconditionViolation(kSource, __LINE__, "VnPolylineTriangulationList::GetAt");
    return m_items[i];
}

VnPolylineTriangulation& VnPolylineTriangulationList::GetNext(POSITION& pos) {
    if (pos == 0 || pos > m_items.size())
        throw CbExceptionPreconditionViolation(kSource, __LINE__, "VnPolylineTriangulationList::GetNext");
    VnPolylineTriangulation& item = m_items[pos - 1];
    pos = pos < m_items.size() ? pos + 1 : 0;
    return item;
}

#include "vn3dbase/vnmptriangulationnormals.h"

#include <cfloat>
#include <cmath>
#include <vector>

using namespace Geometry;

CbVector3f VnMpTriangulationNormals::FacetNormal(const CbVector3f& p0, const CbVector3f& p1, const CbVector3f& p2) {
    CbVector3f n = (p1 - p0).Cross(p2 - p0);
    float len2 = n.Dot(n);
    if (!(len2 > FLT_MIN)) return CbVector3f();
    float len = std::sqrt(len2);
    return CbVector3f(n.x / len, n.y / len, n.z / len);
}

bool VnMpTriangulationNormals::compute(uint32_t) {
    if (!m_mesh) return false;
    CTriangulation& mesh = *m_mesh;
    const uint32_t nv = mesh.GetVertexSlotCount();
    const CbVector3f* p = mesh.GetPositions();
    if ((m_flags & eFlagTriangleNormals) && m_triangle) {
        for (CTriangleRef t : mesh.Triangles()) {
            const auto& c = mesh.GetCorners(t);
            if (c[0] < nv && c[1] < nv && c[2] < nv) m_triangle[t] = FacetNormal(p[c[0]], p[c[1]], p[c[2]]);
        }
    }
    if ((m_flags & eFlagVertexNormals) && m_vertex) {
        std::vector<CbVector3f> sum(nv);
        for (CTriangleRef t : mesh.Triangles()) {
            const auto& c = mesh.GetCorners(t);
            if (c[0] >= nv || c[1] >= nv || c[2] >= nv) continue;
            CbVector3f n = (p[c[1]] - p[c[0]]).Cross(p[c[2]] - p[c[0]]);
            sum[c[0]] += n;
            sum[c[1]] += n;
            sum[c[2]] += n;
        }
        for (CVertexRef v : mesh.Vertices()) {
            const CbVector3f& s = sum[v];
            float len2 = s.Dot(s);
            if (len2 > FLT_MIN && std::isfinite(len2)) {
                float len = std::sqrt(len2);
                m_vertex[v] = CbVector3f(s.x / len, s.y / len, s.z / len);
            } else if (std::isfinite(len2)) {
                m_vertex[v] = CbVector3f();
            } else {
                // Huge coordinates overflow the squared length; normalise in double.
                double l = std::sqrt(double(s.x) * s.x + double(s.y) * s.y + double(s.z) * s.z);
                m_vertex[v] = std::isfinite(l) && l > 0 ? CbVector3f(float(s.x / l), float(s.y / l), float(s.z / l)) : CbVector3f();
            }
        }
    }
    return true;
}

bool VnMpTriangulationNormals::Compute(CTriangulation& mesh) {
    VnMpTriangulationNormals algo;
    algo.SetInput(mesh, GetOrCreateAttribute<CVertexRef, CbVector3f>(mesh, "normal"),
                  GetOrCreateAttribute<CTriangleRef, CbVector3f>(mesh, "normal"));
    algo.SetFlags(eFlagVertexNormals | eFlagTriangleNormals);
    return algo.Compute(eComputeDefault);
}

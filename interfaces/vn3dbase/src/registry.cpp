#include "vn3dbase/registry.h"

#include <cfloat>
#include <cstring>

#include "vnbase/vncolor.h"

namespace Geometry {

namespace {
template <class T> std::vector<uint8_t> bytesOf(const T& v) {
    std::vector<uint8_t> b(sizeof(T));
    std::memcpy(b.data(), &v, sizeof(T));
    return b;
}

template <class T> SAttributeData entry(const char* name, int container, const T& def, bool serialize) {
    return SAttributeData{name, container, &typeid(T), sizeof(T), bytesOf(def), serialize};
}

std::vector<SAttributeData> makeTable() {
    const int V = eContainerVertex, T = eContainerTriangle;
    std::vector<SAttributeData> t;
    // Vertex attributes.
    t.push_back(entry("normal", V, CbVector3f(), true));
    t.push_back(entry("color", V, VnColorRGBA(255, 255, 255, 255), true));
    t.push_back(entry("parameters", V, CbVector2f(), false));
    t.push_back(entry("deformEnergy", V, 0.f, false));
    t.push_back(entry("normalMapConfidence", V, 0.f, false));
    t.push_back(entry("positionInterpolated", V, CbVector3f(), false));
    t.push_back(entry("normalInterpolated", V, CbVector3f(), false));
    t.push_back(entry("component", V, 0u, false));
    t.push_back(entry("attributes", V, 0u, false));
    t.push_back(entry("featureLabels", V, 0u, false));
    t.push_back(entry("region", V, 0u, false));
    // Triangle attributes. No float or two-float triangle attribute is registered: the
    // compressed stream cannot read those back symmetrically.
    t.push_back(entry("normal", T, CbVector3f(), true));
    t.push_back(entry("triangleType", T, 0u, true));
    t.push_back(entry("component", T, 0u, false));
    t.push_back(entry("attributes", T, 0u, false));
    t.push_back(entry("normalSet", T, 0u, false));
    t.push_back(entry("region", T, 0u, false));
    t.push_back(entry(CAttributeConfigurationTriangleParameters::GetId(), T,
                      CAttributeConfigurationTriangleParameters::NoTexture(), true));
    return t;
}
} // namespace

CAttributeConfigurationTriangleParameters::value_type CAttributeConfigurationTriangleParameters::NoTexture() {
    value_type v;
    for (auto& c : v) c = CbVector2f(FLT_MAX, FLT_MAX);
    return v;
}

const std::vector<SAttributeData>& CTriangulationConfigurationRegistry::GetAll() {
    static const std::vector<SAttributeData> table = makeTable();
    return table;
}

const SAttributeData* CTriangulationConfigurationRegistry::Get(int container, std::string_view name) {
    for (const SAttributeData& d : GetAll())
        if (d.container == container && name == d.name) return &d;
    return nullptr;
}

} // namespace Geometry

#include "vn3dbase/vntriangulationbase.h"

#include <array>
#include <cstring>
#include <memory>

#include "basepool/cbexception.h"
#include "vn3dbase/ctriangulationserializer.h"
#include "vn3dbase/registry.h"
#include "vn3dbase/vnmptriangulationnormals.h"
#include "vn3dbase/vntriangulationdynamic.h"

using Geometry::CTriangleRef;
using Geometry::CVertexRef;

namespace {

constexpr const char* kSource = "vnlibraries/vn3dbase/vntriangulationbase";

[[noreturn]] void throwPrecondition(uint32_t line, const char* function) {
    throw CbExceptionPreconditionViolation(kSource, line, function);
}

constexpr const char* kFixedNames[VnTriangulationBase::eAttributeCount] = {
    "component", "triangleType", "normalSet", "region", "normal", "parameters", "triangleQuality", "attributes"};

const char* kParameters = "parameters";
const char* kFeatureLabels = "featureLabels";

void checkFixed(VnTriangulationBase::EAvailableTriangleAttributes a, const char* function) {
    if (a >= VnTriangulationBase::eAttributeCount) throwPrecondition(__LINE__, function);
}

// The registered default of a vertex attribute, or zero.
template <class T> T registeredDefault(const char* name) {
    T value{};
    if (const Geometry::SAttributeData* reg = Geometry::CTriangulationConfigurationRegistry::Get(Geometry::eContainerVertex, name))
        if (reg->defaultValue.size() == sizeof(T)) std::memcpy(&value, reg->defaultValue.data(), sizeof(T));
    return value;
}

} // namespace

const VnRuntimeClass& VnTriangulationBase::RTTI() {
    static const VnRuntimeClass c{L"VnTriangulationBase", nullptr};
    return c;
}

const VnRuntimeClass& VnTriangulationDynamic::RTTI() {
    static const VnRuntimeClass c{L"VnTriangulationDynamic", &VnTriangulationBase::RTTI()};
    return c;
}

VnTriangulationDynamic::VnTriangulationDynamic(uint32_t initialCapacity) {
    m_mesh.ReserveVertices(initialCapacity);
    m_mesh.ReserveTriangles(initialCapacity);
}

VnTriangulationDynamic::VnTriangulationDynamic(const VnTriangulationDynamic& other)
    : VnTriangulationBase(other), m_mesh(other.m_mesh) {}

VnTriangulationDynamic& VnTriangulationDynamic::operator=(const VnTriangulationDynamic& other) {
    VnTriangulationBase::operator=(other);
    return *this;
}

VnTriangulationBase& VnTriangulationBase::operator=(const VnTriangulationBase& other) {
    if (this != &other) {
        triangulation() = other.triangulation();
        invalidateIndices();
    }
    return *this;
}

size_t VnTriangulationBase::GetMemoryUsage() const {
    const Geometry::CTriangulation& m = mesh();
    size_t bytes = sizeof(*this) + size_t(m.GetVertexSlotCount()) * sizeof(CbVector3f) +
                   size_t(m.GetTriangleSlotCount()) * sizeof(Geometry::STriangleCorners);
    if (m.HasAdjacency()) bytes += m.GetAdjacency().size() * sizeof(Geometry::STriangleCorners);
    for (int c = 0; c < 2; ++c)
        for (const Geometry::SAttributeEntry* e : m.GetAttributes(c)) bytes += e->data.size();
    return bytes + (m_vertexIndices.size() + m_triangleIndices.size()) * sizeof(uint32_t);
}

// ---- dense indices ----

void VnTriangulationBase::CreateVertexIndices() {
    const Geometry::CTriangulation& m = mesh();
    m_vertexIndices.clear();
    if (m.GetVertexCount() != m.GetVertexSlotCount()) m_vertexIndices = m.ComputeDenseVertexIndices();
    m_vertexIndicesFor = m.GetVertexCount();
}

void VnTriangulationBase::CreateTriangleIndices() {
    const Geometry::CTriangulation& m = mesh();
    m_triangleIndices.clear();
    if (m.GetTriangleCount() != m.GetTriangleSlotCount()) m_triangleIndices = m.ComputeDenseTriangleIndices();
    m_triangleIndicesFor = m.GetTriangleCount();
}

bool VnTriangulationBase::IsVertexIndicesAccurate() const {
    const Geometry::CTriangulation& m = mesh();
    // Any addition changes the slot count and any removal the live count, so a table built
    // for exactly these counts is still the rank table.
    return m.GetVertexCount() == m.GetVertexSlotCount() ||
           (m_vertexIndices.size() == m.GetVertexSlotCount() && m_vertexIndicesFor == m.GetVertexCount());
}

bool VnTriangulationBase::IsTriangleIndicesAccurate() const {
    const Geometry::CTriangulation& m = mesh();
    return m.GetTriangleCount() == m.GetTriangleSlotCount() ||
           (m_triangleIndices.size() == m.GetTriangleSlotCount() && m_triangleIndicesFor == m.GetTriangleCount());
}

uint32_t VnTriangulationBase::GetVertexIndex(CVertexRef v) const {
    if (!mesh().IsVertexLive(v) || !IsVertexIndicesAccurate()) throwPrecondition(__LINE__, "VnTriangulationBase::GetVertexIndex");
    return m_vertexIndices.empty() ? v.Index() : m_vertexIndices[v];
}

uint32_t VnTriangulationBase::GetTriangleIndex(CTriangleRef t) const {
    if (!mesh().IsTriangleLive(t) || !IsTriangleIndicesAccurate())
        throwPrecondition(__LINE__, "VnTriangulationBase::GetTriangleIndex");
    return m_triangleIndices.empty() ? t.Index() : m_triangleIndices[t];
}

// ---- geometry and editing ----

void VnTriangulationBase::SetTriangle(CTriangleRef t, CVertexRef v0, CVertexRef v1, CVertexRef v2) {
    triangulation().SetCorners(t, v0, v1, v2);
}

int VnTriangulationBase::GetVertexIndexInTriangle(CTriangleRef t, CVertexRef v) const {
    const Geometry::STriangleCorners& c = mesh().GetCorners(t);
    for (int k = 0; k < 3; ++k)
        if (c[k] == v.Index()) return k;
    return -1;
}

void VnTriangulationBase::RemoveVertex(CVertexRef v) { triangulation().RemoveVertex(v); }
void VnTriangulationBase::RemoveTriangle(CTriangleRef t) { triangulation().RemoveTriangle(t); }

void VnTriangulationBase::RemoveVertices(const std::vector<CVertexRef>& vertices) {
    for (CVertexRef v : vertices) triangulation().RemoveVertex(v);
}

void VnTriangulationBase::RemoveTriangles(const std::vector<CTriangleRef>& triangles) {
    for (CTriangleRef t : triangles) triangulation().RemoveTriangle(t);
}

void VnTriangulationBase::Reset() {
    triangulation().Reset();
    invalidateIndices();
}

// ---- normals ----

bool VnTriangulationBase::ComputeNormals(uint32_t flags) {
    uint32_t run = 0;
    if (flags & eNormalsVertex) run |= VnMpTriangulationNormals::eFlagVertexNormals;
    if (flags & eNormalsTriangle) run |= VnMpTriangulationNormals::eFlagTriangleNormals;
    if (!run) return false;
    Geometry::CTriangulation& m = triangulation();
    VnMpTriangulationNormals normals;
    normals.SetInput(m, AssertVertexAttribute<CbVector3f>("normal"), AssertTriangleAttribute<CbVector3f>("normal"));
    normals.SetFlags(run);
    return normals.Compute();
}

CbVector3f VnTriangulationBase::ComputeNormal(CTriangleRef t) const {
    const Geometry::STriangleCorners& c = mesh().GetCorners(t);
    return VnMpTriangulationNormals::FacetNormal(mesh().GetPosition(CVertexRef(c[0])), mesh().GetPosition(CVertexRef(c[1])),
                                                 mesh().GetPosition(CVertexRef(c[2])));
}

// ---- parameters and feature labels ----

CbVector2f VnTriangulationBase::GetParameters(CVertexRef v) const {
    auto h = GetVertexAttribute<const CbVector2f>(kParameters);
    return h ? h[v] : registeredDefault<CbVector2f>(kParameters);
}

void VnTriangulationBase::SetParameters(CVertexRef v, const CbVector2f& uv) { AssertVertexAttribute<CbVector2f>(kParameters)[v] = uv; }
void VnTriangulationBase::SetParameterU(CVertexRef v, float u) { AssertVertexAttribute<CbVector2f>(kParameters)[v].x = u; }
void VnTriangulationBase::SetParameterV(CVertexRef v, float value) { AssertVertexAttribute<CbVector2f>(kParameters)[v].y = value; }

uint32_t VnTriangulationBase::GetFeatureLabels(CVertexRef v) const {
    auto h = GetVertexAttribute<const unsigned int>(kFeatureLabels);
    return h ? h[v] : registeredDefault<uint32_t>(kFeatureLabels);
}

void VnTriangulationBase::SetFeatureLabels(CVertexRef v, uint32_t labels) {
    AssertVertexAttribute<unsigned int>(kFeatureLabels)[v] = labels;
}

void VnTriangulationBase::AddFeatureLabels(CVertexRef v, uint32_t labels) {
    AssertVertexAttribute<unsigned int>(kFeatureLabels)[v] |= labels;
}

// ---- named attributes ----

std::vector<std::string> VnTriangulationBase::GetAttributes(int container) const {
    std::vector<std::string> names;
    for (const Geometry::SAttributeEntry* e : mesh().GetAttributes(container)) names.push_back(e->name);
    return names;
}

bool VnTriangulationBase::IsSerialize(int container, std::string_view name) const {
    const Geometry::SAttributeEntry* e = mesh().FindAttribute(container, name);
    return e && e->serialize;
}

void VnTriangulationBase::RemoveVertexAttributes() {
    for (const std::string& name : GetAttributes(Geometry::eContainerVertex))
        triangulation().RemoveAttribute(Geometry::eContainerVertex, name);
}

void VnTriangulationBase::RemoveTriangleAttributes() {
    for (const std::string& name : GetAttributes(Geometry::eContainerTriangle))
        triangulation().RemoveAttribute(Geometry::eContainerTriangle, name);
}

// ---- fixed triangle attributes ----

const char* VnTriangulationBase::getAttributeName(EAvailableTriangleAttributes attribute) {
    checkFixed(attribute, "VnTriangulationBase::getAttributeName");
    return kFixedNames[attribute];
}

void VnTriangulationBase::AssertAttribute(EAvailableTriangleAttributes attribute) {
    checkFixed(attribute, "VnTriangulationBase::AssertAttribute");
    const char* name = kFixedNames[attribute];
    switch (attribute) {
    case eAttributeNormal: AssertTriangleAttribute<CbVector3f>(name); break;
    case eAttributeParameters: AssertTriangleAttribute<std::array<CbVector2f, 3>>(name); break;
    case eAttributeTriangleQuality: AssertTriangleAttribute<float>(name); break;
    default: AssertTriangleAttribute<unsigned int>(name); break;
    }
}

bool VnTriangulationBase::HasAttribute(EAvailableTriangleAttributes attribute) const {
    checkFixed(attribute, "VnTriangulationBase::HasAttribute");
    return HasAttribute(Geometry::eContainerTriangle, kFixedNames[attribute]);
}

bool VnTriangulationBase::DestroyAttribute(EAvailableTriangleAttributes attribute) {
    checkFixed(attribute, "VnTriangulationBase::DestroyAttribute");
    return DestroyAttribute(Geometry::eContainerTriangle, kFixedNames[attribute]);
}

bool VnTriangulationBase::IsSerializable(EAvailableTriangleAttributes attribute) const {
    checkFixed(attribute, "VnTriangulationBase::IsSerializable");
    return IsSerialize(Geometry::eContainerTriangle, kFixedNames[attribute]);
}

void VnTriangulationBase::SetSerializable(EAvailableTriangleAttributes attribute, bool flag) {
    checkFixed(attribute, "VnTriangulationBase::SetSerializable");
    SetSerialize(Geometry::eContainerTriangle, kFixedNames[attribute], flag);
}

// ---- native serialisation ----

void VnTriangulationBase::Serialize(CbStreamWriteBinary& stream) const {
    Geometry::CTriangulation_Serializer::Serialize(stream, mesh());
}

void VnTriangulationBase::Serialize(CbStreamReadBinary& stream) {
    std::unique_ptr<Geometry::CTriangulation> read = Geometry::CTriangulation_Serializer::Serialize(stream);
    triangulation() = std::move(*read);
    invalidateIndices();
}

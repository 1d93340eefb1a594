#pragma once
// Typed views of one named attribute, and the get-or-create step every format uses.
//
// A handle holds the attribute entry (or nothing) and gives element access by handle.
// Building one checks that the entry's element size is sizeof(T) and, when the entry
// records a type, that it is T; otherwise CbExceptionPreconditionViolation is thrown from
// "vnlibraries/vn3dbase/geometry/cattributehandle", line 69, with the full function name
// ("Geometry::CAttributeHandle<class Geometry::CTriangleRef,class CbVector3f>::CAttributeHandle").
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "basepool/cbexception.h"
#include "vn3dbase/attributetypename.h"
#include "vn3dbase/ctriangulation.h"
#include "vn3dbase/registry.h"

namespace Geometry {

template <class Ref, class T> class CAttributeHandle {
public:
    using value_type = T;
    using element_type = std::remove_const_t<T>;

    CAttributeHandle() = default;
    CAttributeHandle(std::nullptr_t) {}
    explicit CAttributeHandle(const SAttributeEntry* entry) : m_entry(const_cast<SAttributeEntry*>(entry)) { check(); }
    // A writable view converts to a read-only one.
    template <class U, class = std::enable_if_t<std::is_same_v<const U, T> && !std::is_same_v<U, T>>>
    CAttributeHandle(const CAttributeHandle<Ref, U>& other) : m_entry(other.GetEntry()) {}

    bool IsNull() const { return m_entry == nullptr; }
    explicit operator bool() const { return m_entry != nullptr; }
    T& operator[](Ref r) const { return GetData()[r.Index()]; }
    T* GetData() const { return reinterpret_cast<T*>(m_entry->data.data()); }
    SAttributeEntry* GetEntry() const { return m_entry; }
    const CTriangulation* GetTriangulation() const { return m_entry ? m_entry->mesh : nullptr; }
    bool BelongsTo(const CTriangulation& mesh) const { return m_entry && m_entry->mesh == &mesh; }
    const std::string& GetName() const { return m_entry->name; }

    static std::string FunctionName() {
        return "Geometry::CAttributeHandle<" + STypeSpelling<Ref>::Get() + "," + STypeSpelling<T>::Get() +
               ">::CAttributeHandle";
    }

private:
    void check() const {
        if (!m_entry) return;
        if (m_entry->elementSize != sizeof(element_type) || (m_entry->type && *m_entry->type != typeid(element_type))) {
            std::string fn = FunctionName();
            throw CbExceptionPreconditionViolation("vnlibraries/vn3dbase/geometry/cattributehandle", 69, fn.c_str());
        }
    }
    SAttributeEntry* m_entry = nullptr;
};

template <class T> using CVertexAttribute = CAttributeHandle<CVertexRef, T>;
template <class T> using CTriangleAttribute = CAttributeHandle<CTriangleRef, T>;

// The handle of an existing attribute, or a null handle when the mesh has none of that
// name. The size and type checks apply when it exists.
template <class Ref, class T> CAttributeHandle<Ref, T> FindAttribute(const CTriangulation& mesh, std::string_view name) {
    return CAttributeHandle<Ref, T>(mesh.FindAttribute(SContainerOf<Ref>::value, name));
}

// Get-or-create: reuses an attribute of that name (checks apply), or creates it with the
// element size and type of T, default value and serialize flag from the registry when the
// name is registered for this container (else zero bytes and false), and connects it.
template <class Ref, class T> CAttributeHandle<Ref, T> GetOrCreateAttribute(CTriangulation& mesh, std::string_view name) {
    constexpr int container = SContainerOf<Ref>::value;
    if (SAttributeEntry* e = mesh.FindAttribute(container, name)) return CAttributeHandle<Ref, T>(e);
    std::vector<uint8_t> def(sizeof(T), 0);
    bool serialize = false;
    if (const SAttributeData* reg = CTriangulationConfigurationRegistry::Get(container, name)) {
        if (reg->elementSize == sizeof(T) && reg->defaultValue.size() == sizeof(T)) def = reg->defaultValue;
        serialize = reg->serialize;
    }
    mesh.InsertAttribute(container, name, sizeof(T), &typeid(T), std::move(def), serialize);
    mesh.connectAttribute(container, name);
    return CAttributeHandle<Ref, T>(mesh.FindAttribute(container, name));
}

} // namespace Geometry

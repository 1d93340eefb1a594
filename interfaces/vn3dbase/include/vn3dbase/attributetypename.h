#pragma once
// The spelling of an attribute's element type inside the function names that attribute
// handles report in their exceptions ("class CbVector3f", "unsigned int", ...).
#include <array>
#include <string>
#include <typeinfo>

#include "basepool/cbvector.h"
#include "vn3dbase/meshtypes.h"
#include "vnbase/vncolor.h"

namespace Geometry {

template <class T> struct STypeSpelling { static std::string Get() { return typeid(T).name(); } };
#define VN_TYPE_SPELLING(T, S) \
    template <> struct STypeSpelling<T> { static std::string Get() { return S; } }
VN_TYPE_SPELLING(float, "float");
VN_TYPE_SPELLING(double, "double");
VN_TYPE_SPELLING(int, "int");
VN_TYPE_SPELLING(unsigned int, "unsigned int");
VN_TYPE_SPELLING(short, "short");
VN_TYPE_SPELLING(unsigned short, "unsigned short");
VN_TYPE_SPELLING(char, "char");
VN_TYPE_SPELLING(unsigned char, "unsigned char");
VN_TYPE_SPELLING(CbVector2f, "class CbVector2f");
VN_TYPE_SPELLING(CbVector3f, "class CbVector3f");
VN_TYPE_SPELLING(VnColorRGBA, "class VnColorRGBA");
VN_TYPE_SPELLING(CVertexRef, "class Geometry::CVertexRef");
VN_TYPE_SPELLING(CTriangleRef, "class Geometry::CTriangleRef");
#undef VN_TYPE_SPELLING
template <class T, size_t N> struct STypeSpelling<std::array<T, N>> {
    static std::string Get() { return "class std::array<" + STypeSpelling<T>::Get() + "," + std::to_string(N) + ">"; }
};
template <class T> struct STypeSpelling<const T> {
    static std::string Get() { return STypeSpelling<T>::Get() + " const "; }
};

} // namespace Geometry

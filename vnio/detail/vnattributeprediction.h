#pragma once
// Predictions of attribute values that the writer and the reader of the compressed
// triangulation stream must compute identically.
#include <cmath>
#include <cstdint>
#include <string>
#include <typeinfo>

#include "vn3dbase/ctriangulation.h"
#include "vn3dbase/registry.h"

namespace VnCompressedDetail {

// Components of a registered attribute that both sides code numerically (float, CbVector2f,
// CbVector3f); 0 for every other type, which travels as raw bytes.
inline int TypedComponents(int container, const std::string& name) {
    const Geometry::SAttributeData* reg = Geometry::CTriangulationConfigurationRegistry::Get(container, name);
    if (!reg || !reg->type) return 0;
    if (*reg->type == typeid(float)) return 1;
    if (*reg->type == typeid(CbVector2f)) return 2;
    if (*reg->type == typeid(CbVector3f)) return 3;
    return 0;
}

// An N-component float value, so that one prediction routine serves float, CbVector2f and
// CbVector3f attributes; its layout is that of N packed floats.
template <int N> struct SAttributeValue {
    float c[N] = {};
    SAttributeValue operator+(const SAttributeValue& o) const {
        SAttributeValue r;
        for (int i = 0; i < N; ++i) r.c[i] = c[i] + o.c[i];
        return r;
    }
    SAttributeValue operator-(const SAttributeValue& o) const {
        SAttributeValue r;
        for (int i = 0; i < N; ++i) r.c[i] = c[i] - o.c[i];
        return r;
    }
    SAttributeValue operator*(float f) const {
        SAttributeValue r;
        for (int i = 0; i < N; ++i) r.c[i] = c[i] * f;
        return r;
    }
    float operator[](int i) const { return c[i]; }
};

// The prediction of triangle t's value from its coded neighbours across the edges that
// start at corners k+1, k+2 and k (k the corner of the start vertex): their average, zero
// without one; a NaN anywhere gives zero. Values and flags are indexed by triangle slot; the
// mesh needs adjacency.
template <int N>
SAttributeValue<N> PredictTriangleValue(const Geometry::CTriangulation& mesh, const SAttributeValue<N>* values,
                                        const uint8_t* known, uint32_t start, uint32_t t) {
    const Geometry::STriangleCorners& c = mesh.GetCorners(Geometry::CTriangleRef(t));
    const int k = c[0] == start ? 0 : (c[1] == start ? 1 : 2);
    SAttributeValue<N> sum;
    uint32_t n = 0;
    for (int e : {(k + 1) % 3, (k + 2) % 3, k}) {
        const uint32_t across = mesh.GetAdjacentTriangle(Geometry::CTriangleRef(t), e);
        if (across != Geometry::c_IndexInvalid && known[across]) {
            sum = sum + values[across];
            ++n;
        }
    }
    if (n != 0) sum = sum * (1.f / static_cast<float>(n));
    for (int i = 0; i < N; ++i)
        if (std::isnan(sum.c[i])) return SAttributeValue<N>{};
    return sum;
}

} // namespace VnCompressedDetail

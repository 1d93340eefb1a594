#pragma once
// The legacy mesh class: owns its Geometry::CTriangulation.
#include <cstdint>

#include "vn3dbase/vntriangulationbase.h"

class VnTriangulationDynamic : public VnTriangulationBase {
public:
    // initialCapacity: vertices and triangles reserved up front (a hint).
    explicit VnTriangulationDynamic(uint32_t initialCapacity = 0);
    VnTriangulationDynamic(const VnTriangulationDynamic& other);
    VnTriangulationDynamic& operator=(const VnTriangulationDynamic& other);
    using VnTriangulationBase::operator=;

    static const VnRuntimeClass& RTTI();
    const VnRuntimeClass& GetRTTI() const override { return RTTI(); }

    Geometry::CTriangulation& triangulation() override { return m_mesh; }
    const Geometry::CTriangulation& triangulation() const override { return m_mesh; }

private:
    Geometry::CTriangulation m_mesh;
};

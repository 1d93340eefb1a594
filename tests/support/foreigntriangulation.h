#pragma once
// A legacy mesh class that is not a VnTriangulationDynamic: readers must fill it through a
// temporary and its virtual assignment, which it counts.
#include "vn3dbase/vntriangulationbase.h"

namespace VnTest {
class CForeignTriangulation : public VnTriangulationBase {
public:
    static const VnRuntimeClass& RTTI() {
        static const VnRuntimeClass c{L"CForeignTriangulation", &VnTriangulationBase::RTTI()};
        return c;
    }
    const VnRuntimeClass& GetRTTI() const override { return RTTI(); }
    Geometry::CTriangulation& triangulation() override { return m_mesh; }
    const Geometry::CTriangulation& triangulation() const override { return m_mesh; }
    VnTriangulationBase& operator=(const VnTriangulationBase& other) override {
        ++assignments;
        return VnTriangulationBase::operator=(other);
    }
    int assignments = 0;

private:
    Geometry::CTriangulation m_mesh;
};
} // namespace VnTest

#pragma once
// The attributes the product declares: element type, size, default value and whether the
// compressed stream writes them. One table for both containers lives in registry.cpp; it
// is the single place that documents every name the library uses.
#include <array>
#include <cstdint>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "basepool/cbvector.h"
#include "vn3dbase/meshtypes.h"

namespace Geometry {

struct SAttributeData {
    const char* name;
    int container;
    const std::type_info* type;
    uint32_t elementSize;
    std::vector<uint8_t> defaultValue;
    bool serialize;
};

class CTriangulationConfigurationRegistry {
public:
    // The registered description, or nullptr when the name is not registered there.
    static const SAttributeData* Get(int container, std::string_view name);
    // Every registered entry, vertex entries first, in table order.
    static const std::vector<SAttributeData>& GetAll();
};

// The per-triangle texture coordinates: one (u, v) per corner, in corner order. A triangle
// without texture carries the largest finite float in all six values.
struct CAttributeConfigurationTriangleParameters {
    using value_type = std::array<CbVector2f, 3>;
    static constexpr const char* GetId() { return "textureCoordinates"; }
    static value_type NoTexture();
};

} // namespace Geometry

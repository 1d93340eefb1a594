#pragma once
// One named attribute of a mesh: its description and its storage, one element per slot of
// the owning array (deleted slots included), kept in step with that array.
#include <cstdint>
#include <string>
#include <typeinfo>
#include <vector>

namespace Geometry {

class CTriangulation;

struct SAttributeEntry {
    std::string name;
    uint32_t elementSize = 0;
    const std::type_info* type = nullptr; // may be null: no recorded identity
    std::vector<uint8_t> defaultValue;    // elementSize bytes
    bool serialize = false;
    // Opaque block the compressed stream carries for the attribute; built from the element
    // size and the default bytes (see MakeConfiguration) unless set otherwise.
    std::vector<uint8_t> configuration;
    uint32_t mode = 0; // invalidation mode
    std::vector<uint8_t> data; // elementSize * slot count bytes
    bool connected = false;
    int container = 0;
    CTriangulation* mesh = nullptr;

    // u32 element size, then the default value bytes.
    static std::vector<uint8_t> MakeConfiguration(uint32_t elementSize, const std::vector<uint8_t>& defaultValue);
};

} // namespace Geometry

// Attribute section of the compressed triangulation stream, reader side. The decoded mesh
// is in coding order, so element i of a block is mesh element i.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "detail/vnattributeprediction.h"
#include "detail/vncompressedshared.h"
#include "vn3dbase/registry.h"
#include "vnbase/vnfloatcoder.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"

using namespace VnCompressedDetail;

namespace {
constexpr const char* kFnVersion3 = "VnStreamReadCompressedTriangulation::decompressAttributesVersion3";
constexpr const char* kFnVersion2 = "VnStreamReadCompressedTriangulation::decompressAttributesVersion2";
constexpr const char* kFnElements = "VnStreamReadCompressedTriangulation::readAttribute";

// Largest element accepted from a source of unknown size.
constexpr uint32_t kMaxElementSizeUnbounded = 1u << 12;

[[noreturn]] void fail(uint32_t line, const char* function) { throw CbExceptionStream(kSourceReader, line, function); }


// Names that version 2 identifiers stand for (empty for records read and dropped).
std::string versionTwoVertexName(uint32_t id) {
    switch (id) {
    case 0: return "normal";
    case 2: return "color";
    case 15: return "component";
    case 20: return "attributes";
    case 21: return "featureLabels";
    case 24: return "parameters";
    case 34: return "deformEnergy";
    case 35: return "positionInterpolated";
    case 36: return "normalInterpolated";
    case 44: return "normalMapConfidence";
    default: return std::string();
    }
}

std::string versionTwoTriangleName(uint32_t id) {
    switch (id) {
    case 0: return "triangleType";
    case 3: return "component";
    case 6: return "attributes";
    case 8: return "normal";
    case 12: return "normalSet";
    case 13: return "region";
    default: return std::string();
    }
}

const std::type_info* typeOf(int components) {
    return components == 1 ? &typeid(float) : (components == 2 ? &typeid(CbVector2f) : &typeid(CbVector3f));
}

uint32_t elementCount(const Geometry::CTriangulation& mesh, int container) {
    return container == Geometry::eContainerVertex ? mesh.GetVertexSlotCount() : mesh.GetTriangleSlotCount();
}

Geometry::SAttributeEntry& createAttribute(Geometry::CTriangulation& mesh, int container, const std::string& name,
                                           uint32_t elementSize, const std::type_info* type, std::vector<uint8_t> defaultValue) {
    mesh.InsertAttribute(container, name, elementSize, type, std::move(defaultValue), true);
    mesh.connectAttribute(container, name);
    Geometry::SAttributeEntry* e = mesh.FindAttribute(container, name);
    if (!e || e->data.size() != uint64_t(elementSize) * elementCount(mesh, container)) fail(__LINE__, kFnElements);
    return *e;
}

template <int N>
void readTyped(CbStreamReadBinary& in, const Geometry::CTriangulation& mesh, Geometry::SAttributeEntry& e,
               const std::vector<uint32_t>& vertexTriangles) {
    const bool vertex = e.container == Geometry::eContainerVertex;
    const uint32_t count = elementCount(mesh, e.container);
    if (vertex && vertexTriangles.size() != count) fail(__LINE__, kFnElements);
    std::vector<std::unique_ptr<VnStreamReadCompressedFloatingPoint>> readers;
    for (int c = 0; c < N; ++c) {
        readers.push_back(std::make_unique<VnStreamReadCompressedFloatingPoint>(in));
        if (count > readers.back()->GetMaxValues()) fail(__LINE__, kFnElements);
    }
    std::vector<SAttributeValue<N>> values(count);
    std::vector<uint8_t> known(count, 0);
    for (uint32_t i = 0; i < count; ++i) {
        const SAttributeValue<N> p = vertex ? PredictVertexValue(mesh, values.data(), known.data(), i, vertexTriangles[i])
                                            : PredictTriangleValue(mesh, values.data(), known.data(),
                                                                   mesh.GetCorner(Geometry::CTriangleRef(i), 2), i);
        for (int c = 0; c < N; ++c) values[i].c[c] = readers[c]->ReadValue(p.c[c]);
        known[i] = 1;
    }
    std::memcpy(e.data.data(), values.data(), values.size() * sizeof(SAttributeValue<N>));
}
} // namespace

std::string VnStreamReadCompressedTriangulation::oldVertexName(uint32_t id) {
    std::string name;
    if (!s_MapAttributeIdToNameVertex.Lookup(id, name)) fail(__LINE__, kFnElements);
    return name;
}

std::string VnStreamReadCompressedTriangulation::oldTriangleName(uint32_t id) {
    std::string name;
    if (!s_MapAttributeIdToNameTriangle.Lookup(id, name)) fail(__LINE__, kFnElements);
    return name;
}

void VnStreamReadCompressedTriangulation::readAttributeConfiguration(unsigned int& size, std::unique_ptr<unsigned char[]>& data,
                                                                     bool& flag, uint32_t& mode) {
    uint32_t n = 0;
    source() >> n;
    const uint64_t left = source().GetBytesLeft();
    if (left != CbStreamRead::kUnknownSize && n > left) fail(__LINE__, kFnElements);
    // Of a source of unknown size, the block is taken in pieces as they really arrive, so a
    // forged size cannot make one huge allocation.
    std::vector<unsigned char> buffer;
    for (size_t got = 0; got < n;) {
        const size_t piece = std::min<size_t>(n - got, size_t{1} << 16);
        buffer.resize(got + piece);
        source().ReadExact(buffer.data() + got, piece);
        got += piece;
    }
    std::unique_ptr<unsigned char[]> bytes(new unsigned char[n ? n : 1]);
    if (n) std::memcpy(bytes.get(), buffer.data(), n);
    source() >> flag >> mode;
    size = n;
    data = std::move(bytes);
}

void VnStreamReadCompressedTriangulation::readRawElements(Geometry::SAttributeEntry& e, uint32_t count) {
    const uint64_t bytes = uint64_t(e.elementSize) * count;
    const uint64_t left = source().GetBytesLeft();
    if (e.elementSize == 0 || (left != CbStreamRead::kUnknownSize && bytes > left) || e.data.size() != bytes)
        fail(__LINE__, kFnElements);
    source().ReadExact(e.data.data(), static_cast<size_t>(bytes));
}

void VnStreamReadCompressedTriangulation::readAttributeTyped(Geometry::CTriangulation& mesh, int container, const std::string& name,
                                                             int components) {
    const uint32_t size = 4u * static_cast<uint32_t>(components);
    std::vector<uint8_t> def(size, 0);
    if (const Geometry::SAttributeData* reg = Geometry::CTriangulationConfigurationRegistry::Get(container, name))
        if (reg->elementSize == size && reg->defaultValue.size() == size) def = reg->defaultValue;
    Geometry::SAttributeEntry& e = createAttribute(mesh, container, name, size, typeOf(components), std::move(def));
    if (components == 1)
        readTyped<1>(source(), mesh, e, m_vertexReferenceTriangles);
    else if (components == 2)
        readTyped<2>(source(), mesh, e, m_vertexReferenceTriangles);
    else
        readTyped<3>(source(), mesh, e, m_vertexReferenceTriangles);
}

void VnStreamReadCompressedTriangulation::readAttributeGenericConfigured(Geometry::CTriangulation& mesh, int container,
                                                                         const std::string& name) {
    unsigned int size = 0;
    std::unique_ptr<unsigned char[]> data;
    bool flag = false;
    uint32_t mode = 0;
    readAttributeConfiguration(size, data, flag, mode);
    // The element size comes from the block itself, so that a name this library does not
    // know can still be read.
    if (size < 4) fail(__LINE__, kFnElements);
    uint32_t elementSize = 0;
    std::memcpy(&elementSize, data.get(), 4);
    const uint32_t count = elementCount(mesh, container);
    const uint64_t left = source().GetBytesLeft();
    if (elementSize == 0 || (left != CbStreamRead::kUnknownSize && uint64_t(elementSize) * count > left)) fail(__LINE__, kFnElements);
    // Without a known size nothing bounds the allocation but the element size itself.
    if (left == CbStreamRead::kUnknownSize && elementSize > kMaxElementSizeUnbounded) fail(__LINE__, kFnElements);
    std::vector<uint8_t> def(elementSize, 0);
    if (size - 4 == elementSize) std::memcpy(def.data(), data.get() + 4, elementSize);
    const Geometry::SAttributeData* reg = Geometry::CTriangulationConfigurationRegistry::Get(container, name);
    const std::type_info* type = reg && reg->elementSize == elementSize ? reg->type : nullptr;
    Geometry::SAttributeEntry& e = createAttribute(mesh, container, name, elementSize, type, std::move(def));
    e.configuration.assign(data.get(), data.get() + size);
    e.mode = mode;
    readRawElements(e, count);
}

void VnStreamReadCompressedTriangulation::readAttributeGenericByRegistry(Geometry::CTriangulation& mesh, int container,
                                                                         const std::string& name) {
    const Geometry::SAttributeData* reg = Geometry::CTriangulationConfigurationRegistry::Get(container, name);
    if (!reg || reg->elementSize == 0) fail(__LINE__, kFnElements);
    const uint32_t count = elementCount(mesh, container);
    const uint64_t left = source().GetBytesLeft();
    if (left != CbStreamRead::kUnknownSize && uint64_t(reg->elementSize) * count > left) fail(__LINE__, kFnElements);
    Geometry::SAttributeEntry& e = createAttribute(mesh, container, name, reg->elementSize, reg->type, reg->defaultValue);
    readRawElements(e, count);
}

void VnStreamReadCompressedTriangulation::decompressAttributesVersion3(Geometry::CTriangulation& mesh) {
    for (int container : {Geometry::eContainerVertex, Geometry::eContainerTriangle}) {
        uint32_t count = 0;
        source() >> count;
        // Every attribute takes at least its name's count word and the word after it.
        const uint64_t left = source().GetBytesLeft();
        if (left != CbStreamRead::kUnknownSize && uint64_t(count) * 8 > left) fail(__LINE__, kFnVersion3);
        for (uint32_t k = 0; k < count; ++k) {
            const uint64_t before = source().GetBytesLeft();
            std::string name;
            uint32_t word = 0;
            source() >> name >> word;
            const int components = TypedComponents(container, name);
            // Triangle attributes are read typed only for three floats: float and two-float
            // triangle attributes go through the generic reader.
            if (components != 0 && (container == Geometry::eContainerVertex || components == 3))
                readAttributeTyped(mesh, container, name, components);
            else
                readAttributeGenericConfigured(mesh, container, name);
            noteAttribute(container, name, before);
        }
    }
}

void VnStreamReadCompressedTriangulation::decompressAttributesVersion2(Geometry::CTriangulation& mesh) {
    const int V = Geometry::eContainerVertex, T = Geometry::eContainerTriangle;
    // Each container: a count, then records of an identifier, a word and the data. An
    // identifier above `lastId` or without a case in `read` is a newer format.
    auto records = [&](int container, uint32_t lastId, auto&& read) {
        uint32_t count = 0;
        source() >> count;
        const uint64_t left = source().GetBytesLeft();
        if (left != CbStreamRead::kUnknownSize && uint64_t(count) * 8 > left) fail(__LINE__, kFnVersion2);
        for (uint32_t k = 0; k < count; ++k) {
            const uint64_t before = source().GetBytesLeft();
            uint32_t id = 0, word = 0;
            source() >> id >> word;
            if (id > lastId || !read(id)) throw CbExceptionWrongFileVersion(kSourceReader, __LINE__, kFnVersion2);
            noteAttribute(container, container == V ? versionTwoVertexName(id) : versionTwoTriangleName(id), before);
        }
    };
    records(V, 44, [&](uint32_t id) {
        switch (id) {
        case 0: readAttributeTyped(mesh, V, oldVertexName(3), 3); break;
        case 2: readAttributeGenericByRegistry(mesh, V, oldVertexName(7)); break;
        case 15: readAttributeGenericByRegistry(mesh, V, oldVertexName(0)); break;
        case 20: readAttributeGenericByRegistry(mesh, V, oldVertexName(4)); break;
        case 21: readAttributeGenericByRegistry(mesh, V, oldVertexName(2)); break;
        case 24: readAttributeTyped(mesh, V, oldVertexName(1), 2); break;
        case 32:
        case 33: skipFloats(mesh.GetVertexSlotCount()); break;
        case 34: readAttributeTyped(mesh, V, oldVertexName(5), 1); break;
        case 35: readAttributeTyped(mesh, V, oldVertexName(8), 3); break;
        case 36: readAttributeTyped(mesh, V, oldVertexName(9), 3); break;
        case 38: skipWords(mesh.GetVertexSlotCount()); break;
        case 44: readAttributeTyped(mesh, V, oldVertexName(10), 1); break;
        default: return false;
        }
        return true;
    });
    records(T, 13, [&](uint32_t id) {
        switch (id) {
        case 8: readAttributeTyped(mesh, T, oldTriangleName(4), 3); break;
        case 0: readAttributeGenericByRegistry(mesh, T, oldTriangleName(1)); break;
        case 3: readAttributeGenericByRegistry(mesh, T, oldTriangleName(0)); break;
        case 6: readAttributeGenericByRegistry(mesh, T, oldTriangleName(7)); break;
        case 12: readAttributeGenericByRegistry(mesh, T, oldTriangleName(2)); break;
        case 13: readAttributeGenericByRegistry(mesh, T, oldTriangleName(3)); break;
        default: return false;
        }
        return true;
    });
}

void VnStreamReadCompressedTriangulation::noteAttribute(int container, const std::string& name, uint64_t before) {
    const uint64_t after = source().GetBytesLeft();
    if (before == CbStreamRead::kUnknownSize || after == CbStreamRead::kUnknownSize || after > before) return;
    m_info.attributes.push_back({container, name, before - after});
}

void VnStreamReadCompressedTriangulation::skipFloats(uint32_t count) {
    VnStreamReadCompressedFloatingPoint reader(source());
    if (count > reader.GetMaxValues()) fail(__LINE__, kFnElements);
    for (uint32_t i = 0; i < count; ++i) reader.ReadValue(0.f);
}

void VnStreamReadCompressedTriangulation::skipWords(uint32_t count) {
    const uint64_t left = source().GetBytesLeft();
    if (left != CbStreamRead::kUnknownSize && uint64_t(count) * 4 > left) fail(__LINE__, kFnElements);
    uint32_t word = 0;
    for (uint32_t i = 0; i < count; ++i) source() >> word;
}

// Version 1 has no identifiers: a fixed sequence of records, the later ones each behind a
// u8 presence byte (0 = absent). Its layout, as this library defines it:
//   float coder block over the vertices (prediction 0; dropped)
//   vertex "parameters"            typed, two floats
//   vertex "positionInterpolated"  typed, three floats
//   vertex "normalInterpolated"    typed, three floats
//   [u8] vertex "featureLabels"    raw, registry element size
//   [u8] region data               one u32 per vertex slot, dropped
//   [u8] vertex "color"            raw, registry element size
//   [u8] triangle "triangleType"   raw, registry element size
//   [u8] triangle "normalSet"      raw, registry element size
//   [u8] triangle "region"         raw, registry element size
//   [u8] vertex "normal"           typed, three floats
//   [u8] triangle "normal"         typed, three floats
void VnStreamReadCompressedTriangulation::decompressAttributesLegacy(Geometry::CTriangulation& mesh) {
    const int V = Geometry::eContainerVertex, T = Geometry::eContainerTriangle;
    auto present = [this]() {
        uint8_t flag = 0;
        source() >> flag;
        return flag != 0;
    };
    skipFloats(mesh.GetVertexSlotCount());
    readAttributeTyped(mesh, V, oldVertexName(1), 2);
    readAttributeTyped(mesh, V, oldVertexName(8), 3);
    readAttributeTyped(mesh, V, oldVertexName(9), 3);
    if (present()) readAttributeGenericByRegistry(mesh, V, oldVertexName(2));
    if (present()) skipWords(mesh.GetVertexSlotCount());
    if (present()) readAttributeGenericByRegistry(mesh, V, oldVertexName(7));
    for (int old : {1, 2, 3})
        if (present()) readAttributeGenericByRegistry(mesh, T, oldTriangleName(old));
    if (present()) readAttributeTyped(mesh, V, oldVertexName(3), 3);
    if (present()) readAttributeTyped(mesh, T, oldTriangleName(4), 3);
}

#include "vn3dbase/ctriangulationserializer.h"

#include <algorithm>
#include <cstring>

#include "vn3dbase/registry.h"

namespace Geometry {

namespace {
constexpr const char* kSource = "vnlibraries/vn3dbase/geometry/ctriangulationserializer";
constexpr const char* kRead = "Geometry::CTriangulation_Serializer::Serialize";
// Upper bound on attribute metadata a real mesh carries; a forged count fails here.
constexpr uint32_t kMaxAttributes = 4096;
constexpr uint32_t kMaxConfiguration = 1 << 20;
// Every attribute keeps a default element; their sizes together stay within this, so a forged
// element size cannot demand memory the stream never backs with bytes.
constexpr uint64_t kMaxElementBytes = 1 << 20;

void need(const CbStreamReadBinary& s, uint64_t bytes) {
    uint64_t left = s.GetBytesLeft();
    if (left != CbStreamRead::kUnknownSize && bytes > left) throw CbExceptionStream(kSource, __LINE__, kRead);
}

// Reads `count` elements of `size` bytes into `out`, growing in chunks when the source
// size is unknown so that a forged count cannot allocate ahead of the data.
void readArray(CbStreamReadBinary& s, std::vector<uint8_t>& out, uint64_t bytes) {
    need(s, bytes);
    out.clear();
    constexpr uint64_t kFirstChunk = 1 << 16, kChunk = 1 << 24;
    while (out.size() < bytes) {
        const uint64_t step = std::clamp<uint64_t>(out.size(), kFirstChunk, kChunk);
        size_t n = static_cast<size_t>(std::min<uint64_t>(step, bytes - out.size()));
        size_t old = out.size();
        out.resize(old + n);
        s.ReadExact(out.data() + old, n);
    }
}
} // namespace

void CTriangulation_Serializer::Serialize(CbStreamWriteBinary& s, const CTriangulation& mesh) {
    std::vector<uint32_t> dense = mesh.ComputeDenseVertexIndices();
    s.WriteVersion(c_Version);
    s << mesh.GetVertexCount() << mesh.GetTriangleCount();
    if (mesh.GetVertexCount() == mesh.GetVertexSlotCount()) {
        s.WriteBuffer(mesh.GetPositions(), size_t(mesh.GetVertexCount()) * sizeof(CbVector3f));
    } else {
        for (CVertexRef v : mesh.Vertices()) s.WriteBuffer(&mesh.GetPosition(v), sizeof(CbVector3f));
    }
    for (CTriangleRef t : mesh.Triangles()) {
        uint32_t c[3];
        for (int k = 0; k < 3; ++k) {
            uint32_t v = mesh.GetCorner(t, k);
            c[k] = v < dense.size() ? dense[v] : c_IndexInvalid;
        }
        s.WriteBuffer(c, sizeof(c));
    }
    for (int container = 0; container < 2; ++container) {
        auto entries = mesh.GetAttributes(container);
        uint32_t count = 0;
        for (const SAttributeEntry* e : entries) count += e->connected ? 1 : 0;
        s << count;
        for (const SAttributeEntry* e : entries) {
            if (!e->connected) continue;
            s << e->name << e->elementSize << static_cast<uint8_t>(e->serialize ? 1 : 0);
            s << static_cast<uint32_t>(e->configuration.size());
            s.WriteBuffer(e->configuration.data(), e->configuration.size());
            s << e->mode;
            const bool vertex = container == eContainerVertex;
            if ((vertex ? mesh.GetVertexCount() == mesh.GetVertexSlotCount() : mesh.GetTriangleCount() == mesh.GetTriangleSlotCount())) {
                s.WriteBuffer(e->data.data(), e->data.size());
            } else if (vertex) {
                for (CVertexRef v : mesh.Vertices()) s.WriteBuffer(e->data.data() + size_t(v) * e->elementSize, e->elementSize);
            } else {
                for (CTriangleRef t : mesh.Triangles()) s.WriteBuffer(e->data.data() + size_t(t) * e->elementSize, e->elementSize);
            }
        }
    }
}

std::unique_ptr<CTriangulation> CTriangulation_Serializer::Serialize(CbStreamReadBinary& s) {
    uint32_t version = s.ReadAndCompareVersion(c_Version);
    if (version != c_Version) throw CbExceptionStream(kSource, __LINE__, kRead);
    uint32_t nv = 0, nt = 0;
    s >> nv >> nt;
    need(s, uint64_t(nv) * 12 + uint64_t(nt) * 12);
    std::vector<uint8_t> bytes;
    readArray(s, bytes, uint64_t(nv) * 12);
    std::vector<CbVector3f> positions(nv);
    if (nv) std::memcpy(positions.data(), bytes.data(), bytes.size());
    readArray(s, bytes, uint64_t(nt) * 12);
    std::vector<STriangleCorners> corners(nt);
    if (nt) std::memcpy(corners.data(), bytes.data(), bytes.size());
    for (const auto& c : corners)
        for (uint32_t v : c)
            if (v >= nv) throw CbExceptionStream(kSource, __LINE__, kRead);
    auto mesh = std::make_unique<CTriangulation>(nv, nt, SMemoryBlock<CbVector3f>(std::move(positions)),
                                                 SMemoryBlock<STriangleCorners>(std::move(corners)));
    uint64_t elementBytes = 0;
    for (int container = 0; container < 2; ++container) {
        uint32_t count = 0;
        s >> count;
        if (count > kMaxAttributes) throw CbExceptionStream(kSource, __LINE__, kRead);
        const uint64_t elements = container == eContainerVertex ? nv : nt;
        for (uint32_t i = 0; i < count; ++i) {
            std::string name;
            uint32_t elementSize = 0, configSize = 0, mode = 0;
            uint8_t serialize = 0;
            s >> name >> elementSize >> serialize >> configSize;
            elementBytes += elementSize;
            if (configSize > kMaxConfiguration || elementBytes > kMaxElementBytes)
                throw CbExceptionStream(kSource, __LINE__, kRead);
            std::vector<uint8_t> config;
            readArray(s, config, configSize);
            s >> mode;
            // The values come first: the attribute is sized only once its bytes have arrived.
            readArray(s, bytes, elements * elementSize);
            std::vector<uint8_t> def(elementSize, 0);
            if (elementSize && config.size() >= 4 + size_t(elementSize)) std::memcpy(def.data(), config.data() + 4, elementSize);
            const SAttributeData* reg = CTriangulationConfigurationRegistry::Get(container, name);
            const std::type_info* type = reg && reg->elementSize == elementSize ? reg->type : nullptr;
            SAttributeEntry* e = mesh->InsertAttribute(container, name, elementSize, type, std::move(def), serialize != 0);
            e->configuration = std::move(config);
            e->mode = mode;
            mesh->connectAttribute(container, name);
            if (!bytes.empty()) std::memcpy(e->data.data(), bytes.data(), bytes.size());
        }
    }
    return mesh;
}

} // namespace Geometry

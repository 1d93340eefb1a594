// Named per-vertex and per-triangle data through the compressed triangulation stream:
// round trips of typed and raw attributes in versions 3 and 2, the serialise flag, meshes
// with deleted slots, and hand-built or damaged attribute sections.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "detail/vnattributeprediction.h"
#include "support/meshbuilders.h"
#include "support/unsizedstream.h"
#include "vn3dbase/cattributehandle.h"
#include "vn3dbase/registry.h"
#include "vnbase/vncolor.h"
#include "vnbase/vnfloatcoder.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

using namespace Geometry;

namespace {

using Base = VnStreamCompressedTriangulationBase;
using TexCoords = CAttributeConfigurationTriangleParameters::value_type;

struct SWritten {
    std::vector<uint8_t> bytes;
    std::vector<uint32_t> vertexMap;   // coding position -> original vertex slot
    std::vector<uint32_t> triangleMap; // coding position -> original triangle slot
    bool consistent = false;
};

SWritten writeMesh(const CTriangulation& mesh, bool version2 = false, Base::ECompressionMethod method = Base::eLossless) {
    CbStreamWriteBinaryMemory sink;
    std::unique_ptr<VnStreamWriteCompressedTriangulation> writer;
    if (version2)
        writer = std::make_unique<VnStreamWriteCompressedTriangulationVersion2>(sink, method, 0.001f);
    else
        writer = std::make_unique<VnStreamWriteCompressedTriangulation>(sink, method, 0.001f);
    *writer << mesh;
    SWritten out;
    out.bytes = sink.GetData();
    for (CVertexRef v : writer->GetVertexMap()) out.vertexMap.push_back(v.Index());
    for (CTriangleRef t : writer->GetTriangleMap()) out.triangleMap.push_back(t.Index());
    out.consistent = writer->IsConsistent();
    return out;
}

CTriangulation readMesh(const std::vector<uint8_t>& bytes) {
    CbStreamReadBinaryMemory source(bytes.data(), bytes.size());
    VnStreamReadCompressedTriangulation reader(source);
    CTriangulation mesh;
    reader >> mesh;
    EXPECT_EQ(source.GetBytesLeft(), 0u);
    return mesh;
}

// Reading must end in the reader's stream exception with the target mesh emptied.
void expectReadFailure(const std::vector<uint8_t>& bytes) {
    CbStreamReadBinaryMemory source(bytes.data(), bytes.size());
    VnStreamReadCompressedTriangulation reader(source);
    CTriangulation mesh = VnTest::MakeCube();
    EXPECT_THROW(reader >> mesh, CbExceptionStream);
    EXPECT_EQ(mesh.GetVertexCount(), 0u);
    EXPECT_EQ(mesh.GetTriangleCount(), 0u);
}

// Element i of the read mesh must hold the bytes of the original element the writer coded
// i-th (the compressed path) or of the i-th live element (the uncompressed path).
void expectSameValues(const CTriangulation& original, const CTriangulation& read, int container, const std::string& name,
                      const std::vector<uint32_t>& map) {
    const SAttributeEntry* a = original.FindAttribute(container, name);
    const SAttributeEntry* b = read.FindAttribute(container, name);
    ASSERT_NE(a, nullptr) << name;
    ASSERT_NE(b, nullptr) << name;
    ASSERT_EQ(a->elementSize, b->elementSize) << name;
    const size_t size = a->elementSize;
    const uint32_t count = container == eContainerVertex ? read.GetVertexSlotCount() : read.GetTriangleSlotCount();
    ASSERT_EQ(map.size(), count) << name;
    ASSERT_EQ(b->data.size(), size * count) << name;
    size_t differing = 0;
    for (uint32_t i = 0; i < count; ++i)
        if (std::memcmp(a->data.data() + size * map[i], b->data.data() + size * i, size) != 0) ++differing;
    EXPECT_EQ(differing, 0u) << name;
    EXPECT_TRUE(b->serialize) << name;
}

CbVector3f unit(float x, float y, float z) {
    const float n = std::sqrt(x * x + y * y + z * z);
    return CbVector3f(x / n, y / n, z / n);
}

// A sphere carrying every kind of attribute: typed vertex data (normals, parameters, a
// float), raw vertex data (colours, a name the registry does not know), typed triangle
// normals, raw triangle data (type, texture coordinates) and one attribute kept out of the
// stream.
CTriangulation decoratedSphere() {
    CTriangulation mesh = VnTest::MakeSphere(10, 14);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> d(-1.f, 1.f);
    auto normal = GetOrCreateAttribute<CVertexRef, CbVector3f>(mesh, "normal");
    auto color = GetOrCreateAttribute<CVertexRef, VnColorRGBA>(mesh, "color");
    auto parameters = GetOrCreateAttribute<CVertexRef, CbVector2f>(mesh, "parameters");
    auto energy = GetOrCreateAttribute<CVertexRef, float>(mesh, "deformEnergy");
    auto label = GetOrCreateAttribute<CVertexRef, uint32_t>(mesh, "testLabel");
    auto region = GetOrCreateAttribute<CVertexRef, uint32_t>(mesh, "region");
    for (CVertexRef v : mesh.Vertices()) {
        const CbVector3f& p = mesh.GetPosition(v);
        normal[v] = unit(p.x + 0.01f * d(random), p.y, p.z + 0.01f * d(random));
        color[v] = VnColorRGBA(uint8_t(v.Index()), uint8_t(3 * v.Index()), 200, 255);
        parameters[v] = CbVector2f(p.x * 0.5f + 0.5f, d(random));
        energy[v] = d(random) * 1e-3f;
        label[v] = 0xA5000000u + v.Index();
        region[v] = v.Index() % 5;
    }
    energy[CVertexRef(3)] = std::nanf("");
    auto tNormal = GetOrCreateAttribute<CTriangleRef, CbVector3f>(mesh, "normal");
    auto type = GetOrCreateAttribute<CTriangleRef, uint32_t>(mesh, "triangleType");
    auto tex = GetOrCreateAttribute<CTriangleRef, TexCoords>(mesh, CAttributeConfigurationTriangleParameters::GetId());
    for (CTriangleRef t : mesh.Triangles()) {
        tNormal[t] = unit(d(random), d(random), 1.f);
        type[t] = t.Index() % 3;
        TexCoords c;
        for (int k = 0; k < 3; ++k) c[k] = CbVector2f(d(random), float(k));
        tex[t] = t.Index() % 4 == 0 ? CAttributeConfigurationTriangleParameters::NoTexture() : c;
    }
    for (const char* name : {"parameters", "deformEnergy", "testLabel"}) mesh.setSerialize(eContainerVertex, name, true);
    mesh.setSerialize(eContainerVertex, "region", false);
    return mesh;
}

const char* const kVertexNames[] = {"normal", "color", "parameters", "deformEnergy", "testLabel"};
const char* const kTriangleNames[] = {"normal", "triangleType", "textureCoordinates"};

TEST(VnAttributesVersion3, EveryKindRoundTripsBitIdentical) {
    const CTriangulation mesh = decoratedSphere();
    for (Base::ECompressionMethod method : {Base::eLossless, Base::eQuantized}) {
        const SWritten w = writeMesh(mesh, false, method);
        ASSERT_TRUE(w.consistent);
        const CTriangulation read = readMesh(w.bytes);
        ASSERT_EQ(read.GetVertexCount(), mesh.GetVertexCount());
        for (const char* name : kVertexNames) expectSameValues(mesh, read, eContainerVertex, name, w.vertexMap);
        for (const char* name : kTriangleNames) expectSameValues(mesh, read, eContainerTriangle, name, w.triangleMap);
        EXPECT_EQ(read.FindAttribute(eContainerVertex, "region"), nullptr);
    }
}

TEST(VnAttributesVersion3, TypedAndRawAttributesKeepTheirTypes) {
    const CTriangulation read = readMesh(writeMesh(decoratedSphere()).bytes);
    EXPECT_NO_THROW((FindAttribute<CVertexRef, CbVector2f>(read, "parameters")));
    EXPECT_NO_THROW((FindAttribute<CVertexRef, VnColorRGBA>(read, "color")));
    EXPECT_NO_THROW((FindAttribute<CTriangleRef, TexCoords>(read, "textureCoordinates")));
    // A raw attribute keeps the configuration block it was written with.
    const SAttributeEntry* label = read.FindAttribute(eContainerVertex, "testLabel");
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(label->elementSize, 4u);
    EXPECT_EQ(label->configuration, decoratedSphere().FindAttribute(eContainerVertex, "testLabel")->configuration);
}

TEST(VnAttributesVersion3, NothingSerialisedWritesTwoEmptyBlocks) {
    CTriangulation mesh = decoratedSphere();
    const SWritten bare = writeMesh(VnTest::MakeSphere(10, 14));
    for (int container : {eContainerVertex, eContainerTriangle})
        for (SAttributeEntry* e : mesh.GetAttributes(container)) mesh.setSerialize(container, e->name, false);
    const SWritten w = writeMesh(mesh);
    EXPECT_EQ(w.bytes, bare.bytes);
    const CTriangulation read = readMesh(w.bytes);
    EXPECT_EQ(read.FindAttribute(eContainerVertex, "color"), nullptr);
    EXPECT_EQ(read.FindAttribute(eContainerTriangle, "triangleType"), nullptr);
}

TEST(VnAttributesVersion3, UnitNormalsCostWellUnderThreeRawFloats) {
    CTriangulation mesh = VnTest::MakeSphere(40, 60);
    auto normal = GetOrCreateAttribute<CVertexRef, CbVector3f>(mesh, "normal");
    for (CVertexRef v : mesh.Vertices()) {
        const CbVector3f& p = mesh.GetPosition(v);
        normal[v] = unit(p.x, p.y, p.z);
    }
    // With triangle normals present the reader leaves the vertex normals as read.
    auto tNormal = GetOrCreateAttribute<CTriangleRef, CbVector3f>(mesh, "normal");
    for (CTriangleRef t : mesh.Triangles()) tNormal[t] = CbVector3f(0, 0, 1);
    const SWritten with = writeMesh(mesh);
    mesh.setSerialize(eContainerVertex, "normal", false);
    const SWritten without = writeMesh(mesh);
    const double bits = 8.0 * double(with.bytes.size() - without.bytes.size()) / mesh.GetVertexCount();
    EXPECT_LT(bits, 72.0);
    const CTriangulation read = readMesh(with.bytes);
    mesh.setSerialize(eContainerVertex, "normal", true);
    expectSameValues(mesh, read, eContainerVertex, "normal", with.vertexMap);
}

TEST(VnAttributesVersion3, MeshWithDeletedSlotsRoundTrips) {
    CTriangulation mesh = decoratedSphere();
    const CVertexRef extra = mesh.AddVertex(CbVector3f(5, 5, 5));
    mesh.RemoveVertex(extra);
    mesh.RemoveTriangle(CTriangleRef(17));
    const SWritten w = writeMesh(mesh);
    ASSERT_TRUE(w.consistent);
    const CTriangulation read = readMesh(w.bytes);
    EXPECT_EQ(read.GetTriangleCount(), mesh.GetTriangleCount());
    for (const char* name : kVertexNames) expectSameValues(mesh, read, eContainerVertex, name, w.vertexMap);
    for (const char* name : kTriangleNames) expectSameValues(mesh, read, eContainerTriangle, name, w.triangleMap);
}

TEST(VnAttributesVersion3, UncompressedPathCarriesAttributesToo) {
    CTriangulation mesh = decoratedSphere();
    mesh.AddVertex(CbVector3f(5, 5, 5)); // no triangle uses it: the record is stored uncompressed
    const SWritten w = writeMesh(mesh);
    ASSERT_FALSE(w.consistent);
    const CTriangulation read = readMesh(w.bytes);
    std::vector<uint32_t> vertices(mesh.GetVertexSlotCount()), triangles(mesh.GetTriangleSlotCount());
    for (uint32_t i = 0; i < vertices.size(); ++i) vertices[i] = i;
    for (uint32_t i = 0; i < triangles.size(); ++i) triangles[i] = i;
    for (const char* name : kVertexNames) expectSameValues(mesh, read, eContainerVertex, name, vertices);
    for (const char* name : kTriangleNames) expectSameValues(mesh, read, eContainerTriangle, name, triangles);
}

TEST(VnAttributesVersion3, SingleTriangleMeshRoundTrips) {
    CTriangulation mesh;
    mesh.AddVertex(CbVector3f(0, 0, 0));
    mesh.AddVertex(CbVector3f(1, 0, 0));
    mesh.AddVertex(CbVector3f(0, 1, 0));
    mesh.AddTriangle(CVertexRef(0), CVertexRef(1), CVertexRef(2));
    auto energy = GetOrCreateAttribute<CVertexRef, float>(mesh, "deformEnergy");
    energy[CVertexRef(0)] = -3.5f;
    energy[CVertexRef(1)] = 1e30f;
    energy[CVertexRef(2)] = std::numeric_limits<float>::denorm_min();
    mesh.setSerialize(eContainerVertex, "deformEnergy", true);
    const SWritten w = writeMesh(mesh);
    expectSameValues(mesh, readMesh(w.bytes), eContainerVertex, "deformEnergy", w.vertexMap);
}

TEST(VnAttributesVersion3, EveryTruncationFailsCleanly) {
    const std::vector<uint8_t> full = writeMesh(decoratedSphere()).bytes;
    const size_t bare = writeMesh(VnTest::MakeSphere(10, 14)).bytes.size() - 8;
    ASSERT_LT(bare, full.size());
    for (size_t cut = bare; cut < full.size(); cut += 3)
        expectReadFailure(std::vector<uint8_t>(full.begin(), full.begin() + static_cast<ptrdiff_t>(cut)));
}

TEST(VnAttributesVersion3, DamagedSectionsNeverCrash) {
    const std::vector<uint8_t> full = writeMesh(decoratedSphere()).bytes;
    const size_t bare = writeMesh(VnTest::MakeSphere(10, 14)).bytes.size() - 8;
    std::mt19937 random(11);
    for (int round = 0; round < 300; ++round) {
        std::vector<uint8_t> bytes = full;
        const size_t at = bare + random() % (full.size() - bare);
        bytes[at] = static_cast<uint8_t>(bytes[at] ^ (1u << (random() % 8)));
        CbStreamReadBinaryMemory source(bytes.data(), bytes.size());
        VnStreamReadCompressedTriangulation reader(source);
        CTriangulation mesh;
        try {
            reader >> mesh;
        } catch (const CbExceptionStream&) {
            EXPECT_EQ(mesh.GetVertexCount(), 0u);
        }
    }
}

// A record of the sphere without attributes, its two empty blocks dropped, so that a test
// can append an attribute section of its own.
std::vector<uint8_t> geometryPrefix(uint8_t version) {
    std::vector<uint8_t> bytes = writeMesh(VnTest::MakeSphere(10, 14), version == 2).bytes;
    bytes.resize(bytes.size() - 8);
    bytes[0] = version;
    return bytes;
}

void putWord(std::vector<uint8_t>& out, uint32_t w) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(w >> (8 * i)));
}

void putName(std::vector<uint8_t>& out, const std::string& name) {
    putWord(out, static_cast<uint32_t>(name.size()));
    out.insert(out.end(), name.begin(), name.end());
}

TEST(VnAttributesVersion3, RawConfigurationIsChecked) {
    std::vector<uint8_t> empty = geometryPrefix(3);
    empty.resize(empty.size() + 8, 0);
    const uint32_t V = readMesh(empty).GetVertexCount();
    auto section = [&](uint32_t blockSize, uint32_t elementSize, uint32_t values) {
        std::vector<uint8_t> b = geometryPrefix(3);
        putWord(b, 1);
        putName(b, "testUnknown");
        putWord(b, 0);
        putWord(b, blockSize);
        if (blockSize >= 4) putWord(b, elementSize);
        for (uint32_t i = 4; i < blockSize && i < 64; ++i) b.push_back(0);
        b.push_back(1);
        putWord(b, 0);
        for (uint32_t i = 0; i < values; ++i) b.push_back(static_cast<uint8_t>(i));
        putWord(b, 0);
        return b;
    };
    // A name the library does not know is read with the element size of its block.
    const CTriangulation read = readMesh(section(6, 2, 2 * V));
    const SAttributeEntry* e = read.FindAttribute(eContainerVertex, "testUnknown");
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->elementSize, 2u);
    EXPECT_EQ(e->data[2 * V - 1], static_cast<uint8_t>(2 * V - 1));
    expectReadFailure(section(2, 2, 2 * V));          // shorter than the element size word
    expectReadFailure(section(4, 0, 0));              // no element size
    expectReadFailure(section(4, 0x40000000u, 16));   // size times count beyond the stream
    expectReadFailure(section(0xFFFFFFF0u, 2, 2 * V)); // block beyond the stream
}

TEST(VnAttributesVersion3, ForgedCountsFail) {
    std::vector<uint8_t> b = geometryPrefix(3);
    putWord(b, 0xFFFFFFFFu);
    putWord(b, 0);
    expectReadFailure(b);
    b = geometryPrefix(3);
    putWord(b, 1);
    putName(b, "normal");
    putWord(b, 0);
    putWord(b, 0x7FFFFFFFu); // float block far beyond the stream
    putWord(b, 0);
    expectReadFailure(b);
}

TEST(VnAttributesVersion3, FloatTriangleAttributeIsReadRaw) {
    // The writer codes float triangle data numerically only for registered float types; a
    // name the registry does not know travels raw both ways and reads back as written.
    CTriangulation mesh = VnTest::MakeSphere(10, 14);
    auto weight = GetOrCreateAttribute<CTriangleRef, float>(mesh, "testWeight");
    for (CTriangleRef t : mesh.Triangles()) weight[t] = 0.25f * float(t.Index());
    mesh.setSerialize(eContainerTriangle, "testWeight", true);
    const SWritten w = writeMesh(mesh);
    expectSameValues(mesh, readMesh(w.bytes), eContainerTriangle, "testWeight", w.triangleMap);
}

TEST(VnAttributesRegistry, NoRegisteredTriangleAttributeIsOneOrTwoFloats) {
    for (const SAttributeData& d : CTriangulationConfigurationRegistry::GetAll()) {
        if (d.container != eContainerTriangle) continue;
        EXPECT_NE(*d.type, typeid(float)) << d.name;
        EXPECT_NE(*d.type, typeid(CbVector2f)) << d.name;
    }
}

} // namespace


namespace {

void append(std::vector<uint8_t>& out, const std::vector<uint8_t>& more) { out.insert(out.end(), more.begin(), more.end()); }

std::vector<uint8_t> droppedFloats(uint32_t count) {
    CbStreamWriteBinaryMemory sink;
    {
        VnStreamWriteCompressedFloatingPoint coder(sink, count);
        for (uint32_t i = 0; i < count; ++i) coder.WriteValue(0.125f * float(i), 0.f);
        coder.Flush();
    }
    return sink.GetData();
}

TEST(VnAttributesVersion2, WritesOnlyItsNamesAndReadsThemBack) {
    const CTriangulation mesh = decoratedSphere();
    const SWritten w = writeMesh(mesh, true);
    ASSERT_EQ(w.bytes[0], 2);
    const CTriangulation read = readMesh(w.bytes);
    for (const char* name : {"normal", "color", "parameters", "deformEnergy"})
        expectSameValues(mesh, read, eContainerVertex, name, w.vertexMap);
    for (const char* name : {"normal", "triangleType"}) expectSameValues(mesh, read, eContainerTriangle, name, w.triangleMap);
    EXPECT_EQ(read.FindAttribute(eContainerVertex, "testLabel"), nullptr);
    EXPECT_EQ(read.FindAttribute(eContainerTriangle, "textureCoordinates"), nullptr);
    const std::string text(w.bytes.begin(), w.bytes.end());
    EXPECT_EQ(text.find("normal"), std::string::npos);
    EXPECT_EQ(text.find("testLabel"), std::string::npos);
}

TEST(VnAttributesVersion2, RegionWordsAreConsumedAndDropped) {
    std::vector<uint8_t> b = geometryPrefix(2);
    const uint32_t V = VnTest::MakeSphere(10, 14).GetVertexCount();
    putWord(b, 2);
    putWord(b, 38);
    putWord(b, 0);
    for (uint32_t i = 0; i < V; ++i) putWord(b, i);
    putWord(b, 33);
    putWord(b, 0);
    append(b, droppedFloats(V));
    putWord(b, 0);
    const CTriangulation read = readMesh(b);
    EXPECT_EQ(read.GetVertexCount(), V);
    EXPECT_EQ(read.FindAttribute(eContainerVertex, "region"), nullptr);
    // One word short: the stream ends early.
    b = geometryPrefix(2);
    putWord(b, 1);
    putWord(b, 38);
    putWord(b, 0);
    for (uint32_t i = 0; i + 1 < V; ++i) putWord(b, i);
    putWord(b, 0);
    expectReadFailure(b);
}

TEST(VnAttributesVersion2, UnknownIdentifiersFail) {
    for (uint32_t id : {1u, 3u, 31u, 37u, 43u, 45u, 0xFFFFFFFFu}) {
        std::vector<uint8_t> b = geometryPrefix(2);
        putWord(b, 1);
        putWord(b, id);
        putWord(b, 0);
        for (int i = 0; i < 4096; ++i) b.push_back(0);
        expectReadFailure(b);
    }
    for (uint32_t id : {1u, 2u, 7u, 14u}) {
        std::vector<uint8_t> b = geometryPrefix(2);
        putWord(b, 0);
        putWord(b, 1);
        putWord(b, id);
        putWord(b, 0);
        for (int i = 0; i < 4096; ++i) b.push_back(0);
        expectReadFailure(b);
    }
}

TEST(VnAttributesVersion1, FixedLayoutReadsBack) {
    CTriangulation mesh = decoratedSphere();
    auto labels = GetOrCreateAttribute<CVertexRef, uint32_t>(mesh, "featureLabels");
    auto interpolated = GetOrCreateAttribute<CVertexRef, CbVector3f>(mesh, "positionInterpolated");
    auto normalInterpolated = GetOrCreateAttribute<CVertexRef, CbVector3f>(mesh, "normalInterpolated");
    for (CVertexRef v : mesh.Vertices()) {
        labels[v] = 7 * v.Index();
        interpolated[v] = mesh.GetPosition(v) * 2.f;
        normalInterpolated[v] = CbVector3f(0, float(v.Index()), 1);
    }
    const SWritten w = writeMesh(mesh);
    const uint32_t V = static_cast<uint32_t>(w.vertexMap.size());
    // Typed blocks come from version 3 records of the same mesh with one attribute each.
    auto blocks = [&](int container, const std::string& name) {
        CTriangulation copy = mesh;
        for (int c : {eContainerVertex, eContainerTriangle})
            for (SAttributeEntry* e : copy.GetAttributes(c)) copy.setSerialize(c, e->name, c == container && e->name == name);
        const std::vector<uint8_t> bytes = writeMesh(copy).bytes;
        const size_t start = geometryPrefix(3).size() + 4 + 4 + name.size() + 4 + (container == eContainerTriangle ? 4 : 0);
        const size_t end = bytes.size() - (container == eContainerVertex ? 4 : 0);
        return std::vector<uint8_t>(bytes.begin() + static_cast<ptrdiff_t>(start), bytes.begin() + static_cast<ptrdiff_t>(end));
    };
    auto raw = [&](int container, const std::string& name) {
        const SAttributeEntry* e = mesh.FindAttribute(container, name);
        const std::vector<uint32_t>& map = container == eContainerVertex ? w.vertexMap : w.triangleMap;
        std::vector<uint8_t> out;
        for (uint32_t slot : map)
            out.insert(out.end(), e->data.begin() + e->elementSize * slot, e->data.begin() + e->elementSize * (slot + 1));
        return out;
    };
    std::vector<uint8_t> b = geometryPrefix(1);
    append(b, droppedFloats(V));
    append(b, blocks(eContainerVertex, "parameters"));
    append(b, blocks(eContainerVertex, "positionInterpolated"));
    append(b, blocks(eContainerVertex, "normalInterpolated"));
    b.push_back(1);
    append(b, raw(eContainerVertex, "featureLabels"));
    b.push_back(1);
    for (uint32_t i = 0; i < V; ++i) putWord(b, 0xDEAD0000u + i);
    b.push_back(1);
    append(b, raw(eContainerVertex, "color"));
    b.push_back(1);
    append(b, raw(eContainerTriangle, "triangleType"));
    b.push_back(0); // no normalSet
    b.push_back(0); // no triangle region
    b.push_back(1);
    append(b, blocks(eContainerVertex, "normal"));
    b.push_back(1);
    append(b, blocks(eContainerTriangle, "normal"));

    const CTriangulation read = readMesh(b);
    for (const char* name : {"parameters", "positionInterpolated", "normalInterpolated", "featureLabels", "color", "normal"})
        expectSameValues(mesh, read, eContainerVertex, name, w.vertexMap);
    for (const char* name : {"triangleType", "normal"}) expectSameValues(mesh, read, eContainerTriangle, name, w.triangleMap);
    EXPECT_EQ(read.FindAttribute(eContainerVertex, "region"), nullptr);
    EXPECT_EQ(read.FindAttribute(eContainerTriangle, "normalSet"), nullptr);

    for (size_t cut = geometryPrefix(1).size(); cut < b.size(); cut += 7)
        expectReadFailure(std::vector<uint8_t>(b.begin(), b.begin() + static_cast<ptrdiff_t>(cut)));
}

} // namespace

namespace {

TEST(VnAttributesVersion3, OneFloatTriangleBlocksUnderANameReadRawFailOrMisread) {
    // What the writer emits for a one-float triangle attribute the reader takes as raw:
    // reading must end in the stream exception or in some values, never worse.
    const uint32_t T = VnTest::MakeSphere(10, 14).GetTriangleCount();
    for (const char* name : {"testWeight", "triangleType"}) {
        std::vector<uint8_t> b = geometryPrefix(3);
        putWord(b, 0);
        putWord(b, 1);
        putName(b, name);
        putWord(b, 0);
        append(b, droppedFloats(T));
        CbStreamReadBinaryMemory source(b.data(), b.size());
        VnStreamReadCompressedTriangulation reader(source);
        CTriangulation mesh;
        try {
            reader >> mesh;
            EXPECT_EQ(mesh.GetTriangleCount(), T);
        } catch (const CbExceptionStream&) {
            EXPECT_EQ(mesh.GetVertexCount(), 0u);
        }
    }
}

TEST(VnAttributesPrediction, TriangleValueIsTheAverageOfCodedNeighbours) {
    CTriangulation mesh = VnTest::MakeGrid(3, 3);
    mesh.ComputeAdjacency();
    const uint32_t slots = mesh.GetTriangleSlotCount();
    std::vector<VnCompressedDetail::SAttributeValue<2>> values(slots);
    for (uint32_t t = 0; t < slots; ++t) values[t].c[0] = float(t + 1), values[t].c[1] = -2.f * float(t + 1);
    std::vector<uint8_t> known(slots, 0);
    // A triangle with three neighbours.
    uint32_t inner = slots;
    for (uint32_t t = 0; t < slots && inner == slots; ++t) {
        int n = 0;
        for (int k = 0; k < 3; ++k) n += mesh.GetAdjacentTriangle(CTriangleRef(t), k) != c_IndexInvalid;
        if (n == 3) inner = t;
    }
    ASSERT_LT(inner, slots);
    const uint32_t start = mesh.GetCorner(CTriangleRef(inner), 0);
    auto predict = [&] { return VnCompressedDetail::PredictTriangleValue<2>(mesh, values.data(), known.data(), start, inner); };
    EXPECT_EQ(predict()[0], 0.f); // nothing coded yet
    const uint32_t a = mesh.GetAdjacentTriangle(CTriangleRef(inner), 1), b = mesh.GetAdjacentTriangle(CTriangleRef(inner), 2);
    known[a] = 1;
    EXPECT_EQ(predict()[0], values[a][0]);
    known[b] = 1;
    EXPECT_FLOAT_EQ(predict()[0], 0.5f * (values[a][0] + values[b][0]));
    EXPECT_FLOAT_EQ(predict()[1], 0.5f * (values[a][1] + values[b][1]));
    values[b].c[1] = std::nanf("");
    EXPECT_EQ(predict()[0], 0.f); // a NaN component clears the whole prediction
    EXPECT_EQ(predict()[1], 0.f);
}

} // namespace

namespace {

// A source that does not know its size: every count must then be bounded another way.

TEST(VnAttributesVersion3, SourceOfUnknownSizeRoundTripsAndRefusesHugeBlocks) {
    const CTriangulation mesh = decoratedSphere();
    const SWritten w = writeMesh(mesh);
    {
        VnTest::CStreamReadUnsized source(std::string(w.bytes.begin(), w.bytes.end()));
        ASSERT_EQ(source.GetBytesLeft(), CbStreamRead::kUnknownSize);
        VnStreamReadCompressedTriangulation reader(source);
        CTriangulation read;
        reader >> read;
        expectSameValues(mesh, read, eContainerTriangle, "textureCoordinates", w.triangleMap);
        expectSameValues(mesh, read, eContainerVertex, "testLabel", w.vertexMap);
    }
    // A configuration block claiming 4 GB, and one claiming a 1 GB element, against a few
    // bytes: both fail without allocating for the claim.
    for (uint32_t claim : {0xFFFFFFF0u, 0u}) {
        std::vector<uint8_t> b = geometryPrefix(3);
        putWord(b, 1);
        putName(b, "testUnknown");
        putWord(b, 0);
        if (claim) {
            putWord(b, claim);
        } else {
            putWord(b, 4);
            putWord(b, 0x40000000u);
            b.push_back(1);
            putWord(b, 0);
        }
        for (int i = 0; i < 64; ++i) b.push_back(0);
        VnTest::CStreamReadUnsized source(std::string(b.begin(), b.end()));
        VnStreamReadCompressedTriangulation reader(source);
        CTriangulation read;
        EXPECT_THROW(reader >> read, CbExceptionStream);
        EXPECT_EQ(read.GetVertexCount(), 0u);
    }
}

} // namespace

namespace {

TEST(VnAttributesRecordInfo, AttributeBytesAccountForTheWholeSection) {
    for (bool version2 : {false, true}) {
        const SWritten w = writeMesh(decoratedSphere(), version2);
        const size_t bare = writeMesh(VnTest::MakeSphere(10, 14), version2).bytes.size();
        CbStreamReadBinaryMemory source(w.bytes.data(), w.bytes.size());
        VnStreamReadCompressedTriangulation reader(source);
        CTriangulation read;
        reader >> read;
        const auto& info = reader.GetRecordInfo();
        uint64_t total = 0;
        std::vector<std::string> names;
        for (const auto& a : info.attributes) {
            total += a.bytes;
            names.push_back((a.container == eContainerVertex ? "v:" : "t:") + a.name);
        }
        EXPECT_EQ(total, w.bytes.size() - bare) << version2;
        const std::vector<std::string> expected =
            version2 ? std::vector<std::string>{"v:normal", "v:color", "v:parameters", "v:deformEnergy", "t:normal", "t:triangleType"}
                     : std::vector<std::string>{"v:normal",   "v:color",  "v:parameters",   "v:deformEnergy",
                                                "v:testLabel", "t:normal", "t:triangleType", "t:textureCoordinates"};
        EXPECT_EQ(names, expected) << version2;
    }
}

} // namespace

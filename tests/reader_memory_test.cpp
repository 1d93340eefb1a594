// Forged counts against every reader: a small input that claims billions of elements must be
// refused (or read for what it holds) without the process allocating for the claim. The
// global operator new of this executable counts live bytes, so the suite sees every container
// the library grows, and bounds the peak by a small multiple of the input's size.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "basepool/cbexception.h"
#include "basepool/cbstreambinary.h"
#include "support/meshbuilders.h"
#include "support/plyhelpers.h"
#include "support/unsizedstream.h"
#include "vn3dbase/ctriangulationserializer.h"
#include "vn3dbase/vntriangulationdynamic.h"
#include "vnbase/vnstreamreadascii.h"
#include "vnio/vnobj.h"
#include "vnio/vnoff.h"
#include "vnio/vnply.h"
#include "vnio/vnstl.h"
#include "vnio/vnstlold.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

namespace {
std::atomic<int64_t> g_live{0};
std::atomic<int64_t> g_peak{0};

// Every block carries its size in front, so delete knows what it returns.
constexpr size_t kHeader = alignof(std::max_align_t);

void* countedNew(size_t size) {
    void* raw = std::malloc(size + kHeader);
    if (!raw) throw std::bad_alloc();
    std::memcpy(raw, &size, sizeof(size));
    const int64_t live = g_live.fetch_add(int64_t(size)) + int64_t(size);
    int64_t peak = g_peak.load();
    while (live > peak && !g_peak.compare_exchange_weak(peak, live)) {
    }
    return static_cast<char*>(raw) + kHeader;
}

void countedDelete(void* p) noexcept {
    if (!p) return;
    char* raw = static_cast<char*>(p) - kHeader;
    size_t size = 0;
    std::memcpy(&size, raw, sizeof(size));
    g_live.fetch_sub(int64_t(size));
    std::free(raw);
}
} // namespace

void* operator new(size_t size) { return countedNew(size); }
void* operator new[](size_t size) { return countedNew(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    try {
        return countedNew(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* p) noexcept { countedDelete(p); }
void operator delete[](void* p) noexcept { countedDelete(p); }
void operator delete(void* p, size_t) noexcept { countedDelete(p); }
void operator delete[](void* p, size_t) noexcept { countedDelete(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { countedDelete(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { countedDelete(p); }

namespace {

// What a reader may hold beyond its input: fixed working buffers (a file stream's 1 MB window,
// coder tables) plus a small multiple of the bytes it was given.
constexpr int64_t kFixed = int64_t(2) << 20;
constexpr int64_t kPerInputByte = 32;

// Peak bytes allocated by `read` above what was live before it.
int64_t peakOf(const std::function<void()>& read) {
    const int64_t before = g_live.load();
    g_peak.store(before);
    read();
    return g_peak.load() - before;
}

template <class F> void expectBounded(const std::string& what, size_t inputBytes, F&& read, int64_t allowance = 0) {
    const int64_t peak = peakOf(read);
    EXPECT_LE(peak, kFixed + allowance + kPerInputByte * int64_t(inputBytes))
        << what << ": " << peak << " bytes at the peak for " << inputBytes << " bytes of input";
}

template <class T> void put(std::string& s, T v) { s.append(reinterpret_cast<const char*>(&v), sizeof(T)); }
template <class T> void patch(std::string& s, size_t at, T v) { std::memcpy(s.data() + at, &v, sizeof(T)); }

// A binary STL: 80-byte header, the count, then `records` zero records.
std::string stlBinary(uint32_t count, uint32_t records, uint16_t word = 0) {
    std::string s(80, 'x');
    put(s, count);
    for (uint32_t r = 0; r < records; ++r) {
        for (int k = 0; k < 12; ++k) put(s, float(k % 3 == 0 ? r + k : k));
        put(s, word);
    }
    return s;
}

// A real compressed stream of a small closed mesh, to forge fields of.
std::string compressedCube() {
    CbStreamWriteBinaryMemory out;
    {
        VnStreamWriteCompressedTriangulation writer(out, VnStreamWriteCompressedTriangulation::eLossless, 0.f);
        writer << VnTest::MakeCube();
    }
    return std::string(out.GetData().begin(), out.GetData().end());
}

// Offsets in a lossless mesh record: version (4), compressed flag (1), position mode (1).
constexpr size_t kComponentsAt = 6, kVerticesAt = 10, kTrianglesAt = 14;

void readCompressed(const std::string& bytes, bool sized) {
    Geometry::CTriangulation mesh;
    try {
        if (sized) {
            CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
            VnStreamReadCompressedTriangulation reader(in);
            reader >> mesh;
        } else {
            VnTest::CStreamReadUnsized in(bytes);
            VnStreamReadCompressedTriangulation reader(in);
            reader >> mesh;
        }
    } catch (const CbExceptionStream&) {
    }
}

TEST(ReaderMemory, BinarySTLCountsBeyondTheRecords) {
    for (uint32_t count : {0xFFFFFFFFu, 0x7FFFFFFFu, 10000000u}) {
        const std::string bytes = stlBinary(count, 2);
        expectBounded("STL sized", bytes.size(), [&] {
            CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
            Geometry::CTriangulation mesh;
            EXPECT_FALSE(VnSTL::Serialize(in, mesh, VnSTL::eFlagCombine, nullptr, nullptr));
        });
        expectBounded("STL unsized", bytes.size(), [&] {
            VnTest::CStreamReadUnsized in(bytes);
            Geometry::CTriangulation mesh;
            EXPECT_FALSE(VnSTL::Serialize(in, mesh, VnSTL::eFlagCombine, nullptr, nullptr));
        });
    }
}

TEST(ReaderMemory, LegacySTLCountsAndComponentWords) {
    const std::string forged = stlBinary(0xFFFFFFF0u, 1);
    expectBounded("legacy STL sized", forged.size(), [&] {
        CbStreamReadBinaryMemory in(forged.data(), forged.size());
        VnTriangulationDynamic mesh;
        VnSTLOld::Serialize(in, mesh, VnSTLOld::c_FlagsDefault);
    });
    expectBounded("legacy STL unsized", forged.size(), [&] {
        VnTest::CStreamReadUnsized in(forged);
        VnTriangulationDynamic mesh;
        VnSTLOld::Serialize(in, mesh, VnSTLOld::c_FlagsDefault);
    });
    // One record numbered as the last of 65536 components: the array is indexed by the 16-bit
    // word and every entry gets a mesh, so a file may demand that many empty meshes, but no
    // storage for them beyond the empty objects.
    const std::string lastWord = stlBinary(1, 1, 0xFFFF);
    const int64_t emptyEntries = int64_t(0x10000) * int64_t(sizeof(VnTriangulationDynamic) + 128);
    expectBounded(
        "legacy STL components", lastWord.size(),
        [&] {
            CbStreamReadBinaryMemory in(lastWord.data(), lastWord.size());
            CbArray<VnTriangulationComponent> components;
            EXPECT_TRUE(VnSTLOld::Serialize(in, components, nullptr, VnSTLOld::c_FlagsDefault));
            EXPECT_EQ(components.GetSize(), 0x10000);
            VnTriangulationComponent::DeleteCreated(components);
        },
        emptyEntries);
}

TEST(ReaderMemory, OFFHeaderCounts) {
    for (const char* header : {"OFF\n2000000000 2000000000 0\n0 0 0\n", "OFF\n3 4000000000 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n",
                               "OFF\n4000000000 1 0\n"}) {
        const std::string text = header;
        const std::wstring path = VnTest::WriteTempFile("forged.off", text);
        expectBounded(header, text.size(), [&] {
            Geometry::CTriangulation mesh;
            EXPECT_THROW(VnOFF::Read(path.c_str(), mesh), CbException);
        });
    }
}

TEST(ReaderMemory, PLYElementAndListCounts) {
    const std::string ascii = "ply\nformat ascii 1.0\nelement vertex 4000000000\nproperty float x\nproperty float y\n"
                              "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n0 0 0\n";
    VnTest::CPlyBytes binary;
    binary.Text("ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                "property float z\nelement face 4000000000\nproperty list uint int vertex_indices\nend_header\n");
    for (int i = 0; i < 9; ++i) binary.Le(float(i));
    binary.Le(uint32_t(3)).Le(int32_t(0)).Le(int32_t(1)).Le(int32_t(2));
    VnTest::CPlyBytes longList;
    longList.Text("ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                  "property float z\nelement face 1\nproperty list uint int vertex_indices\nend_header\n");
    for (int i = 0; i < 9; ++i) longList.Le(float(i));
    longList.Le(uint32_t(0xFFFFFFF0u)).Le(int32_t(0)).Le(int32_t(1)).Le(int32_t(2));
    for (const std::string& bytes : {ascii, binary.Str(), longList.Str()}) {
        const std::wstring path = VnTest::WriteTempFile("forged.ply", bytes);
        expectBounded(bytes.substr(0, 60), bytes.size(), [&] {
            try {
                VnPLY::Read(path);
                ADD_FAILURE() << "a forged PLY was read";
            } catch (const std::exception&) {
            } catch (const CbException&) {
            }
        });
    }
}

TEST(ReaderMemory, OBJIndicesFarBeyondTheVertices) {
    for (const char* text : {"v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 2000000000\n", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/4000000000 2/1 3/1\n",
                             "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 1\nf 1//1 2//1 3//99999999\n"}) {
        expectBounded(text, std::strlen(text), [&] {
            // Out-of-range texture and normal indices are tolerated, a vertex index is not;
            // either way no triangle may point past the vertices.
            VnStreamReadASCIIMemory in(text);
            Geometry::CTriangulation mesh;
            VnOBJ::Serialize(in, mesh);
            for (Geometry::CTriangleRef t : mesh.Triangles())
                for (uint32_t c : mesh.GetCorners(t)) EXPECT_LT(c, mesh.GetVertexSlotCount());
        });
    }
}

TEST(ReaderMemory, CompressedStreamHeaderAndComponentCounts) {
    const std::string cube = compressedCube();
    ASSERT_GT(cube.size(), kTrianglesAt + 4);
    uint32_t components = 0;
    std::memcpy(&components, cube.data() + kComponentsAt, 4);
    ASSERT_EQ(components, 1u) << "the lossless cube's header moved";

    std::vector<std::string> forged;
    for (uint32_t triangles : {0xFFFFFFFFu, 0x10000000u}) {
        std::string b = cube;
        patch(b, kVerticesAt, triangles / 2);
        patch(b, kTrianglesAt, triangles);
        forged.push_back(b);
    }
    {
        std::string b = cube; // a billion components of one triangle each
        patch(b, kComponentsAt, 1000000000u);
        patch(b, kVerticesAt, 3000000000u);
        patch(b, kTrianglesAt, 1000000000u);
        forged.push_back(b);
    }
    {
        std::string b = cube; // an uncompressed record whose native counts lie
        b.resize(5);
        b[4] = 0;
        put(b, uint32_t(0xFFFFFFF0u));
        put(b, uint32_t(0xFFFFFFF0u));
        forged.push_back(b);
    }
    // Attributes of an uncompressed record: an element of 4 GB (the size a fuzzer found
    // allocated before anything checked it), and 4096 attributes of 1 MB elements over no
    // vertices at all.
    for (uint32_t attributes : {1u, 4096u}) {
        CbStreamWriteBinaryMemory out;
        out.WriteVersion(3);
        out << uint8_t(0);
        out.WriteVersion(Geometry::CTriangulation_Serializer::c_Version);
        out << uint32_t(0) << uint32_t(0) << attributes;
        for (uint32_t a = 0; a < attributes; ++a)
            out << std::string("forged") + std::to_string(a) << uint32_t(attributes == 1 ? 0xF7000000u : 1u << 20)
                << uint8_t(1) << uint32_t(0) << uint32_t(0);
        out << uint32_t(0);
        forged.emplace_back(out.GetData().begin(), out.GetData().end());
    }
    for (size_t i = 0; i < forged.size(); ++i)
        for (bool sized : {true, false})
            expectBounded("forged stream " + std::to_string(i) + (sized ? " sized" : " unsized"), forged[i].size(),
                          [&] { readCompressed(forged[i], sized); });
}

// The bound holds for real data too, not only for refusals: a binary STL reads into a mesh
// a small multiple of its size.
TEST(ReaderMemory, GenuineBinarySTLStaysWithinTheBound) {
    CbStreamWriteBinaryMemory out;
    ASSERT_TRUE(VnSTL::Serialize(out, VnTest::MakeSphere(60, 120)));
    const std::vector<uint8_t>& bytes = out.GetData();
    Geometry::CTriangulation mesh;
    expectBounded("sphere", bytes.size(), [&] {
        CbStreamReadBinaryMemory in(bytes.data(), bytes.size());
        EXPECT_TRUE(VnSTL::Serialize(in, mesh, VnSTL::eFlagCombine | VnSTL::eFlagVertexNormals, nullptr, nullptr));
    });
    EXPECT_EQ(mesh.GetTriangleCount(), VnTest::MakeSphere(60, 120).GetTriangleCount());
}

} // namespace

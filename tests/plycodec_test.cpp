// The PLY codec on its own: headers, every scalar type, the three body encodings, value
// conversion, skipping, and hostile input (truncation, lying counts, bad tokens).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "detail/plycodec.h"
#include "support/plyhelpers.h"

using namespace VnPlyCodec;
using VnTest::CPlyBytes;

namespace {

template <class T> std::vector<T> valuesOf(const SBuffer& b) {
    std::vector<T> v(b.bytes.size() / sizeof(T));
    if (!v.empty()) std::memcpy(v.data(), b.bytes.data(), v.size() * sizeof(T));
    return v;
}

// Reads `bytes`, asking for one request, and returns its buffer.
std::shared_ptr<SBuffer> readOne(const std::string& bytes, const std::string& element,
                                 const std::vector<std::string>& props, EType type, uint32_t listSize = 0) {
    CbStreamReadBinaryMemory stream(bytes.data(), bytes.size());
    CReader reader(stream);
    auto buffer = reader.Request(element, props, type, listSize);
    reader.Read();
    return buffer;
}

// A std::runtime_error whose text contains `part`.
template <class F> void expectFailure(F&& f, const std::string& part) {
    try {
        f();
        ADD_FAILURE() << "no exception; expected one mentioning \"" << part << "\"";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find(part), std::string::npos) << e.what();
    }
}

std::string writeToString(const CWriter& w, EFormat format) {
    CbStreamWriteBinaryMemory out;
    w.Write(out, format);
    const auto& d = out.GetData();
    return std::string(d.begin(), d.end());
}

const std::string kTriangleAscii =
    "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
    "element face 1\nproperty list uchar int vertex_indices\nend_header\n"
    "0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n";

} // namespace

TEST(PlyCodecHeader, ListsElementsPropertiesCommentsAndEveryTypeAlias) {
    std::string text = "ply\r\nformat binary_little_endian 1.0\r\ncomment made by hand\r\ncomment  two  spaces\r\n"
                       "obj_info scanner 7\r\nelement thing 0\r\n";
    const char* names[] = {"char", "int8",  "uchar", "uint8",  "short", "int16",   "ushort", "uint16",
                           "int",  "int32", "uint",  "uint32", "float", "float32", "double", "float64"};
    for (int i = 0; i < 16; ++i) text += std::string("property ") + names[i] + " p" + std::to_string(i) + "\r\n";
    text += "property list ushort int64_is_no_type nope\r\n";
    // The line above must fail: exercise the good header first.
    std::string good =
        text.substr(0, text.find("property list")) + "property list ushort float64 poly\r\nend_header\r\n";
    CbStreamReadBinaryMemory stream(good.data(), good.size());
    CReader r(stream);
    EXPECT_EQ(r.GetFormat(), EFormat::eBinaryLittleEndian);
    ASSERT_EQ(r.GetComments().size(), 2u);
    EXPECT_EQ(r.GetComments()[0], "made by hand");
    EXPECT_EQ(r.GetComments()[1], " two  spaces");
    ASSERT_EQ(r.GetObjInfo().size(), 1u);
    EXPECT_EQ(r.GetObjInfo()[0], "scanner 7");
    ASSERT_EQ(r.GetElements().size(), 1u);
    const SElement& e = r.GetElements()[0];
    ASSERT_EQ(e.properties.size(), 17u);
    const EType expected[] = {EType::eInt8,    EType::eInt8,    EType::eUInt8,   EType::eUInt8,
                              EType::eInt16,   EType::eInt16,   EType::eUInt16,  EType::eUInt16,
                              EType::eInt32,   EType::eInt32,   EType::eUInt32,  EType::eUInt32,
                              EType::eFloat32, EType::eFloat32, EType::eFloat64, EType::eFloat64};
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(e.properties[i].type, expected[i]) << names[i];
        EXPECT_FALSE(e.properties[i].IsList());
    }
    EXPECT_TRUE(e.properties[16].IsList());
    EXPECT_EQ(e.properties[16].countType, EType::eUInt16);
    EXPECT_EQ(e.properties[16].type, EType::eFloat64);
    EXPECT_TRUE(r.HasProperty("thing", "p3"));
    EXPECT_FALSE(r.HasProperty("thing", "p99"));
    EXPECT_FALSE(r.HasProperty("other", "p3"));
    expectFailure(
        [&] {
            CbStreamReadBinaryMemory s(text.data(), text.size());
            CReader bad(s);
        },
        "unknown type");
}

TEST(PlyCodecHeader, MalformedHeadersNameTheirLine) {
    const std::string fmt = "ply\nformat ascii 1.0\n";
    const std::pair<std::string, std::string> cases[] = {
        {"", "empty"},
        {"plx\nformat ascii 1.0\nend_header\n", "does not start"},
        {"ply\nformat binary_middle_endian 1.0\nend_header\n", "line 2: unknown format"},
        {"ply\nformat ascii 2.0\nend_header\n", "unsupported version"},
        {"ply\nformat ascii\nend_header\n", "format line"},
        {"ply\nend_header\n", "no format line"},
        {fmt + "property float x\nend_header\n", "line 3: property before any element"},
        {fmt + "element vertex -1\nend_header\n", "bad count"},
        {fmt + "element vertex 99999999999999999999999\nend_header\n", "bad count"},
        {fmt + "element vertex 1\nproperty quad x\nend_header\n", "unknown type"},
        {fmt + "element vertex 1\nproperty list float int idx\nend_header\n", "not an integer type"},
        {fmt + "element vertex 1\nproperty float x\nproperty float x\nend_header\n", "appears twice"},
        {fmt + "element vertex 1\nbogus line\nend_header\n", "line 4: unknown keyword"},
        {fmt + "element vertex 1\nproperty float x\n", "end of file before end_header"},
        {"ply\nformat ascii 1.0\nformat ascii 1.0\nend_header\n", "second format"},
        {fmt + "comment " + std::string(70000, 'c') + "\nend_header\n", "too long"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.second);
        const std::string& text = c.first;
        expectFailure(
            [&] {
                CbStreamReadBinaryMemory s(text.data(), text.size());
                CReader r(s);
            },
            c.second);
    }
}

TEST(PlyCodecRequest, CallerMistakesAreInvalidArguments) {
    const std::string& t = kTriangleAscii;
    CbStreamReadBinaryMemory s(t.data(), t.size());
    CReader r(s);
    EXPECT_THROW(r.Request("edge", {"x"}, EType::eFloat32), std::invalid_argument);
    EXPECT_THROW(r.Request("vertex", {"w"}, EType::eFloat32), std::invalid_argument);
    EXPECT_THROW(r.Request("vertex", {"x", "x"}, EType::eFloat32), std::invalid_argument);
    EXPECT_THROW(r.Request("vertex", {"x"}, EType::eNone), std::invalid_argument);
    EXPECT_THROW(r.Request("vertex", {}, EType::eFloat32), std::invalid_argument);
    r.Request("vertex", {"x", "y"}, EType::eFloat32);
    EXPECT_THROW(r.Request("vertex", {"y", "z"}, EType::eFloat32), std::invalid_argument);
    r.Read();
    EXPECT_THROW(r.Request("vertex", {"z"}, EType::eFloat32), std::invalid_argument);
    EXPECT_THROW(r.Read(), std::invalid_argument);
}

TEST(PlyCodecRequest, ListCannotShareARequestWithScalars) {
    std::string t =
        "ply\nformat ascii 1.0\nelement face 1\nproperty uchar flag\nproperty list uchar int vertex_indices\n"
        "end_header\n1 3 0 1 2\n";
    CbStreamReadBinaryMemory s(t.data(), t.size());
    CReader r(s);
    EXPECT_THROW(r.Request("face", {"flag", "vertex_indices"}, EType::eUInt32), std::invalid_argument);
}

// Every scalar type and a list through the writer and back, in the three encodings; the
// values sit at the edges of their types.
TEST(PlyCodecRoundTrip, EveryTypeAtItsLimitsInEveryEncoding) {
    const uint64_t rows = 3;
    std::vector<int8_t> i8 = {-128, 0, 127};
    std::vector<uint8_t> u8 = {0, 1, 255};
    std::vector<int16_t> i16 = {-32768, -1, 32767};
    std::vector<uint16_t> u16 = {0, 12345, 65535};
    std::vector<int32_t> i32 = {std::numeric_limits<int32_t>::min(), 7, std::numeric_limits<int32_t>::max()};
    std::vector<uint32_t> u32 = {0, 4000000000u, std::numeric_limits<uint32_t>::max()};
    std::vector<float> f32 = {-0.0f, 0.1f, std::numeric_limits<float>::denorm_min()};
    std::vector<double> f64 = {1e300, 0.1, -std::numeric_limits<double>::min()};
    std::vector<uint32_t> lists = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    CWriter w;
    w.AddComment("all types");
    w.AddObjInfo("info");
    w.AddProperties("row", {"a"}, EType::eInt8, rows, i8.data());
    w.AddProperties("row", {"b"}, EType::eUInt8, rows, u8.data());
    w.AddProperties("row", {"c"}, EType::eInt16, rows, i16.data());
    w.AddProperties("row", {"d"}, EType::eUInt16, rows, u16.data());
    w.AddProperties("row", {"e"}, EType::eInt32, rows, i32.data());
    w.AddProperties("row", {"f"}, EType::eUInt32, rows, u32.data());
    w.AddProperties("row", {"g"}, EType::eFloat32, rows, f32.data());
    w.AddProperties("row", {"h"}, EType::eFloat64, rows, f64.data());
    w.AddProperties("row", {"l"}, EType::eUInt32, rows, lists.data(), EType::eUInt16, 4);
    for (EFormat format : {EFormat::eAscii, EFormat::eBinaryLittleEndian, EFormat::eBinaryBigEndian}) {
        SCOPED_TRACE(int(format));
        std::string bytes = writeToString(w, format);
        CbStreamReadBinaryMemory s(bytes.data(), bytes.size());
        CReader r(s);
        EXPECT_EQ(r.GetFormat(), format);
        EXPECT_EQ(r.GetComments(), std::vector<std::string>{"all types"});
        EXPECT_EQ(r.GetObjInfo(), std::vector<std::string>{"info"});
        auto a = r.Request("row", {"a"}, EType::eInt8);
        auto b = r.Request("row", {"b"}, EType::eUInt8);
        auto c = r.Request("row", {"c"}, EType::eInt16);
        auto d = r.Request("row", {"d"}, EType::eUInt16);
        auto e = r.Request("row", {"e"}, EType::eInt32);
        auto f = r.Request("row", {"f"}, EType::eUInt32);
        auto g = r.Request("row", {"g"}, EType::eFloat32);
        auto h = r.Request("row", {"h"}, EType::eFloat64);
        auto l = r.Request("row", {"l"}, EType::eUInt32, 4);
        r.Read();
        EXPECT_EQ(valuesOf<int8_t>(*a), i8);
        EXPECT_EQ(valuesOf<uint8_t>(*b), u8);
        EXPECT_EQ(valuesOf<int16_t>(*c), i16);
        EXPECT_EQ(valuesOf<uint16_t>(*d), u16);
        EXPECT_EQ(valuesOf<int32_t>(*e), i32);
        EXPECT_EQ(valuesOf<uint32_t>(*f), u32);
        // Bit patterns: -0 and the smallest denormal must survive the text form too.
        EXPECT_EQ(0, std::memcmp(g->bytes.data(), f32.data(), 12));
        EXPECT_EQ(0, std::memcmp(h->bytes.data(), f64.data(), 24));
        EXPECT_EQ(valuesOf<uint32_t>(*l), lists);
        EXPECT_EQ(l->count, rows);
        EXPECT_EQ(g->fileType, EType::eFloat32);
    }
}

TEST(PlyCodecRoundTrip, AsciiFloatsAreExactAcrossManyWindowRefills) {
    // Enough text to cross the reader's window many times, so tokens straddle its edge.
    std::mt19937 rng(7);
    std::uniform_int_distribution<uint32_t> bits;
    const uint64_t rows = 60000;
    std::vector<float> v(rows * 3);
    for (float& x : v) {
        do {
            uint32_t b = bits(rng);
            std::memcpy(&x, &b, 4);
        } while (!std::isfinite(x));
    }
    CWriter w;
    w.AddProperties("vertex", {"x", "y", "z"}, EType::eFloat32, rows, v.data());
    std::string bytes = writeToString(w, EFormat::eAscii);
    ASSERT_GT(bytes.size(), size_t(1) << 20);
    auto got = readOne(bytes, "vertex", {"x", "y", "z"}, EType::eFloat32);
    ASSERT_EQ(got->bytes.size(), v.size() * 4);
    EXPECT_EQ(0, std::memcmp(got->bytes.data(), v.data(), got->bytes.size()));
    // The same through a stream that cannot tell its size.
    VnTest::CStreamReadUnsized unsized(bytes);
    CReader r(unsized);
    auto got2 = r.Request("vertex", {"z", "x"}, EType::eFloat64);
    r.Read();
    auto d = valuesOf<double>(*got2);
    ASSERT_EQ(d.size(), rows * 2);
    for (uint64_t i = 0; i < rows; i += 997) {
        EXPECT_EQ(d[2 * i], double(v[3 * i + 2]));
        EXPECT_EQ(d[2 * i + 1], double(v[3 * i]));
    }
}

TEST(PlyCodecRead, HandBuiltBigEndianFileWithAPropertyBeforeTheList) {
    CPlyBytes b;
    b.Text(
        "ply\nformat binary_big_endian 1.0\nelement vertex 2\nproperty double x\nproperty short t\nproperty float y\n"
        "element face 2\nproperty uchar intensity\nproperty list ushort int vertex_indices\nend_header\n");
    b.Be(1.5).Be<int16_t>(-2).Be(2.25f);
    b.Be(-3.0).Be<int16_t>(300).Be(4.5f);
    b.Be<uint8_t>(9).Be<uint16_t>(3).Be<int32_t>(0).Be<int32_t>(1).Be<int32_t>(0);
    b.Be<uint8_t>(8).Be<uint16_t>(2).Be<int32_t>(1).Be<int32_t>(70000);
    CbStreamReadBinaryMemory s(b.Str().data(), b.Str().size());
    CReader r(s);
    auto xy = r.Request("vertex", {"y", "x"}, EType::eFloat32);
    auto t = r.Request("vertex", {"t"}, EType::eInt32);
    auto idx = r.Request("face", {"vertex_indices"}, EType::eUInt32);
    auto in = r.Request("face", {"intensity"}, EType::eFloat64);
    r.Read();
    EXPECT_EQ(valuesOf<float>(*xy), (std::vector<float>{2.25f, 1.5f, 4.5f, -3.0f}));
    EXPECT_EQ(valuesOf<int32_t>(*t), (std::vector<int32_t>{-2, 300}));
    EXPECT_EQ(valuesOf<uint32_t>(*idx), (std::vector<uint32_t>{0, 1, 0, 1, 70000}));
    EXPECT_EQ(idx->listCounts, (std::vector<uint32_t>{3, 2}));
    EXPECT_EQ(valuesOf<double>(*in), (std::vector<double>{9, 8}));
}

TEST(PlyCodecRead, UnrequestedElementsAndPropertiesAreSkippedInEveryEncoding) {
    // An element with lists before the wanted one, extra properties around the wanted ones,
    // and a trailing element that is never read (its garbage body does not matter).
    std::vector<float> junk = {1, 2, 3, 4};
    std::vector<uint8_t> lists = {1, 2, 3, 4, 5, 6};
    std::vector<double> xyz = {0.5, 1.5, 2.5, 3.5, 4.5, 5.5};
    std::vector<int16_t> tag = {-1, -2};
    CWriter w;
    w.AddProperties("edge", {"a"}, EType::eFloat32, 2, junk.data());
    w.AddProperties("edge", {"l"}, EType::eUInt8, 2, lists.data(), EType::eUInt8, 3);
    w.AddProperties("edge", {"b"}, EType::eFloat32, 2, junk.data() + 2);
    w.AddProperties("vertex", {"tag"}, EType::eInt16, 2, tag.data());
    w.AddProperties("vertex", {"x", "y", "z"}, EType::eFloat64, 2, xyz.data());
    std::vector<float> tail(1000);
    w.AddProperties("tail", {"q"}, EType::eFloat32, 1000, tail.data());
    for (EFormat format : {EFormat::eAscii, EFormat::eBinaryLittleEndian, EFormat::eBinaryBigEndian}) {
        SCOPED_TRACE(int(format));
        std::string bytes = writeToString(w, format);
        bytes.resize(bytes.size() - 1000); // cut into the tail element
        auto got = readOne(bytes, "vertex", {"z", "y"}, EType::eFloat32);
        EXPECT_EQ(valuesOf<float>(*got), (std::vector<float>{2.5f, 1.5f, 5.5f, 4.5f}));
    }
}

TEST(PlyCodecRead, ValuesThatDoNotFitTheRequestedTypeFail) {
    const std::string head = "ply\nformat ascii 1.0\nelement v 2\nproperty int a\nend_header\n";
    expectFailure([&] { readOne(head + "5\n-1\n", "v", {"a"}, EType::eUInt32); },
                  "row 1 (line 7): bad value \"-1\" of a (declared int, read as uint)");
    expectFailure([&] { readOne(head + "5\n256\n", "v", {"a"}, EType::eUInt8); }, "read as uchar");
    expectFailure([&] { readOne(head + "5\n1.5\n", "v", {"a"}, EType::eInt32); }, "bad value \"1.5\"");
    expectFailure([&] { readOne(head + "5\nfive\n", "v", {"a"}, EType::eInt32); }, "bad value \"five\"");
    expectFailure([&] { readOne(head + "5\n3000000000\n", "v", {"a"}, EType::eFloat64); }, "bad value \"3000000000\"");
    const std::string uc = "ply\nformat ascii 1.0\nelement v 1\nproperty uchar a\nend_header\n";
    expectFailure([&] { readOne(uc + "300\n", "v", {"a"}, EType::eUInt32); }, "declared uchar, read as uint");
    // A float into an integer must be integral.
    const std::string fl = "ply\nformat ascii 1.0\nelement v 2\nproperty float a\nend_header\n";
    EXPECT_EQ(valuesOf<uint32_t>(*readOne(fl + "4.0\n+7\n", "v", {"a"}, EType::eUInt32)),
              (std::vector<uint32_t>{4, 7}));
    expectFailure([&] { readOne(fl + "4\n7.25\n", "v", {"a"}, EType::eUInt32); },
                  "bad value \"7.25\" of a (declared float, read as uint)");
    expectFailure([&] { readOne(fl + "4\nnan\n", "v", {"a"}, EType::eUInt32); }, "bad value \"nan\"");
    // Binary: a negative int index asked for as unsigned, both through the block path
    // (list alone) and through the converting path (list beside a scalar).
    for (bool withScalar : {false, true}) {
        CPlyBytes b;
        b.Text(std::string("ply\nformat binary_little_endian 1.0\nelement face 2\n") +
               (withScalar ? "property uchar f\n" : "") + "property list uchar int vertex_indices\nend_header\n");
        for (int32_t v : {0, 1, 2, 0, -5, 1}) {
            if (v == 0 && withScalar) b.Le<uint8_t>(0);
            if (v == 0) b.Le<uint8_t>(3);
            b.Le(v);
        }
        expectFailure([&] { readOne(b.Str(), "face", {"vertex_indices"}, EType::eUInt32, 3); }, "row 1");
    }
}

TEST(PlyCodecRead, FixedListLengthIsEnforcedAndFreeListsKeepTheirLengths) {
    const std::string head =
        "ply\nformat ascii 1.0\nelement face 2\nproperty list uchar int vertex_indices\nend_header\n";
    expectFailure([&] { readOne(head + "3 0 1 2\n4 0 1 2 3\n", "face", {"vertex_indices"}, EType::eUInt32, 3); },
                  "has 4 values, expected 3");
    // Three rows where a fixed length would need four tokens each cannot be in 20 bytes.
    const std::string ascii =
        "ply\nformat ascii 1.0\nelement face 3\nproperty list uchar int vertex_indices\nend_header\n"
        "3 0 1 2\n4 0 1 2 3\n0\n";
    expectFailure([&] { readOne(ascii, "face", {"vertex_indices"}, EType::eUInt32, 3); }, "bytes are left");
    auto free = readOne(ascii, "face", {"vertex_indices"}, EType::eInt32);
    EXPECT_EQ(free->listCounts, (std::vector<uint32_t>{3, 4, 0}));
    EXPECT_EQ(valuesOf<int32_t>(*free), (std::vector<int32_t>{0, 1, 2, 0, 1, 2, 3}));
    EXPECT_EQ(free->valuesPerRow, 0u);
    for (EType countType : {EType::eUInt8, EType::eInt32}) {
        CPlyBytes b;
        b.Text(std::string("ply\nformat binary_little_endian 1.0\nelement face 2\nproperty list ") + NameOf(countType) +
               " uint vertex_indices\nend_header\n");
        auto count = [&](int n) {
            countType == EType::eUInt8 ? (void)b.Le<uint8_t>(uint8_t(n)) : (void)b.Le<int32_t>(n);
        };
        count(3);
        b.Le(0u).Le(1u).Le(2u);
        count(4);
        b.Le(0u).Le(1u).Le(2u).Le(3u);
        expectFailure([&] { readOne(b.Str(), "face", {"vertex_indices"}, EType::eUInt32, 3); }, "has 4 values");
    }
    CPlyBytes neg;
    neg.Text(
        "ply\nformat binary_little_endian 1.0\nelement face 1\nproperty list int uint vertex_indices\nend_header\n");
    neg.Le<int32_t>(-3).Le(0u).Le(1u).Le(2u);
    expectFailure([&] { readOne(neg.Str(), "face", {"vertex_indices"}, EType::eUInt32, 3); }, "negative length");
    expectFailure([&] { readOne(neg.Str(), "face", {"vertex_indices"}, EType::eUInt32); }, "negative length");
}

// Every prefix of a valid file fails with a standard exception or reads the same data:
// never a crash, a hang or a read past the end (the sanitizer build checks the latter).
TEST(PlyCodecHostile, EveryTruncationFailsCleanly) {
    std::vector<float> xyz = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0};
    std::vector<uint32_t> faces = {0, 1, 2, 2, 1, 3};
    std::vector<uint8_t> rgb = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    CWriter w;
    w.AddProperties("vertex", {"x", "y", "z"}, EType::eFloat32, 4, xyz.data());
    w.AddProperties("vertex", {"red", "green", "blue"}, EType::eUInt8, 4, rgb.data());
    w.AddProperties("face", {"vertex_indices"}, EType::eUInt32, 2, faces.data(), EType::eUInt8, 3);
    for (EFormat format : {EFormat::eAscii, EFormat::eBinaryLittleEndian, EFormat::eBinaryBigEndian}) {
        const std::string full = writeToString(w, format);
        for (size_t n = 0; n < full.size(); ++n) {
            bool threw = false;
            try {
                auto got = readOne(full.substr(0, n), "face", {"vertex_indices"}, EType::eUInt32, 3);
                EXPECT_EQ(valuesOf<uint32_t>(*got), faces) << "prefix " << n;
            } catch (const std::runtime_error&) {
                threw = true;
            }
            // Only the text form may lose its final line break and still be whole.
            bool whole = format == EFormat::eAscii && n == full.size() - 1;
            EXPECT_EQ(threw, !whole) << "format " << int(format) << " prefix " << n;
        }
    }
}

TEST(PlyCodecHostile, LyingCountsFailBeforeAllocating) {
    // Four billion rows claimed, a few bytes present: rejected from the size check alone.
    const std::string huge = "ply\nformat binary_little_endian 1.0\nelement vertex 4000000000\nproperty double x\n"
                             "property double y\nend_header\n" +
                             std::string(64, '\0');
    expectFailure([&] { readOne(huge, "vertex", {"x", "y"}, EType::eFloat64); }, "bytes are left");
    const std::string list = "ply\nformat binary_little_endian 1.0\nelement face 4000000000\n"
                             "property list uchar uint vertex_indices\nend_header\n" +
                             std::string(64, '\3');
    expectFailure([&] { readOne(list, "face", {"vertex_indices"}, EType::eUInt32, 3); }, "bytes are left");
    const std::string text =
        "ply\nformat ascii 1.0\nelement vertex 18446744073709551615\nproperty float x\nend_header\n1\n";
    expectFailure([&] { readOne(text, "vertex", {"x"}, EType::eFloat32); }, "");
    // A stream that cannot tell its size grows buffers only with the rows it really has.
    // The body is larger than the reader's window so the end is not yet in sight.
    VnTest::CStreamReadUnsized unsized(huge + std::string(size_t(1) << 20, '\0'));
    CReader r(unsized);
    auto b = r.Request("vertex", {"x", "y"}, EType::eFloat64);
    expectFailure([&] { r.Read(); }, "unexpected end of file");
    EXPECT_LE(b->bytes.capacity(), size_t(4) << 20);
    // A long list length that is not backed by bytes, in a free-length request.
    CPlyBytes b2;
    b2.Text(
        "ply\nformat binary_little_endian 1.0\nelement face 1\nproperty list uint double vertex_indices\nend_header\n");
    b2.Le<uint32_t>(0xFFFFFFFFu).Le(1.0);
    expectFailure([&] { readOne(b2.Str(), "face", {"vertex_indices"}, EType::eFloat64); }, "unexpected end of file");
    // Rows without properties claim nothing and read nothing.
    const std::string empty =
        "ply\nformat ascii 1.0\nelement nothing 18446744073709551615\nelement v 1\nproperty float x\n"
        "end_header\n2.5\n";
    EXPECT_EQ(valuesOf<float>(*readOne(empty, "v", {"x"}, EType::eFloat32)), std::vector<float>{2.5f});
}

TEST(PlyCodecHostile, AsciiTokensThatNeverEndAreRefused) {
    std::string t = "ply\nformat ascii 1.0\nelement v 1\nproperty float x\nend_header\n" + std::string(400000, '1');
    t += " \n";
    expectFailure([&] { readOne(t, "v", {"x"}, EType::eFloat32); }, "token longer");
}

TEST(PlyCodecWriter, HeaderLayoutAndAsciiRowsAreExact) {
    std::vector<float> xyz = {0.1f, -2, 3e10f};
    std::vector<uint8_t> c = {255, 0, 7};
    std::vector<uint32_t> f = {0, 0, 0};
    CWriter w;
    w.AddProperties("vertex", {"x", "y", "z"}, EType::eFloat32, 1, xyz.data());
    w.AddProperties("face", {"vertex_indices"}, EType::eUInt32, 1, f.data(), EType::eUInt8, 3);
    w.AddProperties("vertex", {"red", "green", "blue"}, EType::eUInt8, 1, c.data());
    w.AddComment("hello");
    EXPECT_EQ(writeToString(w, EFormat::eAscii),
              "ply\nformat ascii 1.0\ncomment hello\nelement vertex 1\nproperty float x\nproperty float y\n"
              "property float z\nproperty uchar red\nproperty uchar green\nproperty uchar blue\nelement face 1\n"
              "property list uchar uint vertex_indices\nend_header\n0.1 -2 3e+10 255 0 7\n3 0 0 0\n");
    std::string bin = writeToString(w, EFormat::eBinaryLittleEndian);
    size_t body = bin.find("end_header\n") + 11;
    EXPECT_EQ(bin.size() - body, 15u + 13u);
    EXPECT_EQ(bin[body + 15], '\3');
}

TEST(PlyCodecWriter, CallerMistakesAreInvalidArguments) {
    std::vector<float> v(6);
    CWriter w;
    w.AddProperties("vertex", {"x"}, EType::eFloat32, 6, v.data());
    EXPECT_THROW(w.AddProperties("vertex", {"y"}, EType::eFloat32, 5, v.data()), std::invalid_argument);
    EXPECT_THROW(w.AddProperties("vertex", {"x"}, EType::eFloat32, 6, v.data()), std::invalid_argument);
    EXPECT_THROW(w.AddProperties("vertex", {"bad name"}, EType::eFloat32, 6, v.data()), std::invalid_argument);
    EXPECT_THROW(w.AddProperties("vertex", {"y"}, EType::eNone, 6, v.data()), std::invalid_argument);
    EXPECT_THROW(w.AddProperties("vertex", {"y"}, EType::eFloat32, 6, nullptr), std::invalid_argument);
    EXPECT_THROW(w.AddProperties("face", {"i"}, EType::eUInt32, 1, v.data(), EType::eUInt8, 256),
                 std::invalid_argument);
    EXPECT_THROW(w.AddProperties("face", {"i"}, EType::eUInt32, 1, v.data(), EType::eFloat32, 3),
                 std::invalid_argument);
    EXPECT_THROW(w.AddProperties("face", {"i", "j"}, EType::eUInt32, 1, v.data(), EType::eUInt8, 3),
                 std::invalid_argument);
    w.AddComment("two\nlines");
    CbStreamWriteBinaryMemory out;
    EXPECT_THROW(w.Write(out, EFormat::eAscii), std::invalid_argument);
    EXPECT_EQ(out.GetSize(), 0u);
}

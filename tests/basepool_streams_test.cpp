// Binary and text streams of the foundation layers: exact little-endian byte images,
// truncation and forged counts, version words, the text line and number readers over
// whole and fragmented sources, and printf-style formatting under a decimal-comma locale.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <locale.h>
#include <memory>
#include <string>
#include <vector>

#include "basepool/cbstreamascii.h"
#include "basepool/cbstreambinary.h"
#include "basepool/cbstring.h"
#include "vnbase/vnstreamfile.h"
#include "vnbase/vnstreamreadascii.h"

namespace {

std::vector<uint8_t> bytes(std::initializer_list<int> list) {
    std::vector<uint8_t> out;
    for (int b : list) out.push_back(static_cast<uint8_t>(b));
    return out;
}

// A binary source that does not know its size, like a pipe: string counts can only be
// bounded by the stream's fixed ceiling.
class CUnknownSizeSource : public CbStreamReadBinary {
public:
    explicit CUnknownSizeSource(std::vector<uint8_t> data) : m_data(std::move(data)) {
        m_cur = m_data.data();
        m_end = m_cur + m_data.size();
    }

protected:
    size_t readSlow(void* buffer, size_t count) override {
        size_t n = std::min(count, static_cast<size_t>(m_end - m_cur));
        if (n) std::memcpy(buffer, m_cur, n);
        m_cur += n;
        return n;
    }

private:
    std::vector<uint8_t> m_data;
};

// Text delivered a few bytes per refill, so lines and tokens straddle window borders.
class CFragmentedText : public VnStreamReadASCIIT<CStringA> {
public:
    CFragmentedText(std::string text, size_t chunk) : m_text(std::move(text)), m_chunk(chunk) {}

protected:
    bool refill() override {
        if (m_pos >= m_text.size()) return false;
        size_t n = std::min(m_chunk, m_text.size() - m_pos);
        // A fresh buffer per window, so a view that outlives its window shows up under ASan.
        m_window = std::make_unique<char[]>(n);
        std::memcpy(m_window.get(), m_text.data() + m_pos, n);
        m_cur = m_window.get();
        m_end = m_cur + n;
        m_pos += n;
        return true;
    }

private:
    std::string m_text;
    std::unique_ptr<char[]> m_window;
    size_t m_chunk, m_pos = 0;
};

template <class Reader> std::vector<std::string> readLines(Reader& r) {
    std::vector<std::string> lines;
    CStringA line;
    while (r.ReadLine(line)) lines.push_back(line);
    EXPECT_TRUE(r.IsEnd());
    return lines;
}

template <class Fn> void expectStreamError(Fn fn) { EXPECT_THROW(fn(), CbExceptionStream); }

std::filesystem::path tempFile(const char* name) {
    return std::filesystem::temp_directory_path() / (std::string("vnio_streams_") + name);
}

} // namespace

// ---------------------------------------------------------------------------------------
// Typed binary values

TEST(CbStreamBinaryTyped, ExactLittleEndianImageAndRoundTrip) {
    CbStreamWriteBinaryMemory w;
    w << true << 'A' << static_cast<signed char>(-2) << static_cast<unsigned char>(200) << static_cast<short>(-3)
      << static_cast<unsigned short>(0xBEEF) << -5 << 0xDEADBEEFu << -6L << 0xCAFEBABEUL << -7LL
      << 0x0123456789ABCDEFULL << 1.5f << -2.25;
    const std::vector<uint8_t> expected = bytes({
        0x01, 0x41, 0xFE, 0xC8, 0xFD, 0xFF, 0xEF, 0xBE,         // bool char schar uchar short ushort
        0xFB, 0xFF, 0xFF, 0xFF, 0xEF, 0xBE, 0xAD, 0xDE,         // int uint
        0xFA, 0xFF, 0xFF, 0xFF, 0xBE, 0xBA, 0xFE, 0xCA,         // long and unsigned long: 4 bytes
        0xF9, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,         // int64
        0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01,         // uint64
        0x00, 0x00, 0xC0, 0x3F,                                 // 1.5f
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0xC0,         // -2.25
    });
    EXPECT_EQ(w.GetData(), expected);

    CbStreamReadBinaryMemory r(w.GetData().data(), w.GetData().size());
    bool b;
    char c;
    signed char sc;
    unsigned char uc;
    short s;
    unsigned short us;
    int i;
    unsigned int ui;
    long l;
    unsigned long ul;
    long long ll;
    unsigned long long ull;
    float f;
    double d;
    r >> b >> c >> sc >> uc >> s >> us >> i >> ui >> l >> ul >> ll >> ull >> f >> d;
    EXPECT_TRUE(b);
    EXPECT_EQ(c, 'A');
    EXPECT_EQ(sc, -2);
    EXPECT_EQ(uc, 200);
    EXPECT_EQ(s, -3);
    EXPECT_EQ(us, 0xBEEF);
    EXPECT_EQ(i, -5);
    EXPECT_EQ(ui, 0xDEADBEEFu);
    EXPECT_EQ(l, -6L) << "a 4-byte long must sign-extend";
    EXPECT_EQ(ul, 0xCAFEBABEUL) << "a 4-byte unsigned long must not sign-extend";
    EXPECT_EQ(ll, -7LL);
    EXPECT_EQ(ull, 0x0123456789ABCDEFULL);
    EXPECT_EQ(f, 1.5f);
    EXPECT_EQ(d, -2.25);
    EXPECT_EQ(r.GetBytesLeft(), 0u);
}

TEST(CbStreamBinaryTyped, AnyNonZeroByteReadsAsTrue) {
    const auto data = bytes({0x00, 0x02, 0xFF});
    CbStreamReadBinaryMemory r(data.data(), data.size());
    bool a, b, c;
    r >> a >> b >> c;
    EXPECT_FALSE(a);
    EXPECT_TRUE(b);
    EXPECT_TRUE(c);
}

TEST(CbStreamBinaryTyped, LargeWritesGrowTheMemorySink) {
    CbStreamWriteBinaryMemory w;
    for (uint32_t i = 0; i < 50000; ++i) w << i;
    std::vector<uint8_t> big(10000, 0x5A);
    w.WriteBuffer(big.data(), big.size());
    EXPECT_EQ(w.GetSize(), 210000u);
    CbStreamReadBinaryMemory r(w.TakeData());
    for (uint32_t i = 0; i < 50000; ++i) {
        uint32_t v;
        r >> v;
        ASSERT_EQ(v, i);
    }
    std::vector<uint8_t> back(10000);
    EXPECT_EQ(r.ReadBuffer(back.data(), back.size()), back.size());
    EXPECT_EQ(back, big);
}

// ---------------------------------------------------------------------------------------
// Truncation and forged counts

TEST(CbStreamBinaryTruncation, ShortReadBufferThenTypedReadThrows) {
    const auto data = bytes({1, 2, 3});
    CbStreamReadBinaryMemory r(data.data(), data.size());
    uint8_t buf[8] = {};
    EXPECT_EQ(r.ReadBuffer(buf, sizeof(buf)), 3u);
    EXPECT_EQ(buf[2], 3);
    EXPECT_EQ(r.GetBytesLeft(), 0u);
    EXPECT_EQ(r.ReadBuffer(buf, 1), 0u) << "the stream stays at its end";
    uint8_t b;
    expectStreamError([&] { r >> b; });
}

TEST(CbStreamBinaryTruncation, EveryTypedReadThrowsWhenOneByteShort) {
    // A value cut by one byte must throw, never read a partial value.
    for (size_t width : {2u, 4u, 8u}) {
        std::vector<uint8_t> data(width - 1, 0xAB);
        auto read = [&](auto value) {
            CbStreamReadBinaryMemory r(data.data(), data.size());
            expectStreamError([&] { r >> value; });
        };
        if (width == 2) { read(short{}); read(static_cast<unsigned short>(0)); }
        if (width == 4) { read(int{}); read(0u); read(0L); read(0UL); read(0.f); }
        if (width == 8) { read(0LL); read(0ULL); read(0.0); }
    }
}

TEST(CbStreamBinaryTruncation, StringCountsBeyondBytesLeftThrow) {
    // Narrow: count 5 but only 2 bytes follow.
    auto narrow = bytes({5, 0, 0, 0, 'a', 'b'});
    CbStreamReadBinaryMemory r1(narrow.data(), narrow.size());
    std::string s = "unchanged";
    expectStreamError([&] { r1 >> s; });
    EXPECT_EQ(s, "unchanged") << "a failed read must not leave half a string";
    // Wide: 3 code units need 6 bytes, 4 follow.
    auto wide = bytes({3, 0, 0, 0, 'a', 0, 'b', 0});
    CbStreamReadBinaryMemory r2(wide.data(), wide.size());
    CStringW w;
    expectStreamError([&] { r2 >> w; });
    // A unit count whose byte size overflows 32 bits.
    auto huge = bytes({0x01, 0x00, 0x00, 0x80, 'a', 0});
    CbStreamReadBinaryMemory r3(huge.data(), huge.size());
    expectStreamError([&] { r3 >> w; });
    // A source of unknown size must refuse a 4 GB count instead of allocating it.
    CUnknownSizeSource r4(bytes({0xFF, 0xFF, 0xFF, 0xFF, 'x'}));
    expectStreamError([&] { r4 >> s; });
    CUnknownSizeSource r5(bytes({0xFF, 0xFF, 0xFF, 0x7F, 'x', 0}));
    expectStreamError([&] { r5 >> w; });
    // Within the ceiling but truncated: still a stream error.
    CUnknownSizeSource r6(bytes({0x10, 0, 0, 0, 'x'}));
    expectStreamError([&] { r6 >> s; });
}

TEST(CbStreamBinaryTruncation, WriteFailureIsAStreamError) {
    CbStreamWriteBinaryLimited w(10);
    w << 1 << 2;
    expectStreamError([&] { w << 3; });
    EXPECT_EQ(w.GetSize(), 8u);
    expectStreamError([&] { w << std::string("abc"); });
}

// ---------------------------------------------------------------------------------------
// Strings

TEST(CbStreamBinaryStrings, NarrowStringsAreCountPlusBytes) {
    CbStreamWriteBinaryMemory w;
    w << std::string("h\xC3\xA9") << CStringA("") << static_cast<const char*>(nullptr) << "z";
    EXPECT_EQ(w.GetData(), bytes({3, 0, 0, 0, 'h', 0xC3, 0xA9, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 'z'}));
    CbStreamReadBinaryMemory r(w.GetData().data(), w.GetData().size());
    CStringA a, b, c;
    std::string d;
    r >> a >> b >> c >> d;
    EXPECT_EQ(a, "h\xC3\xA9");
    EXPECT_TRUE(b.IsEmpty());
    EXPECT_TRUE(c.IsEmpty());
    EXPECT_EQ(d, "z");
}

TEST(CbStreamBinaryStrings, WideStringsTravelAsUtf16WithSurrogatePairs) {
    const std::wstring text = L"a\U0001F600\u00E9\U00010000\U0010FFFF";
    CbStreamWriteBinaryMemory w;
    w << text;
    EXPECT_EQ(w.GetData(), bytes({8, 0, 0, 0,                 // 8 UTF-16 code units
                                  'a', 0, 0x3D, 0xD8, 0x00, 0xDE, // a, U+1F600
                                  0xE9, 0x00,                     // e acute
                                  0x00, 0xD8, 0x00, 0xDC,         // U+10000
                                  0xFF, 0xDB, 0xFF, 0xDF}));      // U+10FFFF
    CbStreamReadBinaryMemory r(w.GetData().data(), w.GetData().size());
    CStringW back;
    r >> back;
    EXPECT_EQ(back, text);

    // The pointer and CStringW forms write the same bytes.
    CbStreamWriteBinaryMemory w2;
    w2 << text.c_str();
    CbStreamWriteBinaryMemory w3;
    w3 << CStringW(text);
    EXPECT_EQ(w2.GetData(), w.GetData());
    EXPECT_EQ(w3.GetData(), w.GetData());
}

TEST(CbStreamBinaryStrings, LoneSurrogatesSurviveARoundTrip) {
    // A high surrogate at the end and a low one alone: kept as units, not merged or lost.
    auto data = bytes({3, 0, 0, 0, 0x00, 0xDC, 'x', 0, 0x00, 0xD8});
    CbStreamReadBinaryMemory r(data.data(), data.size());
    std::wstring w;
    r >> w;
    ASSERT_EQ(w.size(), 3u);
    EXPECT_EQ(static_cast<uint32_t>(w[0]), 0xDC00u);
    EXPECT_EQ(static_cast<uint32_t>(w[2]), 0xD800u);
    CbStreamWriteBinaryMemory out;
    out << w;
    EXPECT_EQ(out.GetData(), data);
}

// ---------------------------------------------------------------------------------------
// Version words

TEST(CbStreamVersion, AcceptsUpToOwnVersionAndRejectsNewer) {
    CbStreamWriteBinaryMemory w;
    w.WriteVersion(3);
    EXPECT_EQ(w.GetData(), bytes({3, 0, 0, 0}));
    for (uint32_t own : {3u, 4u, 100u}) {
        CbStreamReadBinaryMemory r(w.GetData().data(), w.GetData().size());
        EXPECT_EQ(r.ReadAndCompareVersion(own), 3u) << "reader version " << own;
    }
    CbStreamReadBinaryMemory older(w.GetData().data(), w.GetData().size());
    EXPECT_THROW(older.ReadAndCompareVersion(2), CbExceptionWrongFileVersion);
    auto zero = bytes({0, 0, 0, 0});
    CbStreamReadBinaryMemory rz(zero.data(), zero.size());
    EXPECT_EQ(rz.ReadAndCompareVersion(0), 0u);
    // A truncated version word is a stream failure, not a version mismatch.
    auto cut = bytes({3, 0});
    CbStreamReadBinaryMemory rc(cut.data(), cut.size());
    try {
        rc.ReadAndCompareVersion(3);
        ADD_FAILURE() << "no exception";
    } catch (const CbExceptionWrongFileVersion&) {
        ADD_FAILURE() << "wrong exception class";
    } catch (const CbExceptionStream&) {
    }
}

// ---------------------------------------------------------------------------------------
// File forms

// Writes of every size, through windows that grow while the file is written and past the
// largest window, arrive in order; the files read back byte for byte in both stream kinds.
TEST(CbStreamBinaryFile, MixedSizeWritesAcrossGrowingWindowsReadBack) {
    std::string expected;
    std::vector<size_t> sizes;
    for (size_t i = 0; expected.size() < (5u << 20); ++i) {
        const size_t n = (i * 7919) % 5 == 0 ? (i * 104729) % (700u << 10) : (i * 31) % 97 + 1;
        sizes.push_back(n);
        for (size_t k = 0; k < n; ++k) expected.push_back(char('a' + (expected.size() * 131) % 26));
    }
    const auto binPath = tempFile("mixed.bin"), txtPath = tempFile("mixed.txt");
    {
        VnStreamWriteBinaryFile bin(CbUtf8ToWide(binPath.string()).c_str());
        VnStreamWriteASCIIFile txt(CbUtf8ToWide(txtPath.string()), 0, 0, nullptr);
        size_t at = 0;
        for (size_t n : sizes) {
            bin.WriteBuffer(expected.data() + at, n);
            txt.Write(expected.data() + at, n);
            at += n;
        }
        bin.Flush();
        txt.Flush();
    }
    for (const auto& path : {binPath, txtPath}) {
        std::FILE* f = std::fopen(path.string().c_str(), "rb");
        ASSERT_TRUE(f);
        std::string got(expected.size() + 1, '\0');
        got.resize(std::fread(got.data(), 1, got.size(), f));
        std::fclose(f);
        EXPECT_TRUE(got == expected) << path << ": " << got.size() << " of " << expected.size() << " bytes";
        std::filesystem::remove(path);
    }
}

TEST(CbStreamBinaryFile, TypedRoundTripAndShortReadAtEnd) {
    const auto path = tempFile("typed.bin");
    const CStringW wpath = CbUtf8ToWide(path.string());
    {
        VnStreamWriteBinaryFile w(wpath.c_str());
        w.WriteVersion(2);
        w << -6L << 2.5 << std::wstring(L"\U0001F600") << std::string("abc");
        w.Flush();
    }
    EXPECT_EQ(std::filesystem::file_size(path), 4u + 4 + 8 + 4 + 4 + 4 + 3);
    VnStreamReadBinaryFile r(wpath.c_str());
    EXPECT_EQ(r.GetBytesLeft(), 31u);
    EXPECT_EQ(r.ReadAndCompareVersion(2), 2u);
    long l;
    double d;
    std::wstring w;
    r >> l >> d >> w;
    EXPECT_EQ(l, -6L);
    EXPECT_EQ(d, 2.5);
    EXPECT_EQ(w, L"\U0001F600");
    char buf[16];
    EXPECT_EQ(r.ReadBuffer(buf, sizeof(buf)), 7u);
    int i;
    expectStreamError([&] { r >> i; });
    std::filesystem::remove(path);
}

// ---------------------------------------------------------------------------------------
// Text reader: lines

TEST(VnStreamReadASCIILines, LastLineWithoutNewlineAndCrLf) {
    const std::string text = "first\nsecond\r\n\r\n\nlast";
    const std::vector<std::string> expected{"first", "second\r", "\r", "", "last"};
    VnStreamReadASCIIMemory r(text);
    EXPECT_EQ(readLines(r), expected);
    CStringA line = "x";
    EXPECT_FALSE(r.ReadLine(line));
    EXPECT_TRUE(line.IsEmpty());

    // A loop driven by the end flag sees the same lines, the unterminated last one included.
    VnStreamReadASCIIMemory r2(text);
    std::vector<std::string> viaFlag;
    while (!r2.IsEnd()) {
        r2.ReadLine(line);
        viaFlag.push_back(line);
    }
    EXPECT_EQ(viaFlag, expected);

    for (size_t chunk : {1u, 2u, 3u, 7u}) {
        CFragmentedText f(text, chunk);
        EXPECT_EQ(readLines(f), expected) << "chunk " << chunk;
    }
}

TEST(VnStreamReadASCIILines, TrailingNewlineAddsNoEmptyLineAndEmptyInputHasNone) {
    VnStreamReadASCIIMemory r("a\nb\n");
    EXPECT_EQ(readLines(r), (std::vector<std::string>{"a", "b"}));
    VnStreamReadASCIIMemory empty("");
    EXPECT_TRUE(readLines(empty).empty());
    VnStreamReadASCIIMemory lone("\n");
    EXPECT_EQ(readLines(lone), (std::vector<std::string>{""}));
    CFragmentedText f("", 4);
    EXPECT_TRUE(readLines(f).empty());
}

TEST(VnStreamReadASCIILines, CharacterWalkSetsEndOnlyAfterTheLastCharacter) {
    VnStreamReadASCIIMemory r("xy");
    EXPECT_FALSE(r.IsEnd());
    EXPECT_EQ(r.GetChar(), 'x');
    r.Next();
    EXPECT_EQ(r.GetChar(), 'y');
    EXPECT_FALSE(r.IsEnd());
    r.Next();
    EXPECT_TRUE(r.IsEnd());
    r.Next(); // harmless at the end
    EXPECT_TRUE(r.IsEnd());

    CFragmentedText f("abc\ndef", 2);
    std::string walked;
    for (; !f.IsEnd(); f.Next()) walked.push_back(f.GetChar());
    EXPECT_EQ(walked, "abc\ndef");
}

TEST(VnStreamReadASCIILines, LongLinesAcrossWindowsMatchTheWholeText) {
    std::string text;
    for (int i = 0; i < 200; ++i) text += std::string(static_cast<size_t>(i * 7 % 97), static_cast<char>('a' + i % 26)) + "\n";
    text += "tail";
    VnStreamReadASCIIMemory whole(text);
    const auto expected = readLines(whole);
    ASSERT_EQ(expected.size(), 201u);
    for (size_t chunk : {1u, 5u, 64u, 4096u}) {
        CFragmentedText f(text, chunk);
        EXPECT_EQ(readLines(f), expected) << "chunk " << chunk;
    }
}

// ---------------------------------------------------------------------------------------
// Text reader: numbers and tokens

TEST(VnStreamReadASCIINumbers, CommentsAndWhitespaceAreSkipped) {
    const std::string text = "# header line\n  42 # trailing words 99\n\t7\r\n12#glued\n 3.25 -1e3 +2.5 # end";
    for (size_t chunk : {0u, 1u, 3u}) {
        auto check = [](VnStreamReadASCIIT<CStringA>& r) {
            EXPECT_EQ(r.ReadUnsigned(), 42u);
            EXPECT_EQ(r.ReadUnsigned(), 7u);
            EXPECT_EQ(r.ReadUnsigned(), 12u);
            EXPECT_EQ(r.ReadFloat(), 3.25f);
            EXPECT_EQ(r.ReadFloat(), -1000.f);
            EXPECT_EQ(r.ReadFloat(), 2.5f);
            EXPECT_TRUE(r.ReadToken().empty());
            EXPECT_THROW(r.ReadFloat(), CbExceptionStream) << "no number left";
        };
        if (chunk == 0) {
            VnStreamReadASCIIMemory r(text);
            check(r);
        } else {
            CFragmentedText f(text, chunk);
            check(f);
        }
    }
}

TEST(VnStreamReadASCIINumbers, BadTokensThrow) {
    auto unsignedThrows = [](const char* text) {
        VnStreamReadASCIIMemory r(text);
        EXPECT_THROW(r.ReadUnsigned(), CbExceptionStream) << '"' << text << '"';
    };
    for (const char* t : {"12abc", "-1", "+1", "4294967296", "99999999999999999999999", "1.5", "abc", "", "  # only"})
        unsignedThrows(t);
    auto floatThrows = [](const char* text) {
        VnStreamReadASCIIMemory r(text);
        EXPECT_THROW(r.ReadFloat(), CbExceptionStream) << '"' << text << '"';
    };
    for (const char* t : {"1,5", "abc", "1.5x", "--1", "+-1", "", "#"}) floatThrows(t);

    VnStreamReadASCIIMemory edge("4294967295 0 1e999 -1e999 -1e-999 1e-50 1e39");
    EXPECT_EQ(edge.ReadUnsigned(), 4294967295u);
    EXPECT_EQ(edge.ReadUnsigned(), 0u);
    EXPECT_EQ(edge.ReadFloat(), std::numeric_limits<float>::infinity());
    EXPECT_EQ(edge.ReadFloat(), -std::numeric_limits<float>::infinity());
    float negTiny = edge.ReadFloat();
    EXPECT_EQ(negTiny, 0.f);
    EXPECT_TRUE(std::signbit(negTiny));
    EXPECT_EQ(edge.ReadFloat(), 0.f);
    EXPECT_EQ(edge.ReadFloat(), std::numeric_limits<float>::infinity()) << "beyond float range, like strtof";
}

TEST(VnStreamReadASCIINumbers, TokensSplitAcrossWindows) {
    const std::string text = "alpha  beta#c\ngamma\tdelta";
    CFragmentedText f(text, 2);
    std::vector<std::string> tokens;
    for (std::string_view t = f.ReadToken(); !t.empty(); t = f.ReadToken()) tokens.emplace_back(t);
    EXPECT_EQ(tokens, (std::vector<std::string>{"alpha", "beta", "gamma", "delta"}));
}

// ---------------------------------------------------------------------------------------
// Text writer and formatting

TEST(CbStreamWriteASCII, WritesChainWithoutTerminators) {
    CbStreamWriteASCIIMemory w;
    w << "solid " << CStringA("name") << std::string_view("\n");
    std::string big(10000, 'q');
    w << big.c_str() << static_cast<const char*>(nullptr) << "!";
    EXPECT_EQ(w.GetText(), "solid name\n" + big + "!");
}

namespace {
// Switches the process to a decimal-comma locale for one test, restoring the old one.
class CProcessLocale {
public:
    explicit CProcessLocale(const char* name) {
        const char* current = std::setlocale(LC_ALL, nullptr);
        m_previous = current ? current : "C";
        m_active = std::setlocale(LC_ALL, name) != nullptr;
    }
    ~CProcessLocale() { std::setlocale(LC_ALL, m_previous.c_str()); }
    bool IsActive() const { return m_active; }

private:
    std::string m_previous;
    bool m_active = false;
};

std::string plainPrintf(const char* format, double v) {
    char buf[64];
    std::snprintf(buf, sizeof(buf), format, v);
    return buf;
}
} // namespace

TEST(CbFormatA, FormatsInTheCLocale) {
    EXPECT_EQ(CbFormatA("%d|%5.2f|%-3s|%x|%.9g", -4, 3.14159, "ab", 255u, 0.1f), "-4| 3.14|ab |ff|0.100000001");
    const std::string longText(1000, 'x');
    CStringA big = CbFormatA("%s|%d", longText.c_str(), 7);
    EXPECT_EQ(big, longText + "|7") << "output beyond the small buffer";
    EXPECT_EQ(CbFormatA("%s", ""), "");
}

TEST(CbFormatA, DecimalCommaLocaleDoesNotLeakIntoNumbers) {
    CProcessLocale german("de_DE.UTF-8");
    if (!german.IsActive()) GTEST_SKIP() << "de_DE.UTF-8 locale not installed";
    ASSERT_EQ(plainPrintf("%.2f", 1.5), "1,50") << "the locale should be in effect for plain printf";
    EXPECT_EQ(CbFormatA("%.2f %g %e %.9g", 1.5, 0.25, 1e10, 1234.5), "1.50 0.25 1.000000e+10 1234.5");
    EXPECT_EQ(plainPrintf("%.2f", 1.5), "1,50") << "the caller's locale must be back after formatting";

    // A thread-local locale set by the caller must also be restored.
    locale_t german2 = newlocale(LC_ALL_MASK, "de_DE.UTF-8", static_cast<locale_t>(0));
    ASSERT_NE(german2, static_cast<locale_t>(0));
    CProcessLocale c("C");
    locale_t previous = uselocale(german2);
    EXPECT_EQ(CbFormatA("%.1f", 2.5), "2.5");
    EXPECT_EQ(plainPrintf("%.1f", 2.5), "2,5");
    uselocale(previous);
    freelocale(german2);

    // The text reader parses the C way under the same locale.
    CProcessLocale again("de_DE.UTF-8");
    VnStreamReadASCIIMemory r("1.5 2,5");
    EXPECT_EQ(r.ReadFloat(), 1.5f);
    EXPECT_THROW(r.ReadFloat(), CbExceptionStream);
}

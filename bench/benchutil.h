#pragma once
// Shared pieces of the benchmarks: a large mesh built in code, temporary files, and the
// baselines every format figure is compared with (reading the file, scanning its numbers).
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "basepool/cbstring.h"
#include "vn3dbase/ctriangulation.h"

namespace VnBench {

// A closed sphere of about 2 * rings * segments triangles.
inline Geometry::CTriangulation MakeSphere(unsigned rings, unsigned segments) {
    using namespace Geometry;
    CTriangulation m;
    const double pi = 3.14159265358979323846;
    m.ReserveVertices(rings * segments + 2);
    m.ReserveTriangles(2 * rings * segments);
    m.AddVertex(CbVector3f(0, 0, 1));
    for (unsigned r = 1; r < rings; ++r) {
        double theta = pi * r / rings;
        for (unsigned s = 0; s < segments; ++s) {
            double phi = 2 * pi * s / segments;
            m.AddVertex(CbVector3f(float(std::sin(theta) * std::cos(phi)), float(std::sin(theta) * std::sin(phi)),
                                   float(std::cos(theta))));
        }
    }
    uint32_t south = m.AddVertex(CbVector3f(0, 0, -1));
    auto ring = [&](unsigned r, unsigned s) { return CVertexRef(1 + (r - 1) * segments + (s % segments)); };
    for (unsigned s = 0; s < segments; ++s) m.AddTriangle(CVertexRef(0), ring(1, s), ring(1, s + 1));
    for (unsigned r = 1; r + 1 < rings; ++r)
        for (unsigned s = 0; s < segments; ++s) {
            m.AddTriangle(ring(r, s), ring(r + 1, s), ring(r + 1, s + 1));
            m.AddTriangle(ring(r, s), ring(r + 1, s + 1), ring(r, s + 1));
        }
    for (unsigned s = 0; s < segments; ++s) m.AddTriangle(ring(rings - 1, s), CVertexRef(south), ring(rings - 1, s + 1));
    return m;
}

inline std::string TempFile(const std::string& name) {
    auto dir = std::filesystem::temp_directory_path() / "vnio_bench";
    std::filesystem::create_directories(dir);
    return (dir / name).string();
}

inline std::wstring Wide(const std::string& s) { return CbUtf8ToWide(s); }

// Reads the whole file into a buffer the caller keeps (so the pages are touched once).
inline size_t ReadWhole(const std::string& path, std::vector<char>& buffer) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return 0;
    size_t size = static_cast<size_t>(std::filesystem::file_size(path));
    if (buffer.size() < size) buffer.resize(size);
    size_t total = std::fread(buffer.data(), 1, size, f);
    std::fclose(f);
    return total;
}

// Streams the file in 1 MiB blocks and parses every number-looking token with from_chars:
// the floor for any text reader of the same file.
inline double ScanNumbers(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return 0;
    std::vector<char> block(1 << 20);
    std::string carry;
    double sum = 0;
    auto scan = [&](const char* p, const char* e) {
        while (p < e) {
            while (p < e && (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t' || *p == '/')) ++p;
            const char* t = p;
            while (p < e && !(*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t' || *p == '/')) ++p;
            if (t < p && ((*t >= '0' && *t <= '9') || *t == '-' || *t == '.')) {
                double v = 0;
                std::from_chars(t, p, v);
                sum += v;
            }
        }
    };
    for (;;) {
        size_t n = std::fread(block.data(), 1, block.size(), f);
        if (n == 0) break;
        size_t cut = n;
        while (cut > 0 && block[cut - 1] != '\n') --cut;
        carry.append(block.data(), cut);
        scan(carry.data(), carry.data() + carry.size());
        carry.assign(block.data() + cut, n - cut);
    }
    scan(carry.data(), carry.data() + carry.size());
    std::fclose(f);
    return sum;
}

} // namespace VnBench

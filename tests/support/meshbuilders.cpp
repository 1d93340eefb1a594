#include "support/meshbuilders.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

#include "basepool/cbstring.h"

using namespace Geometry;

namespace VnTest {

CTriangulation MakeCube() {
    CTriangulation m;
    for (int i = 0; i < 8; ++i) m.AddVertex(CbVector3f(float(i & 1), float((i >> 1) & 1), float((i >> 2) & 1)));
    static const uint32_t f[12][3] = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                                      {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
    for (auto& t : f) m.AddTriangle(CVertexRef(t[0]), CVertexRef(t[1]), CVertexRef(t[2]));
    return m;
}

CTriangulation MakeSphere(unsigned rings, unsigned segments) {
    CTriangulation m;
    const float pi = 3.14159265358979f;
    m.AddVertex(CbVector3f(0, 0, 1));
    for (unsigned r = 1; r < rings; ++r) {
        float theta = pi * float(r) / float(rings);
        for (unsigned s = 0; s < segments; ++s) {
            float phi = 2 * pi * float(s) / float(segments);
            m.AddVertex(CbVector3f(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), std::cos(theta)));
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

CTriangulation MakeGrid(unsigned nx, unsigned ny) {
    CTriangulation m;
    for (unsigned y = 0; y <= ny; ++y)
        for (unsigned x = 0; x <= nx; ++x) m.AddVertex(CbVector3f(float(x), float(y), 0.f));
    auto id = [&](unsigned x, unsigned y) { return CVertexRef(y * (nx + 1) + x); };
    for (unsigned y = 0; y < ny; ++y)
        for (unsigned x = 0; x < nx; ++x) {
            m.AddTriangle(id(x, y), id(x + 1, y), id(x + 1, y + 1));
            m.AddTriangle(id(x, y), id(x + 1, y + 1), id(x, y + 1));
        }
    return m;
}

CTriangulation MakeTorus(unsigned nu, unsigned nv) {
    CTriangulation m;
    const float pi = 3.14159265358979f;
    for (unsigned j = 0; j < nv; ++j)
        for (unsigned i = 0; i < nu; ++i) {
            float u = 2 * pi * float(i) / float(nu), v = 2 * pi * float(j) / float(nv);
            m.AddVertex(CbVector3f((2 + std::cos(v)) * std::cos(u), (2 + std::cos(v)) * std::sin(u), std::sin(v)));
        }
    auto id = [&](unsigned i, unsigned j) { return CVertexRef((j % nv) * nu + (i % nu)); };
    for (unsigned j = 0; j < nv; ++j)
        for (unsigned i = 0; i < nu; ++i) {
            m.AddTriangle(id(i, j), id(i + 1, j), id(i + 1, j + 1));
            m.AddTriangle(id(i, j), id(i + 1, j + 1), id(i, j + 1));
        }
    return m;
}

std::wstring TempPath(const std::string& name) {
    static const std::filesystem::path dir = [] {
        auto d = std::filesystem::temp_directory_path() / ("vnio_tests_" + std::to_string(::getpid()));
        std::filesystem::create_directories(d);
        return d;
    }();
    return CbUtf8ToWide((dir / name).string());
}

std::wstring WriteTempFile(const std::string& name, const std::string& bytes) {
    std::wstring path = TempPath(name);
    std::ofstream out(CbWideToUtf8(path), std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
}

std::string ReadFileBytes(const std::wstring& path) {
    std::ifstream in(CbWideToUtf8(path), std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

} // namespace VnTest

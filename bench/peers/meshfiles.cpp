#include <sys/resource.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <numbers>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include "basepool/cbexception.h"
#include "basepool/cbstring.h"
#include "common.h"
#include "vnio/vnobj.h"
#include "vnio/vnoff.h"
#include "vnio/vnply.h"
#include "vnio/vnstl.h"

namespace Compare {

namespace {

class CFile {
public:
    CFile(const std::string& path, const char* mode) : m_f(std::fopen(path.c_str(), mode)) {
        if (!m_f) throw std::runtime_error("cannot open " + path);
        std::setvbuf(m_f, nullptr, _IOFBF, 1 << 20);
    }
    ~CFile() {
        if (m_f) std::fclose(m_f);
    }
    void Write(const void* p, size_t n) {
        if (std::fwrite(p, 1, n, m_f) != n) throw std::runtime_error("write failed");
    }
    void Write(const std::string& s) { Write(s.data(), s.size()); }
    void Close() {
        if (std::fclose(m_f) != 0) {
            m_f = nullptr;
            throw std::runtime_error("close failed");
        }
        m_f = nullptr;
    }
    FILE* Get() { return m_f; }

private:
    FILE* m_f;
};

// Appends the shortest text that reads back to exactly f.
void appendFloat(std::string& out, float f) {
    char buf[32];
    auto r = std::to_chars(buf, buf + sizeof buf, f);
    out.append(buf, r.ptr);
}

void appendUint(std::string& out, uint32_t u) {
    char buf[16];
    auto r = std::to_chars(buf, buf + sizeof buf, u);
    out.append(buf, r.ptr);
}

// Writes text in blocks so a million-triangle mesh never sits in memory twice.
template <class F> void writeText(const std::string& path, const std::string& head, const SMesh& m, F&& vertexLine,
                                  const char* facePrefix, uint32_t indexBase) {
    CFile f(path, "wb");
    std::string buf = head;
    buf.reserve(1 << 20);
    for (uint32_t v = 0; v < m.Vertices(); ++v) {
        vertexLine(buf, v);
        if (buf.size() > (1 << 20) - 128) { f.Write(buf); buf.clear(); }
    }
    for (uint32_t t = 0; t < m.Triangles(); ++t) {
        buf += facePrefix;
        for (int k = 0; k < 3; ++k) {
            appendUint(buf, m.tris[3 * t + k] + indexBase);
            buf += k < 2 ? ' ' : '\n';
        }
        if (buf.size() > (1 << 20) - 128) { f.Write(buf); buf.clear(); }
    }
    f.Write(buf);
    f.Close();
}

} // namespace

void WriteBinarySTL(const std::string& path, const SMesh& m) {
    CFile f(path, "wb");
    char header[80] = {};
    std::snprintf(header, sizeof header, "binary STL written by the VnIO peer comparison");
    f.Write(header, 80);
    const uint32_t n = m.Triangles();
    f.Write(&n, 4);
    std::vector<unsigned char> rec(50 * size_t(4096));
    size_t used = 0;
    for (uint32_t t = 0; t < n; ++t) {
        const float* p[3] = {&m.xyz[3 * size_t(m.tris[3 * t])], &m.xyz[3 * size_t(m.tris[3 * t + 1])],
                             &m.xyz[3 * size_t(m.tris[3 * t + 2])]};
        const double ax = p[1][0] - p[0][0], ay = p[1][1] - p[0][1], az = p[1][2] - p[0][2];
        const double bx = p[2][0] - p[0][0], by = p[2][1] - p[0][1], bz = p[2][2] - p[0][2];
        double nx = ay * bz - az * by, ny = az * bx - ax * bz, nz = ax * by - ay * bx;
        const double len = std::sqrt(nx * nx + ny * ny + nz * nz);
        if (len > 0) { nx /= len; ny /= len; nz /= len; }
        float r[12] = {float(nx), float(ny), float(nz)};
        for (int k = 0; k < 3; ++k) std::memcpy(r + 3 + 3 * k, p[k], 12);
        std::memcpy(&rec[used], r, 48);
        rec[used + 48] = rec[used + 49] = 0;
        used += 50;
        if (used == rec.size()) { f.Write(rec.data(), used); used = 0; }
    }
    f.Write(rec.data(), used);
    f.Close();
}

void WriteOBJ(const std::string& path, const SMesh& m) {
    writeText(path, "# written by the VnIO peer comparison\n", m, [&](std::string& b, uint32_t v) {
        b += "v ";
        for (int k = 0; k < 3; ++k) {
            appendFloat(b, m.xyz[3 * size_t(v) + k]);
            b += k < 2 ? ' ' : '\n';
        }
    }, "f ", 1);
}

void WriteOFF(const std::string& path, const SMesh& m) {
    std::string head = "OFF\n";
    appendUint(head, m.Vertices());
    head += ' ';
    appendUint(head, m.Triangles());
    head += " 0\n";
    writeText(path, head, m, [&](std::string& b, uint32_t v) {
        for (int k = 0; k < 3; ++k) {
            appendFloat(b, m.xyz[3 * size_t(v) + k]);
            b += k < 2 ? ' ' : '\n';
        }
    }, "3 ", 0);
}

void WriteBinaryPLY(const std::string& path, const SMesh& m) {
    CFile f(path, "wb");
    std::string head = "ply\nformat binary_little_endian 1.0\ncomment written by the VnIO peer comparison\nelement vertex " +
                       std::to_string(m.Vertices()) +
                       "\nproperty float x\nproperty float y\nproperty float z\nelement face " + std::to_string(m.Triangles()) +
                       "\nproperty list uchar int vertex_indices\nend_header\n";
    f.Write(head);
    f.Write(m.xyz.data(), m.xyz.size() * 4);
    std::vector<unsigned char> rec(13 * size_t(8192));
    size_t used = 0;
    for (uint32_t t = 0; t < m.Triangles(); ++t) {
        rec[used] = 3;
        std::memcpy(&rec[used + 1], &m.tris[3 * size_t(t)], 12);
        used += 13;
        if (used == rec.size()) { f.Write(rec.data(), used); used = 0; }
    }
    f.Write(rec.data(), used);
    f.Close();
}

SMesh ReadOwnPLY(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path);
    std::string line;
    uint32_t v = 0, t = 0;
    bool vertexElement = false;
    int floats = 0;
    while (std::getline(in, line) && line != "end_header") {
        std::istringstream ls(line);
        std::string a, b;
        ls >> a >> b;
        if (a == "element") {
            vertexElement = b == "vertex";
            (vertexElement ? v : t) = static_cast<uint32_t>(std::stoul(line.substr(line.find_last_of(' ') + 1)));
        } else if (a == "property" && vertexElement) {
            if (b != "float") throw std::runtime_error(path + ": not a file of this driver");
            ++floats;
        }
    }
    if (line != "end_header" || floats != 3) throw std::runtime_error(path + ": not a file of this driver");
    SMesh m;
    m.xyz.resize(3 * size_t(v));
    m.tris.resize(3 * size_t(t));
    in.read(reinterpret_cast<char*>(m.xyz.data()), std::streamsize(m.xyz.size() * 4));
    std::vector<unsigned char> rec(13 * size_t(t));
    in.read(reinterpret_cast<char*>(rec.data()), std::streamsize(rec.size()));
    if (!in) throw std::runtime_error(path + ": truncated");
    for (uint32_t i = 0; i < t; ++i) {
        if (rec[13 * size_t(i)] != 3) throw std::runtime_error(path + ": not a triangle");
        std::memcpy(&m.tris[3 * size_t(i)], &rec[13 * size_t(i) + 1], 12);
    }
    return m;
}

uint32_t CountDistinctPositions(const SMesh& m) {
    std::vector<std::tuple<uint32_t, uint32_t, uint32_t>> keys(m.Vertices());
    auto bits = [](float f) {
        if (f == 0.f) f = 0.f; // -0 and +0 are one position
        uint32_t u;
        std::memcpy(&u, &f, 4);
        return u;
    };
    for (uint32_t v = 0; v < m.Vertices(); ++v)
        keys[v] = {bits(m.xyz[3 * size_t(v)]), bits(m.xyz[3 * size_t(v) + 1]), bits(m.xyz[3 * size_t(v) + 2])};
    std::sort(keys.begin(), keys.end());
    return static_cast<uint32_t>(std::unique(keys.begin(), keys.end()) - keys.begin());
}

SMesh MakeBumpySphere(uint32_t segments, uint32_t rings) {
    // Displacement by a few low-frequency waves so the surface is not a perfect quadric that
    // any parallelogram predictor would code almost for free.
    SMesh m;
    const double pi = std::numbers::pi;
    auto push = [&](double theta, double phi) {
        const double r = 1.0 + 0.04 * std::sin(7 * theta) * std::cos(5 * phi) + 0.015 * std::sin(23 * phi + 3 * theta);
        m.xyz.push_back(float(r * std::sin(theta) * std::cos(phi)));
        m.xyz.push_back(float(r * std::sin(theta) * std::sin(phi)));
        m.xyz.push_back(float(r * std::cos(theta)));
    };
    push(0, 0); // north pole
    for (uint32_t i = 1; i < rings; ++i)
        for (uint32_t j = 0; j < segments; ++j) push(pi * i / rings, 2 * pi * j / segments);
    push(pi, 0); // south pole
    const uint32_t south = 1 + (rings - 1) * segments;
    auto ring = [&](uint32_t i, uint32_t j) { return 1 + (i - 1) * segments + j % segments; };
    for (uint32_t j = 0; j < segments; ++j) m.tris.insert(m.tris.end(), {0, ring(1, j), ring(1, j + 1)});
    for (uint32_t i = 1; i + 1 < rings; ++i)
        for (uint32_t j = 0; j < segments; ++j) {
            m.tris.insert(m.tris.end(), {ring(i, j), ring(i + 1, j), ring(i + 1, j + 1)});
            m.tris.insert(m.tris.end(), {ring(i, j), ring(i + 1, j + 1), ring(i, j + 1)});
        }
    for (uint32_t j = 0; j < segments; ++j) m.tris.insert(m.tris.end(), {south, ring(rings - 1, j + 1), ring(rings - 1, j)});
    return m;
}

SMesh LoadSource(const std::string& path) {
    const std::string ext = path.substr(path.find_last_of('.') + 1);
    const CStringW wide = CbUtf8ToWide(path);
    Geometry::CTriangulation mesh;
    try {
        if (ext == "stl" || ext == "STL") {
            if (!VnSTL::Load(wide, mesh, VnSTL::eFlagCombine)) throw std::runtime_error("VnSTL::Load failed");
        } else if (ext == "obj" || ext == "OBJ") {
            if (!VnOBJ::Load(wide, mesh)) throw std::runtime_error("VnOBJ::Load failed");
        } else if (ext == "ply" || ext == "PLY") {
            mesh = VnPLY::Read(std::wstring(wide));
        } else if (ext == "off" || ext == "OFF") {
            VnOFF::Read(wide.c_str(), mesh);
        } else {
            throw std::runtime_error("unknown extension");
        }
    } catch (const CbException& e) {
        throw std::runtime_error(path + ": " + e.Describe());
    }
    SMesh out;
    std::vector<uint32_t> dense(mesh.GetVertexSlotCount(), UINT32_MAX);
    const CbVector3f* p = mesh.GetPositions();
    for (Geometry::CTriangleRef t : mesh.Triangles())
        for (int k = 0; k < 3; ++k) {
            const uint32_t v = mesh.GetCorner(t, k);
            if (dense[v] == UINT32_MAX) {
                dense[v] = out.Vertices();
                out.xyz.insert(out.xyz.end(), {p[v].x, p[v].y, p[v].z});
            }
            out.tris.push_back(dense[v]);
        }
    return out;
}

long ProcStatusKb(const char* key) {
    std::ifstream in("/proc/self/status");
    std::string line;
    const size_t n = std::strlen(key);
    while (std::getline(in, line))
        if (line.compare(0, n, key) == 0 && line.size() > n && line[n] == ':') return std::stol(line.substr(n + 1));
    return -1;
}

void CMemProbe::Start() {
    FILE* f = std::fopen("/proc/self/clear_refs", "w");
    m_reset = f && std::fputs("5", f) >= 0;
    if (f && std::fclose(f) != 0) m_reset = false;
    m_rssBeforeKb = ProcStatusKb("VmRSS");
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    m_maxrssBeforeKb = u.ru_maxrss;
}

double CMemProbe::PeakGrowthMB() const {
    if (m_reset) return double(ProcStatusKb("VmHWM") - m_rssBeforeKb) / 1024.0;
    // Without a resettable high-water mark only growth beyond the earlier peak shows.
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_maxrss - m_maxrssBeforeKb) / 1024.0;
}

std::string FileToString(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

uint64_t FileSize(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    return in ? static_cast<uint64_t>(in.tellg()) : 0;
}

} // namespace Compare

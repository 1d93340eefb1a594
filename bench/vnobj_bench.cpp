// OBJ load and write on a ~2M-triangle file with v/vt/vn, materials and groups, built in code.
//
// Baselines from the same run: a plain std::from_chars scan over every number of the same file
// (read in the same 1 MiB blocks), and tinyobjloader when its header is installed. Before the
// timed runs a child process loads the file once and reports its peak memory against the final
// mesh (12 bytes per vertex + 12 per triangle).
//
//   vnobj_bench [--benchmark_filter=...]     (the file goes to $TMPDIR, default /tmp)
#include <benchmark/benchmark.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "basepool/cbstreamascii.h"
#include "basepool/cbstring.h"
#include "vnio/vnobj.h"

#if __has_include(<tiny_obj_loader.h>)
#define TINYOBJLOADER_IMPLEMENTATION
#include <tiny_obj_loader.h>
#define VNIO_BENCH_TINYOBJ 1
#endif

namespace {

constexpr int c_GridN = 1000; // (N+1)^2 vertices, 2 N^2 triangles
constexpr int c_Materials = 8;
constexpr int c_Groups = 16;

std::filesystem::path folder() {
    const char* tmp = std::getenv("TMPDIR");
    return std::filesystem::path(tmp && *tmp ? tmp : "/tmp");
}
std::filesystem::path objPath() { return folder() / "vnobj_bench_2m.obj"; }

// Writes the file in the shape modelling programs export: a grid over a wavy surface, one vt
// and one vn per vertex, faces "v/vt/vn", a group and material switch per band of rows.
void generate() {
    const std::filesystem::path path = objPath();
    if (std::filesystem::exists(path) && std::filesystem::exists(folder() / "vnobj_bench_2m.mtl")) return;
    {
        std::ofstream mtl(folder() / "vnobj_bench_2m.mtl", std::ios::binary);
        for (int m = 0; m < c_Materials; ++m)
            mtl << "newmtl mat" << m << "\nKa 0.1 0.1 0.1\nKd 0." << m << " 0.5 0.5\nKs 1 1 1\nmap_Kd tex" << m << ".png\n\n";
    }
    FILE* f = std::fopen(path.string().c_str(), "wb");
    if (!f) return;
    std::fprintf(f, "# benchmark grid\nmtllib vnobj_bench_2m.mtl\n");
    const int n = c_GridN;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) {
            const double x = i * 0.01, y = j * 0.01;
            std::fprintf(f, "v %.6f %.6f %.6f\n", x, y, 0.05 * std::sin(x * 3) * std::cos(y * 2));
        }
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) std::fprintf(f, "vt %.6f %.6f\n", double(i) / n, double(j) / n);
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) std::fprintf(f, "vn %.4f %.4f %.4f\n", 0.0, 0.0, 1.0);
    auto id = [](int i, int j) { return j * (c_GridN + 1) + i + 1; };
    const int rowsPerGroup = n / c_Groups;
    for (int j = 0; j < n; ++j) {
        if (j % rowsPerGroup == 0) {
            const int g = j / rowsPerGroup;
            std::fprintf(f, "g band%d\nusemtl mat%d\n", g, g % c_Materials);
        }
        for (int i = 0; i < n; ++i) {
            const int a = id(i, j), b = id(i + 1, j), c = id(i + 1, j + 1), d = id(i, j + 1);
            std::fprintf(f, "f %d/%d/%d %d/%d/%d %d/%d/%d\n", a, a, a, b, b, b, c, c, c);
            std::fprintf(f, "f %d/%d/%d %d/%d/%d %d/%d/%d\n", a, a, a, c, c, c, d, d, d);
        }
    }
    std::fclose(f);
}

// The baseline: every number of the file through std::from_chars, floats as double and
// face indices as int, over 1 MiB blocks.
double fromCharsScan() {
    FILE* f = std::fopen(objPath().string().c_str(), "rb");
    if (!f) return 0;
    std::vector<char> block(1 << 20);
    std::string carry;
    double sum = 0;
    auto scanLine = [&](const char* p, const char* e) {
        if (p == e || *p == '#') return;
        const bool face = p[0] == 'f' && p + 1 < e && p[1] == ' ';
        const bool numbers = p[0] == 'v';
        if (!face && !numbers) return;
        while (p < e && *p != ' ') ++p;
        while (p < e) {
            while (p < e && (*p == ' ' || *p == '/')) ++p;
            if (p >= e) break;
            if (face) {
                int v = 0;
                auto r = std::from_chars(p, e, v);
                sum += v;
                p = r.ptr == p ? p + 1 : r.ptr;
            } else {
                double v = 0;
                auto r = std::from_chars(p, e, v);
                sum += v;
                p = r.ptr == p ? p + 1 : r.ptr;
            }
        }
    };
    for (;;) {
        const size_t got = std::fread(block.data(), 1, block.size(), f);
        if (!got) break;
        const char* p = block.data();
        const char* e = p + got;
        while (p < e) {
            const char* lf = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(e - p)));
            if (!lf) {
                carry.append(p, e);
                break;
            }
            if (!carry.empty()) {
                carry.append(p, lf);
                scanLine(carry.data(), carry.data() + carry.size());
                carry.clear();
            } else {
                scanLine(p, lf);
            }
            p = lf + 1;
        }
    }
    if (!carry.empty()) scanLine(carry.data(), carry.data() + carry.size());
    std::fclose(f);
    return sum;
}

void BM_FromCharsScan(benchmark::State& state) {
    generate();
    for (auto _ : state) benchmark::DoNotOptimize(fromCharsScan());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(std::filesystem::file_size(objPath())));
}
BENCHMARK(BM_FromCharsScan)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void BM_LoadWithMaterialAndGroups(benchmark::State& state) {
    generate();
    const CStringW path = CbUtf8ToWide(objPath().string());
    for (auto _ : state) {
        Geometry::CTriangulation mesh;
        VnOBJ::SMaterialInfo info;
        CbArray<VnOBJ::SGroup> groups;
        if (!VnOBJ::LoadWithMaterialAndGroups(path, mesh, info, groups) || mesh.GetTriangleCount() != 2u * c_GridN * c_GridN)
            state.SkipWithError("load failed");
        benchmark::DoNotOptimize(mesh.GetPositions());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(std::filesystem::file_size(objPath())));
}
BENCHMARK(BM_LoadWithMaterialAndGroups)->Unit(benchmark::kMillisecond)->MinTime(2.0);

#ifdef VNIO_BENCH_TINYOBJ
void BM_TinyObjLoader(benchmark::State& state) {
    generate();
    const std::string path = objPath().string();
    const std::string base = folder().string() + "/";
    for (auto _ : state) {
        tinyobj::attrib_t attrib;
        std::vector<tinyobj::shape_t> shapes;
        std::vector<tinyobj::material_t> materials;
        std::string warn, err;
        if (!tinyobj::LoadObj(&attrib, &shapes, &materials, &warn, &err, path.c_str(), base.c_str())) state.SkipWithError("tinyobj failed");
        benchmark::DoNotOptimize(attrib.vertices.data());
    }
}
BENCHMARK(BM_TinyObjLoader)->Unit(benchmark::kMillisecond)->MinTime(2.0);
#endif

// A sink that keeps nothing, so the figure is formatting speed.
class CDiscard : public CbStreamWriteASCIIT<CStringA> {
public:
    CDiscard() : m_window(1 << 20) {}
    uint64_t Bytes() { return m_bytes + static_cast<uint64_t>(m_cur ? m_cur - m_window.data() : 0); }

protected:
    void writeSlow(const char*, size_t count) override {
        m_bytes = Bytes() + count;
        m_cur = m_window.data();
        m_end = m_cur + m_window.size();
    }

private:
    std::vector<char> m_window;
    uint64_t m_bytes = 0;
};

void BM_Write(benchmark::State& state) {
    generate();
    Geometry::CTriangulation mesh;
    VnOBJ::SMaterialInfo info;
    CbArray<VnOBJ::SGroup> groups;
    if (!VnOBJ::LoadWithMaterialAndGroups(CbUtf8ToWide(objPath().string()), mesh, info, groups)) {
        state.SkipWithError("load failed");
        return;
    }
    uint64_t bytes = 0;
    for (auto _ : state) {
        CDiscard obj, mtl;
        VnOBJ::Serialize(obj, mesh, &mtl, "out.mtl", info, "bench", groups);
        bytes += obj.Bytes();
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_Write)->Unit(benchmark::kMillisecond)->MinTime(2.0);

long statusKiB(const char* key) {
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind(key, 0) == 0) return std::atol(line.c_str() + std::strlen(key));
    return -1;
}

// Loads the file once in a child process and prints its peak memory growth.
void reportPeakMemory() {
    generate();
    const pid_t pid = fork();
    if (pid == 0) {
        const long before = statusKiB("VmRSS:");
        Geometry::CTriangulation mesh;
        VnOBJ::SMaterialInfo info;
        CbArray<VnOBJ::SGroup> groups;
        const bool ok = VnOBJ::LoadWithMaterialAndGroups(CbUtf8ToWide(objPath().string()), mesh, info, groups);
        const long peak = statusKiB("VmHWM:");
        const double finalMiB = (12.0 * mesh.GetVertexCount() + 12.0 * mesh.GetTriangleCount()) / (1 << 20);
        std::printf("peak memory of one load: %s, %u vertices, %u triangles; growth %.1f MiB = %.2f x the final mesh (%.1f MiB)\n",
                    ok ? "ok" : "FAILED", mesh.GetVertexCount(), mesh.GetTriangleCount(), (peak - before) / 1024.0,
                    (peak - before) / 1024.0 / finalMiB, finalMiB);
        std::fflush(stdout);
        _exit(0);
    }
    if (pid > 0) waitpid(pid, nullptr, 0);
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    reportPeakMemory();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

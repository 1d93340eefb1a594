// STL load and write on a ~2M-triangle closed mesh, each figure beside its baseline from the
// same run: reading the file into memory (binary) and a from_chars scan of its numbers (ASCII).
#include <benchmark/benchmark.h>

#include "benchutil.h"
#include "vnbase/vnfilesystem.h"
#include "vnbase/vnstreamfile.h"
#include "vnio/vnstl.h"

using namespace Geometry;

namespace {
struct SFiles {
    std::string binary = VnBench::TempFile("sphere2m.stl");
    std::string ascii = VnBench::TempFile("sphere2m-ascii.stl");
    uint64_t binaryBytes = 0, asciiBytes = 0;
    SFiles() {
        CTriangulation mesh = VnBench::MakeSphere(1000, 1000);
        VnSTL::Serialize(VnBench::Wide(binary).c_str(), mesh);
        {
            VnStreamWriteASCIIFile out(VnBench::Wide(ascii));
            VnSTL::Serialize(out, mesh);
        }
        binaryBytes = VnFileSystem::GetFileSize(VnBench::Wide(binary));
        asciiBytes = VnFileSystem::GetFileSize(VnBench::Wide(ascii));
    }
};
const SFiles& files() {
    static SFiles f;
    return f;
}

void BM_BaselineReadBinaryFile(benchmark::State& state) {
    std::vector<char> buffer;
    for (auto _ : state) benchmark::DoNotOptimize(VnBench::ReadWhole(files().binary, buffer));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files().binaryBytes));
}

void BM_STLBinaryLoad(benchmark::State& state) {
    CTriangulation mesh;
    for (auto _ : state) benchmark::DoNotOptimize(VnSTL::Load(VnBench::Wide(files().binary), mesh));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files().binaryBytes));
    state.counters["triangles"] = mesh.GetTriangleCount();
}

void BM_STLBinaryLoadCombineNormals(benchmark::State& state) {
    CTriangulation mesh;
    for (auto _ : state)
        benchmark::DoNotOptimize(VnSTL::Load(VnBench::Wide(files().binary), mesh, VnSTL::eFlagCombine | VnSTL::eFlagVertexNormals));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files().binaryBytes));
    state.counters["vertices"] = mesh.GetVertexCount();
}

void BM_BaselineScanAsciiNumbers(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(VnBench::ScanNumbers(files().ascii));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files().asciiBytes));
}

void BM_STLAsciiLoad(benchmark::State& state) {
    CTriangulation mesh;
    for (auto _ : state) benchmark::DoNotOptimize(VnSTL::Load(VnBench::Wide(files().ascii), mesh));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files().asciiBytes));
}

void BM_STLBinaryWrite(benchmark::State& state) {
    CTriangulation mesh;
    VnSTL::Load(VnBench::Wide(files().binary), mesh, VnSTL::eFlagCombine);
    std::string out = VnBench::TempFile("write.stl");
    for (auto _ : state) VnSTL::Serialize(VnBench::Wide(out).c_str(), mesh);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files().binaryBytes));
}

void BM_STLAsciiWrite(benchmark::State& state) {
    CTriangulation mesh;
    VnSTL::Load(VnBench::Wide(files().binary), mesh, VnSTL::eFlagCombine);
    std::string out = VnBench::TempFile("write-ascii.stl");
    for (auto _ : state) {
        VnStreamWriteASCIIFile stream(VnBench::Wide(out));
        VnSTL::Serialize(stream, mesh);
        stream.Flush();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files().asciiBytes));
}
} // namespace

BENCHMARK(BM_BaselineReadBinaryFile)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_STLBinaryLoad)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_STLBinaryLoadCombineNormals)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineScanAsciiNumbers)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_STLAsciiLoad)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_STLBinaryWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_STLAsciiWrite)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();

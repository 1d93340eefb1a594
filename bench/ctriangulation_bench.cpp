// Mesh relations every reader builds after loading, on a closed 2M-triangle sphere:
//   VertexTriangleRelation   the triangles around each vertex
//   Adjacency                the triangle across each edge (includes the relation above)
#include <benchmark/benchmark.h>

#include "benchutil.h"

namespace {

const Geometry::CTriangulation& sphere() {
    static const Geometry::CTriangulation mesh = VnBench::MakeSphere(1000, 1000);
    return mesh;
}

void VertexTriangleRelation(benchmark::State& state) {
    Geometry::CTriangulation mesh = sphere();
    for (auto _ : state) {
        mesh.ComputeVertexTriangleRelation();
        benchmark::DoNotOptimize(mesh.GetVertexTriangles(Geometry::CVertexRef(0)).size());
    }
    state.counters["triangles/s"] = benchmark::Counter(double(mesh.GetTriangleCount()), benchmark::Counter::kIsIterationInvariantRate);
}

void Adjacency(benchmark::State& state) {
    Geometry::CTriangulation mesh = sphere();
    for (auto _ : state) {
        mesh.ComputeVertexTriangleRelation();
        mesh.ComputeAdjacency();
        benchmark::DoNotOptimize(mesh.GetAdjacentTriangle(Geometry::CTriangleRef(0), 0));
    }
    state.counters["triangles/s"] = benchmark::Counter(double(mesh.GetTriangleCount()), benchmark::Counter::kIsIterationInvariantRate);
}

} // namespace

BENCHMARK(VertexTriangleRelation)->Unit(benchmark::kMillisecond);
BENCHMARK(Adjacency)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();

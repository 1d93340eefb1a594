// `vnio demo`: loads the bundled sample, shows what the library sees in it, and writes it
// in every format the tool knows, reading each file back to check the counts.
#include <cstdio>
#include <filesystem>
#include <string>

#include "commands.h"
#include "formats.h"
#include "vn3dbase/vnfttriangulationcombinetrianglesoup.h"
#include "vn3dbase/vnmptriangulationnormals.h"

#ifndef VNIO_SOURCE_DIR
#define VNIO_SOURCE_DIR "."
#endif

using namespace Geometry;

namespace VnTool {

namespace {
std::string findSample() {
    for (const char* candidate : {"examples/sample.stl", "../examples/sample.stl", VNIO_SOURCE_DIR "/examples/sample.stl"})
        if (std::filesystem::exists(candidate)) return candidate;
    throw CFileError("examples/sample.stl", "bundled sample not found");
}
} // namespace

int CommandDemo(const std::vector<std::string>& args) {
    if (args.size() > 1) throw CUsageError("demo takes at most an output folder");
    std::filesystem::path out = args.empty() ? std::filesystem::path("vnio-demo") : std::filesystem::u8path(args[0]);
    std::filesystem::create_directories(out);
    const std::string sample = findSample();

    std::printf("== vnio info %s\n", sample.c_str());
    CommandInfo({sample});

    CTriangulation mesh;
    SReadInfo info;
    LoadMesh(sample, mesh, info);
    VnMpTriangulationNormals::Compute(mesh);
    std::printf("\n== writing %u vertices, %u triangles in every format to %s/\n", mesh.GetVertexCount(),
                mesh.GetTriangleCount(), out.string().c_str());
    int failures = 0;
    for (const SFormat& f : Formats()) {
        if (!f.write) continue;
        for (int variant = 0; variant < 2; ++variant) {
            SWriteOptions options;
            std::string suffix;
            if (variant == 1) {
                // Text formats also get their ASCII form, the compressed stream its lossy one.
                if (std::string(f.extension) == ".vnm") {
                    options.precision = 1e-3;
                    suffix = "-quantized";
                } else if (f.asciiAndBinary) {
                    options.ascii = true;
                    suffix = "-ascii";
                } else {
                    continue;
                }
            }
            std::string path = (out / ("sample" + suffix + f.extension)).string();
            SaveMesh(path, mesh, options, info);
            CTriangulation back;
            SReadInfo backInfo;
            LoadMesh(path, back, backInfo);
            uint64_t bytes = std::filesystem::file_size(std::filesystem::u8path(path));
            bool same = back.GetTriangleCount() == mesh.GetTriangleCount();
            std::printf("  %-28s %9llu bytes  %-22s read back: %u vertices, %u triangles %s\n", path.c_str(),
                        static_cast<unsigned long long>(bytes), backInfo.format.c_str(), back.GetVertexCount(),
                        back.GetTriangleCount(), same ? "ok" : "MISMATCH");
            failures += same ? 0 : 1;
        }
    }
    for (const auto& hook : DemoExtras()) failures += hook(mesh, out.string());
    std::printf("\n%s\n", failures ? "demo finished with mismatches" : "demo finished: every format round-tripped");
    return failures ? 1 : 0;
}

} // namespace VnTool

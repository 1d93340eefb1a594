// `vnio thumbnail MESH OUT.jpg [--size WxH] [--quality Q] [--view front|top|iso]`: a picture of
// any mesh the tool reads, to look at before opening it in a viewer.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "commands.h"
#include "formats.h"
#include "vnbase/vnstreamfile.h"
#include "vnio/vnthumbnail.h"

namespace VnTool {

namespace {
uint32_t parseSide(const std::string& s, size_t& pos) {
    size_t start = pos;
    while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9') ++pos;
    if (pos == start || pos - start > 5) throw CUsageError("--size takes WxH, e.g. 512x512");
    return static_cast<uint32_t>(std::stoul(s.substr(start, pos - start)));
}
} // namespace

void WriteThumbnail(const Geometry::CTriangulation& mesh, const std::string& out, uint32_t width, uint32_t height,
                    VnThumbnail::EView view, float quality) {
    CbStreamWriteBinaryMemory jpeg;
    try {
        VnThumbnail::WriteJPEG(mesh, width, height, view, quality, jpeg);
        VnStreamWriteBinaryFile file(CbUtf8ToWide(out).c_str());
        const auto& bytes = jpeg.GetData();
        file.WriteBuffer(bytes.data(), bytes.size());
        file.Flush();
    } catch (const CbExceptionPreconditionViolation&) {
        throw CFileError(out, "nothing to draw: the mesh has no triangle with finite corners");
    } catch (const CbException& e) {
        throw CFileError(out, e.Describe());
    }
}

int CommandThumbnail(const std::vector<std::string>& args) {
    std::vector<std::string> files;
    uint32_t width = 512, height = 512;
    float quality = 0.9f;
    VnThumbnail::EView view = VnThumbnail::eViewIso;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&]() -> const std::string& {
            if (i + 1 >= args.size()) throw CUsageError(a + " needs a value");
            return args[++i];
        };
        if (a == "--size") {
            const std::string& v = value();
            size_t pos = 0;
            width = parseSide(v, pos);
            if (pos >= v.size() || (v[pos] != 'x' && v[pos] != 'X')) throw CUsageError("--size takes WxH, e.g. 512x512");
            ++pos;
            height = parseSide(v, pos);
            if (pos != v.size()) throw CUsageError("--size takes WxH, e.g. 512x512");
            if (width == 0 || height == 0 || width > VnThumbnail::c_MaxSide || height > VnThumbnail::c_MaxSide)
                throw CUsageError("--size must be between 1x1 and " + std::to_string(VnThumbnail::c_MaxSide) + "x" +
                                  std::to_string(VnThumbnail::c_MaxSide));
        } else if (a == "--quality") {
            const std::string& v = value();
            char* end = nullptr;
            quality = std::strtof(v.c_str(), &end);
            if (!end || *end || !(quality >= 0.f && quality <= 1.f)) throw CUsageError("--quality takes a number in [0, 1]");
        } else if (a == "--view") {
            const std::string& v = value();
            if (v == "front") view = VnThumbnail::eViewFront;
            else if (v == "top") view = VnThumbnail::eViewTop;
            else if (v == "iso") view = VnThumbnail::eViewIso;
            else throw CUsageError("--view takes front, top or iso");
        } else if (!a.empty() && a[0] == '-') {
            throw CUsageError("unknown option '" + a + "' for thumbnail");
        } else {
            files.push_back(a);
        }
    }
    if (files.size() != 2) throw CUsageError("thumbnail needs a mesh file and an output .jpg");
    Geometry::CTriangulation mesh;
    SReadInfo info;
    LoadMesh(files[0], mesh, info);
    WriteThumbnail(mesh, files[1], width, height, view, quality);
    std::printf("%s -> %s: %ux%u\n", files[0].c_str(), files[1].c_str(), width, height);
    return 0;
}

int DemoThumbnail(const Geometry::CTriangulation& mesh, const std::string& folder) {
    std::string out = folder + "/sample-thumbnail.jpg";
    WriteThumbnail(mesh, out, 512, 512, VnThumbnail::eViewIso, 0.9f);
    std::printf("  %-28s a 512x512 picture of the sample\n", out.c_str());
    return 0;
}

} // namespace VnTool

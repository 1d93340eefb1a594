#include "commands.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>

#include "basepool/cbexception.h"
#include "basepool/cbstring.h"
#include "formats.h"
#include "meshstats.h"
#include "vn3dbase/vnmptriangulationboundingbox.h"
#include "vn3dbase/vnmptriangulationnormals.h"
#include "vn3dbase/vnfttriangulationcombinetrianglesoup.h"

using namespace Geometry;

namespace VnTool {

namespace {

std::wstring wide(const std::string& s) { return CbUtf8ToWide(s); }

const SFormat& formatFor(const std::string& path) {
    const SFormat* f = FindFormat(wide(path));
    if (!f) throw CFileError(path, "unknown file extension (known: " + FormatList() + ")");
    return *f;
}

// Runs a reader or writer, turning every failure into a one-line message about the file.
template <class F> void onFile(const std::string& path, F&& f) {
    try {
        f();
    } catch (const CFileError&) {
        throw;
    } catch (const CbExceptionStd& e) {
        throw CFileError(path, e.GetWhat());
    } catch (const CbException& e) {
        throw CFileError(path, e.Describe());
    } catch (const std::exception& e) {
        throw CFileError(path, e.what());
    }
}

} // namespace

void LoadMesh(const std::string& path, CTriangulation& mesh, SReadInfo& info) {
    const SFormat& f = formatFor(path);
    if (!f.read) throw CFileError(path, std::string(f.name) + " cannot be read");
    if (!std::filesystem::exists(std::filesystem::u8path(path))) throw CFileError(path, "no such file");
    onFile(path, [&] { f.read(wide(path), mesh, info); });
}

void SaveMesh(const std::string& path, const CTriangulation& mesh, const SWriteOptions& options, const SReadInfo& source) {
    const SFormat& f = formatFor(path);
    if (!f.write) throw CFileError(path, std::string(f.name) + " cannot be written");
    onFile(path, [&] { f.write(wide(path), mesh, options, source); });
}

namespace {

std::string num(double v) {
    if (!std::isfinite(v)) return "null";
    char b[64];
    std::snprintf(b, sizeof b, "%.9g", v);
    return b;
}

const char* typeName(const SAttributeEntry& e) {
    if (!e.type) return "raw";
    const std::type_info& t = *e.type;
    if (t == typeid(float)) return "float";
    if (t == typeid(CbVector2f)) return "vec2";
    if (t == typeid(CbVector3f)) return "vec3";
    if (t == typeid(unsigned int)) return "uint32";
    if (t == typeid(unsigned short)) return "uint16";
    if (t == typeid(VnColorRGBA)) return "rgba";
    if (t == typeid(std::array<CbVector2f, 3>)) return "uv3";
    return "raw";
}

} // namespace

std::string FormatList() {
    std::string list;
    for (const SFormat& f : Formats()) {
        if (!list.empty()) list += ", ";
        list += f.extension;
    }
    return list;
}

int CommandInfo(const std::vector<std::string>& args) {
    std::string file;
    bool json = false;
    for (const std::string& a : args) {
        if (a == "--json") json = true;
        else if (!a.empty() && a[0] == '-') throw CUsageError("unknown option '" + a + "' for info");
        else if (file.empty()) file = a;
        else throw CUsageError("info takes one file");
    }
    if (file.empty()) throw CUsageError("info needs a file");
    CTriangulation mesh;
    SReadInfo info;
    LoadMesh(file, mesh, info);
    SMeshStats stats = ComputeStats(mesh);
    SBoundingBox3f box = VnMpTriangulationBoundingBox::Compute(mesh);
    auto attrs = [&](int container) {
        std::vector<const SAttributeEntry*> out;
        for (const SAttributeEntry* e : mesh.GetAttributes(container))
            if (e->connected) out.push_back(e);
        return out;
    };
    if (json) {
        std::printf("{\"file\": %s, \"format\": %s, \"vertices\": %u, \"triangles\": %u, \"components\": %u, "
                    "\"boundary_loops\": %u, \"attributes\": [",
                    JsonString(file).c_str(), JsonString(info.format).c_str(), mesh.GetVertexCount(), mesh.GetTriangleCount(),
                    stats.components, stats.boundaryLoops);
        bool first = true;
        for (int c = 0; c < 2; ++c)
            for (const SAttributeEntry* e : attrs(c)) {
                std::printf("%s{\"name\": %s, \"element\": \"%s\", \"type\": \"%s\", \"bytes\": %zu}", first ? "" : ", ",
                            JsonString(e->name).c_str(), c == 0 ? "vertex" : "triangle", typeName(*e), e->data.size());
                first = false;
            }
        std::printf("], \"bounding_box\": ");
        if (box.empty) std::printf("null");
        else
            std::printf("{\"min\": [%s, %s, %s], \"max\": [%s, %s, %s]}", num(box.min.x).c_str(), num(box.min.y).c_str(),
                        num(box.min.z).c_str(), num(box.max.x).c_str(), num(box.max.y).c_str(), num(box.max.z).c_str());
        for (const auto& [k, v] : info.extra) std::printf(", %s: %s", JsonString(k).c_str(), v.c_str());
        std::printf("}\n");
        return 0;
    }
    std::printf("file            %s\n", file.c_str());
    std::printf("format          %s\n", info.format.c_str());
    std::printf("vertices        %u\n", mesh.GetVertexCount());
    std::printf("triangles       %u\n", mesh.GetTriangleCount());
    std::printf("components      %u\n", stats.components);
    std::printf("boundary loops  %u\n", stats.boundaryLoops);
    if (box.empty) std::printf("bounding box    (empty)\n");
    else
        std::printf("bounding box    [%g %g %g] - [%g %g %g]\n", box.min.x, box.min.y, box.min.z, box.max.x, box.max.y,
                    box.max.z);
    for (int c = 0; c < 2; ++c)
        for (const SAttributeEntry* e : attrs(c))
            std::printf("attribute       %s %s (%s, %zu bytes)\n", c == 0 ? "vertex" : "triangle", e->name.c_str(),
                        typeName(*e), e->data.size());
    for (const auto& [k, v] : info.extra) {
        std::string shown = v;
        if (shown.size() >= 2 && shown.front() == '"' && shown.back() == '"') shown = shown.substr(1, shown.size() - 2);
        if (shown.empty()) shown = "(empty)";
        std::printf("%-15s %s\n", k.c_str(), shown.c_str());
    }
    return 0;
}

int CommandConvert(const std::vector<std::string>& args) {
    std::vector<std::string> files;
    SWriteOptions options;
    bool weld = false, normals = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--ascii") options.ascii = true;
        else if (a == "--binary") options.binary = true;
        else if (a == "--weld") weld = true;
        else if (a == "--normals") normals = true;
        else if (a == "--lossless") options.lossless = true;
        else if (a == "--version2") options.version2 = true;
        else if (a == "--precision") {
            if (i + 1 >= args.size()) throw CUsageError("--precision needs a value");
            char* end = nullptr;
            options.precision = std::strtod(args[++i].c_str(), &end);
            if (!end || *end || !(options.precision > 0) || !std::isfinite(options.precision))
                throw CUsageError("--precision needs a positive number");
        } else if (!a.empty() && a[0] == '-') throw CUsageError("unknown option '" + a + "' for convert");
        else files.push_back(a);
    }
    if (files.size() != 2) throw CUsageError("convert needs an input and an output file");
    if (options.ascii && options.binary) throw CUsageError("--ascii and --binary exclude each other");
    if (options.lossless && options.precision > 0) throw CUsageError("--lossless and --precision exclude each other");
    formatFor(files[1]); // fail on the output name before reading anything
    CTriangulation mesh;
    SReadInfo info;
    LoadMesh(files[0], mesh, info);
    if (weld) {
        VnFtTriangulationCombineTriangleSoup combine;
        combine.SetFlags(VnFtTriangulationCombineTriangleSoup::eFlagCombine);
        combine.SetInput(mesh);
        combine.Compute();
    }
    if (normals) VnMpTriangulationNormals::Compute(mesh);
    SaveMesh(files[1], mesh, options, info);
    std::printf("%s -> %s: %u vertices, %u triangles\n", files[0].c_str(), files[1].c_str(), mesh.GetVertexCount(),
                mesh.GetTriangleCount());
    return 0;
}

} // namespace VnTool

#include "formats.h"

#include <algorithm>
#include <cstdio>
#include <cwctype>
#include <stdexcept>

#include "basepool/cbexception.h"
#include "vnbase/vnfilesystem.h"
#include "vnbase/vnstreamfile.h"
#include "vnio/vnoff.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"
#include "vnio/vnply.h"
#include "vnio/vnstl.h"

using namespace Geometry;

namespace VnTool {

int DemoThumbnail(const Geometry::CTriangulation& mesh, const std::string& folder);

namespace {

void readSTL(const std::wstring& path, CTriangulation& mesh, SReadInfo& info) {
    bool binary = false;
    CStringA solid;
    VnSTL::SHeader header{};
    if (!VnSTL::Load(CStringW(path), mesh, VnSTL::eFlagCombine, &header, nullptr, &solid, &binary))
        throw std::runtime_error("not a readable STL file");
    info.format = binary ? "STL (binary)" : "STL (ASCII)";
    if (binary) info.extra.emplace_back("header", JsonString(VnSTL::ExtractHeaderString(header)));
    else info.extra.emplace_back("solid", JsonString(solid));
}

void writeSTL(const std::wstring& path, const CTriangulation& mesh, const SWriteOptions& options, const SReadInfo&) {
    if (options.ascii) {
        VnStreamWriteASCIIFile stream{CStringW(path)};
        if (!VnSTL::Serialize(stream, mesh)) throw std::runtime_error("writing ASCII STL failed");
        stream.Flush();
        return;
    }
    VnSTL::Serialize(path.c_str(), mesh);
}

std::string jsonList(const std::vector<std::string>& items) {
    std::string out = "[";
    for (size_t i = 0; i < items.size(); ++i) out += (i ? ", " : "") + items[i];
    return out + "]";
}

void readOBJ(const std::wstring& path, CTriangulation& mesh, SReadInfo& info) {
    if (!VnOBJ::LoadWithMaterialAndGroups(CStringW(path), mesh, info.materials, info.groups))
        throw std::runtime_error("not a readable OBJ file (or its material library is missing)");
    info.format = "OBJ";
    std::vector<std::string> materials, groups;
    for (const auto& [id, name] : info.materials.materialNames)
        materials.push_back("{\"id\": " + std::to_string(id) + ", \"name\": " + JsonString(name) +
                            ", \"defined\": " + (info.materials.materials.Contains(name) ? "true" : "false") + "}");
    for (int i = 0; i < info.groups.GetSize(); ++i) {
        uint32_t count = 0;
        for (CTriangleRef t : mesh.Triangles()) count += info.groups[i].region.IsInside(t) ? 1 : 0;
        groups.push_back("{\"name\": " + JsonString(info.groups[i].name) + ", \"triangles\": " + std::to_string(count) + "}");
    }
    info.extra.emplace_back("materials", jsonList(materials));
    info.extra.emplace_back("groups", jsonList(groups));
}

void writeOBJ(const std::wstring& path, const CTriangulation& mesh, const SWriteOptions&, const SReadInfo& source) {
    VnStreamWriteASCIIFile stream{CStringW(path)};
    const bool materials = source.materials.materialNames.GetCount() > 0 || source.materials.materials.GetCount() > 0;
    if (!materials) {
        if (!VnOBJ::Serialize(stream, mesh, source.groups)) throw std::runtime_error("writing OBJ failed");
        stream.Flush();
        return;
    }
    // The material library goes beside the OBJ file, named after it.
    std::wstring mtlPath = path.substr(0, path.find_last_of(L'.')) + L".mtl";
    std::wstring mtlName = mtlPath.substr(mtlPath.find_last_of(L"/\\") == std::wstring::npos ? 0 : mtlPath.find_last_of(L"/\\") + 1);
    VnStreamWriteASCIIFile mtl{CStringW(mtlPath)};
    if (!VnOBJ::Serialize(stream, mesh, &mtl, CbWideToUtf8(mtlName), source.materials, VnOBJ::GetStoredNotice(), source.groups))
        throw std::runtime_error("writing OBJ failed");
    stream.Flush();
    mtl.Flush();
}

void readOFF(const std::wstring& path, CTriangulation& mesh, SReadInfo& info) {
    VnOFF::Read(path.c_str(), mesh);
    info.format = "OFF";
}

void writeOFF(const std::wstring& path, const CTriangulation& mesh, const SWriteOptions&, const SReadInfo&) {
    VnOFF::Write(path.c_str(), mesh);
}

void readPLY(const std::wstring& path, CTriangulation& mesh, SReadInfo& info) {
    mesh = VnPLY::Read(path);
    info.format = "PLY";
}

void writePLY(const std::wstring& path, const CTriangulation& mesh, const SWriteOptions& options, const SReadInfo&) {
    if (mesh.IsIndicesAccurate()) {
        VnPLY::Write(path, mesh, options.ascii ? VnPLY::eOutputFormatASCII : VnPLY::eOutputFormatBinary);
        return;
    }
    CTriangulation dense(mesh); // the PLY writer wants dense indices
    dense.Compact();
    VnPLY::Write(path, dense, options.ascii ? VnPLY::eOutputFormatASCII : VnPLY::eOutputFormatBinary);
}

void readVNM(const std::wstring& path, CTriangulation& mesh, SReadInfo& info) {
    VnStreamReadCompressedTriangulation reader{CStringW(path)};
    reader >> mesh;
    const auto& r = reader.GetRecordInfo();
    const uint64_t bytes = VnFileSystem::GetFileSize(CStringW(path));
    info.format = "VNM (compressed triangulation stream)";
    auto fixed = [](double v) {
        char b[32];
        std::snprintf(b, sizeof b, "%.3f", v);
        return std::string(b);
    };
    const uint32_t t = mesh.GetTriangleCount(), v = mesh.GetVertexCount();
    info.extra.emplace_back("version", std::to_string(r.version));
    info.extra.emplace_back("compressed", r.compressed ? "true" : "false");
    info.extra.emplace_back("mode", JsonString(r.quantized ? "quantized" : "lossless"));
    info.extra.emplace_back("step", fixed(r.quantized ? r.step : 0.0));
    info.extra.emplace_back("bytes", std::to_string(bytes));
    info.extra.emplace_back("connectivity_bits_per_triangle", fixed(t ? 8.0 * double(r.connectivityBytes) / t : 0.0));
    info.extra.emplace_back("position_bits_per_vertex", fixed(v ? 8.0 * double(r.positionBytes) / v : 0.0));
    // Each attribute record with its bytes and its share of the file.
    std::string attributes;
    for (const auto& a : r.attributes) {
        if (!attributes.empty()) attributes += ", ";
        attributes += a.container == eContainerVertex ? "vertex " : "triangle ";
        attributes += a.name.empty() ? std::string("(dropped)") : a.name;
        attributes += " " + std::to_string(a.bytes) + " B (" + fixed(bytes ? 100.0 * double(a.bytes) / double(bytes) : 0.0) + "%)";
    }
    info.extra.emplace_back("attribute_bytes", JsonString(attributes));
}

void writeVNM(const std::wstring& path, const CTriangulation& mesh, const SWriteOptions& options, const SReadInfo&) {
    using Base = VnStreamCompressedTriangulationBase;
    const bool quantized = options.precision > 0 && !options.lossless;
    const Base::ECompressionMethod method = quantized ? Base::eQuantized : Base::eLossless;
    const float precision = quantized ? float(options.precision) : 0.f;
    CbStreamWriteBinaryMemory memory;
    if (options.version2) {
        VnStreamWriteCompressedTriangulationVersion2 writer(memory, method, precision);
        writer << mesh;
    } else {
        VnStreamWriteCompressedTriangulation writer(memory, method, precision);
        writer << mesh;
    }
    VnStreamWriteBinaryFile file(path.c_str());
    const auto& bytes = memory.GetData();
    file.WriteBuffer(bytes.data(), bytes.size());
    file.Flush();
}

} // namespace

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20) {
            static const char* hex = "0123456789abcdef";
            out += "\\u00";
            out += hex[c >> 4];
            out += hex[c & 15];
        } else {
            out += char(c);
        }
    }
    return out + "\"";
}

const std::vector<SFormat>& Formats() {
    static const std::vector<SFormat> table = {
        {".stl", "STL", true, readSTL, writeSTL},
        {".obj", "OBJ", false, readOBJ, writeOBJ},
        {".off", "OFF", false, readOFF, writeOFF},
        {".ply", "PLY", true, readPLY, writePLY},
        {".vnm", "VNM", false, readVNM, writeVNM},
    };
    return table;
}

const std::vector<DemoExtra>& DemoExtras() {
    static const std::vector<DemoExtra> extras = {DemoThumbnail};
    return extras;
}

const SFormat* FindFormat(const std::wstring& path) {
    size_t dot = path.find_last_of(L'.');
    size_t slash = path.find_last_of(L"/\\");
    if (dot == std::wstring::npos || (slash != std::wstring::npos && dot < slash)) return nullptr;
    std::wstring ext = path.substr(dot);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](wchar_t c) { return static_cast<wchar_t>(std::towlower(c)); });
    for (const SFormat& f : Formats()) {
        std::wstring e(f.extension, f.extension + std::char_traits<char>::length(f.extension));
        if (e == ext) return &f;
    }
    return nullptr;
}

} // namespace VnTool

#include "formats.h"

#include <algorithm>
#include <cwctype>
#include <stdexcept>

#include "basepool/cbexception.h"
#include "vnbase/vnstreamfile.h"
#include "vnio/vnstl.h"

using namespace Geometry;

namespace VnTool {

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

void writeSTL(const std::wstring& path, const CTriangulation& mesh, const SWriteOptions& options) {
    if (options.ascii) {
        VnStreamWriteASCIIFile stream{CStringW(path)};
        if (!VnSTL::Serialize(stream, mesh)) throw std::runtime_error("writing ASCII STL failed");
        stream.Flush();
        return;
    }
    VnSTL::Serialize(path.c_str(), mesh);
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
        {".stl", "STL", readSTL, writeSTL},
    };
    return table;
}

const std::vector<DemoExtra>& DemoExtras() {
    static const std::vector<DemoExtra> extras = {};
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

#pragma once
// The tool's format dispatch: one table entry per file extension.
#include <string>
#include <vector>

#include "basepool/cbarray.h"
#include "vn3dbase/ctriangulation.h"
#include "vnio/vnobj.h"

namespace VnTool {

struct SWriteOptions {
    bool ascii = false;         // --ascii
    bool binary = false;        // --binary
    bool lossless = false;      // --lossless (compressed stream)
    double precision = 0.0;     // --precision P (compressed stream), 0 = default
    bool version2 = false;      // --version2 (compressed stream)
};

// What a reader found besides the mesh, shown by `vnio info`.
struct SReadInfo {
    std::string format; // "STL (binary)", ...
    // What an OBJ file carried besides the mesh, handed on to an OBJ writer.
    VnOBJ::SMaterialInfo materials;
    CbArray<VnOBJ::SGroup> groups;
    // Extra facts: key and value, the value a JSON literal (JsonString for text).
    std::vector<std::pair<std::string, std::string>> extra;
};

// A JSON string literal with the needed escapes.
std::string JsonString(const std::string& text);

struct SFormat {
    const char* extension;  // lower case, with the dot
    const char* name;
    bool asciiAndBinary; // --ascii / --binary choose between two encodings
    // Throws std::runtime_error (or a library exception) with what failed.
    void (*read)(const std::wstring& path, Geometry::CTriangulation& mesh, SReadInfo& info);
    void (*write)(const std::wstring& path, const Geometry::CTriangulation& mesh, const SWriteOptions& options,
                  const SReadInfo& source);
};

// Extra demo steps (thumbnail, ...): each returns its number of failures.
using DemoExtra = int (*)(const Geometry::CTriangulation& mesh, const std::string& folder);
const std::vector<DemoExtra>& DemoExtras();

// Every format the tool knows.
const std::vector<SFormat>& Formats();
// The entry for a path's extension, or nullptr.
const SFormat* FindFormat(const std::wstring& path);

} // namespace VnTool

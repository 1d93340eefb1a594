#pragma once
// The tool's commands. Each returns the exit status; usage errors throw CUsageError,
// failures on a file throw CFileError.
#include <stdexcept>
#include <string>
#include <vector>

#include "vn3dbase/ctriangulation.h"

namespace VnTool {

class CUsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class CFileError : public std::runtime_error {
public:
    CFileError(std::string file, const std::string& what) : std::runtime_error(what), m_file(std::move(file)) {}
    const std::string& file() const { return m_file; }

private:
    std::string m_file;
};

struct SReadInfo;
struct SWriteOptions;
// Load or save by extension; every failure becomes a CFileError naming the file.
void LoadMesh(const std::string& path, Geometry::CTriangulation& mesh, SReadInfo& info);
void SaveMesh(const std::string& path, const Geometry::CTriangulation& mesh, const SWriteOptions& options,
              const SReadInfo& source);

int CommandInfo(const std::vector<std::string>& args);
int CommandConvert(const std::vector<std::string>& args);
int CommandDemo(const std::vector<std::string>& args);
int CommandThumbnail(const std::vector<std::string>& args);
std::string FormatList();

} // namespace VnTool

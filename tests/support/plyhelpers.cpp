#include "support/plyhelpers.h"

#include <cstdio>
#include <cstdlib>

namespace VnTest {

bool HaveProgram(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

std::string RunCommand(const std::string& command) {
    std::string out;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return out;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    ::pclose(pipe);
    return out;
}

} // namespace VnTest

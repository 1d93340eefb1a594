// vnio: inspect and convert mesh files.
//   vnio info FILE [--json]
//   vnio convert IN OUT [--ascii|--binary] [--weld] [--normals] [--lossless|--precision P] [--version2]
//   vnio thumbnail MESH OUT.jpg [--size WxH] [--quality Q] [--view front|top|iso]
//   vnio thumbnail MESH OUT.jpg [--size WxH] [--quality Q] [--view front|top|iso]
//   vnio demo [FOLDER]
// Exit status: 0 success, 1 failure (one line on stderr naming the file), 2 usage error.
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "basepool/cbexception.h"
#include "commands.h"

namespace {
void usage() {
    std::fputs("usage: vnio info FILE [--json]\n"
               "       vnio convert IN OUT [--ascii|--binary] [--weld] [--normals] [--lossless|--precision P] [--version2]\n"
               "       vnio thumbnail MESH OUT.jpg [--size WxH] [--quality Q] [--view front|top|iso]\n"
               "       vnio thumbnail MESH OUT.jpg [--size WxH] [--quality Q] [--view front|top|iso]\n"
               "       vnio demo [FOLDER]\n"
               "formats (by extension): ",
               stderr);
    std::fputs(VnTool::FormatList().c_str(), stderr);
    std::fputs("\n", stderr);
}
} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "--help" || args[0] == "-h") {
        usage();
        return args.empty() ? 2 : 0;
    }
    try {
        const std::string& cmd = args[0];
        std::vector<std::string> rest(args.begin() + 1, args.end());
        if (cmd == "info") return VnTool::CommandInfo(rest);
        if (cmd == "convert") return VnTool::CommandConvert(rest);
        if (cmd == "demo") return VnTool::CommandDemo(rest);
        if (cmd == "thumbnail") return VnTool::CommandThumbnail(rest);
        std::fprintf(stderr, "vnio: unknown command '%s'\n", cmd.c_str());
        usage();
        return 2;
    } catch (const VnTool::CUsageError& e) {
        std::fprintf(stderr, "vnio: %s\n", e.what());
        usage();
        return 2;
    } catch (const VnTool::CFileError& e) {
        std::fprintf(stderr, "vnio: %s: %s\n", e.file().c_str(), e.what());
        return 1;
    }
}

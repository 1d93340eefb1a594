// The OFF reader over arbitrary bytes. The reader takes only a path, so each input goes
// through one file per process; every outcome but a documented exception is a finding.
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

#include "basepool/cbexception.h"
#include "basepool/cbstring.h"
#include "vnio/vnoff.h"

namespace {
struct STempFile {
    std::string path = "/tmp/vnoff_fuzz_" + std::to_string(::getpid()) + ".off";
    ~STempFile() { std::remove(path.c_str()); }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const STempFile temp;
    const std::string& path = temp.path;
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    Geometry::CTriangulation mesh;
    try {
        VnOFF::Read(CbUtf8ToWide(path).c_str(), mesh);
    } catch (const CbExceptionStream&) {
    } catch (const CbExceptionWrongFileVersion&) {
    }
    return 0;
}

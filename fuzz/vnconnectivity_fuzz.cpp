// The connectivity decoder and the compressed-stream reader over arbitrary bytes. The first
// byte picks the target: even, the decoder alone on side tables and a symbol string cut
// from the input (so random symbol strings reach the decoder past the range coder); odd,
// the whole stream reader on the remaining bytes. Only CbExceptionStream may leave either.
#include <cstdint>
#include <vector>

#include "basepool/cbexception.h"
#include "basepool/cbstreambinary.h"
#include "../vnio/detail/vnconnectivity.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"

namespace {
struct SCursor {
    const uint8_t* p;
    const uint8_t* end;
    uint32_t byte() { return p < end ? *p++ : 0; }
};

void decodeTables(SCursor in) {
    std::vector<uint32_t> holeSizes{in.byte()}, holeRuns, handleRuns, offsets;
    for (uint32_t n = in.byte() % 8; n > 0; --n) {
        holeSizes.push_back(in.byte());
        holeRuns.push_back(in.byte());
    }
    for (uint32_t n = in.byte() % 8; n > 0; --n) {
        handleRuns.push_back(in.byte());
        offsets.push_back(in.byte() | in.byte() << 8);
    }
    std::vector<uint8_t> symbols;
    while (in.p < in.end) symbols.push_back(static_cast<uint8_t>(*in.p++ % 5));
    const uint32_t known = VnConnectivity::DecodeSplitRuns(symbols, holeRuns, holeSizes, handleRuns, "fuzz", "fuzz");
    VnConnectivity::SDecodedComponent out;
    VnConnectivity::DecodeComponent(symbols, holeSizes, offsets, known, out, "fuzz", "fuzz");
    for (const auto& t : out.triangles)
        for (uint32_t c : t)
            if (c >= out.vertexCount) __builtin_trap();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    try {
        if (data[0] % 2 == 0) {
            decodeTables(SCursor{data + 1, data + size});
        } else {
            CbStreamReadBinaryMemory in(data + 1, size - 1);
            VnStreamReadCompressedTriangulation reader(in);
            Geometry::CTriangulation mesh;
            reader >> mesh;
        }
    } catch (const CbExceptionStream&) {
    }
    return 0;
}

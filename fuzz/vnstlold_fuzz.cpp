// The legacy STL readers over arbitrary bytes: ASCII (line-based), binary, and the
// component reader. Only the documented failures may escape.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "basepool/cbexception.h"
#include "vn3dbase/vntriangulationdynamic.h"
#include "vnio/vnstlold.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint32_t flags = size & 1 ? VnSTLOld::c_FlagsDefault : 0u;
    {
        VnStreamReadASCIIMemory in(std::string_view(reinterpret_cast<const char*>(data), size));
        VnTriangulationDynamic mesh;
        try {
            VnSTLOld::Serialize(in, mesh, flags);
        } catch (const CbExceptionStream&) {
        } catch (const CbException& e) {
            if (e.GetLine() != 681) std::abort();
        }
    }
    {
        CbStreamReadBinaryMemory in(data, size);
        VnTriangulationDynamic mesh;
        try {
            VnSTLOld::Serialize(in, mesh, flags);
        } catch (const CbExceptionStream&) { // a short header reaches the caller
        }
    }
    {
        CbStreamReadBinaryMemory in(data, size);
        CbArray<VnTriangulationComponent> components;
        try {
            VnSTLOld::Serialize(in, components, nullptr, flags);
        } catch (const CbExceptionStream&) {
        }
        VnTriangulationComponent::DeleteCreated(components);
    }
    return 0;
}

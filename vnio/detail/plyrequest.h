#pragma once
// What one CReader::Request asked for; shared by the header and the body reader.
#include <memory>
#include <vector>

#include "detail/plycodec.h"

namespace VnPlyCodec {

struct CReader::SRequest {
    std::shared_ptr<SBuffer> buffer;
    size_t element = 0;             // index into the element list
    std::vector<size_t> properties; // property indices, in the order asked for
    EType type = EType::eNone;
    uint32_t listSize = 0;
    bool list = false;
};

} // namespace VnPlyCodec

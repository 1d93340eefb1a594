#pragma once
// The holders of the three per-axis position coders of one component. The writer's coders
// are flushed explicitly in the order x, y, z, because the reader makes its readers in that
// order and each reader consumes exactly its own block.
#include <array>
#include <memory>

#include "detail/vncompressedshared.h"
#include "vnbase/vnfloatcoder.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

struct VnStreamWriteCompressedTriangulation::SPositionWriters {
    SPositionWriters(CbStreamWriteBinary& stream, const std::array<std::unique_ptr<VnFloatingPointQuantization>, 3>& q)
        : z(stream, *q[2], VnCompressedDetail::kPositionCoderRaw, VnCompressedDetail::kPositionCoderAdaptation),
          y(stream, *q[1], VnCompressedDetail::kPositionCoderRaw, VnCompressedDetail::kPositionCoderAdaptation),
          x(stream, *q[0], VnCompressedDetail::kPositionCoderRaw, VnCompressedDetail::kPositionCoderAdaptation) {}
    // Made for z, y, x; the declaration order does not matter since nothing reaches the
    // stream before Flush.
    VnStreamWriteCompressedFloatingPoint z, y, x;
};

struct VnStreamReadCompressedTriangulation::SPositionReaders {
    // Member order is the block order: x, then y, then z.
    SPositionReaders(CbStreamReadBinary& stream, const std::array<std::unique_ptr<VnFloatingPointQuantization>, 3>& q)
        : x(stream, *q[0], VnCompressedDetail::kPositionCoderRaw), y(stream, *q[1], VnCompressedDetail::kPositionCoderRaw),
          z(stream, *q[2], VnCompressedDetail::kPositionCoderRaw) {}
    VnStreamReadCompressedFloatingPoint x, y, z;
};

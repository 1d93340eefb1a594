#include "basepool/cbcriticalsection.h"

#include <cstddef>
#include <cstdint>

#include "basepool/cbhash.h"

namespace {
constexpr size_t kStripes = 64;

CbCriticalSection* stripes() {
    // Built on first use and never destroyed, so objects released during static
    // destruction still find their lock.
    static CbCriticalSection* table = new CbCriticalSection[kStripes];
    return table;
}
} // namespace

CbCriticalSection& ReferenceCounter_GetCriticalSection(const void* sharedObject) {
    // Objects are aligned, so the low address bits carry no information: mix first.
    uint64_t h = CbHashMix(reinterpret_cast<uintptr_t>(sharedObject));
    return stripes()[h & (kStripes - 1)];
}

#pragma once
// Base of the mesh algorithms: configure, give the input, then Compute.
#include <cstdint>

class VnAlgorithm {
public:
    // Compute flags; callers in this library pass eComputeDefault (16).
    enum EComputeFlags : uint32_t { eComputeDefault = 16 };
    virtual ~VnAlgorithm() = default;
    // Runs the algorithm; returns false when it had no input or could not run.
    bool Compute(uint32_t computeFlags = eComputeDefault) { return compute(computeFlags); }

protected:
    virtual bool compute(uint32_t computeFlags) = 0;
};

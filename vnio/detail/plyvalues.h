#pragma once
// Value conversion between the PLY scalar types, shared by the reader and the writer.
// Every PLY type fits a double exactly (the widest integers are 32-bit), so conversions go
// through double and only the range of the target type can make one fail.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "detail/plycodec.h"

namespace VnPlyCodec {

template <class T> inline T loadRaw(const uint8_t* p) {
    T v;
    std::memcpy(&v, p, sizeof(T));
    return v;
}

inline double LoadAsDouble(EType type, const uint8_t* p) {
    switch (type) {
    case EType::eInt8: return loadRaw<int8_t>(p);
    case EType::eUInt8: return loadRaw<uint8_t>(p);
    case EType::eInt16: return loadRaw<int16_t>(p);
    case EType::eUInt16: return loadRaw<uint16_t>(p);
    case EType::eInt32: return loadRaw<int32_t>(p);
    case EType::eUInt32: return loadRaw<uint32_t>(p);
    case EType::eFloat32: return loadRaw<float>(p);
    case EType::eFloat64: return loadRaw<double>(p);
    case EType::eNone: break;
    }
    return 0;
}

template <class T> inline bool storeInteger(double v, uint8_t* p) {
    // NaN fails both comparisons; fractions are not silently cut off.
    if (!(v >= double(std::numeric_limits<T>::min()) && v <= double(std::numeric_limits<T>::max()))) return false;
    if (v != std::trunc(v)) return false;
    T t = static_cast<T>(v);
    std::memcpy(p, &t, sizeof(T));
    return true;
}

// Stores `v` as `type`; false when an integer type cannot hold it exactly.
inline bool StoreFromDouble(EType type, double v, uint8_t* p) {
    switch (type) {
    case EType::eInt8: return storeInteger<int8_t>(v, p);
    case EType::eUInt8: return storeInteger<uint8_t>(v, p);
    case EType::eInt16: return storeInteger<int16_t>(v, p);
    case EType::eUInt16: return storeInteger<uint16_t>(v, p);
    case EType::eInt32: return storeInteger<int32_t>(v, p);
    case EType::eUInt32: return storeInteger<uint32_t>(v, p);
    case EType::eFloat32: {
        float f = static_cast<float>(v);
        std::memcpy(p, &f, 4);
        return true;
    }
    case EType::eFloat64: std::memcpy(p, &v, 8); return true;
    case EType::eNone: break;
    }
    return false;
}

// Converts one host-order value; false when it does not fit the target.
inline bool ConvertValue(EType from, const uint8_t* src, EType to, uint8_t* dst) {
    if (from == to) {
        std::memcpy(dst, src, SizeOf(to));
        return true;
    }
    return StoreFromDouble(to, LoadAsDouble(from, src), dst);
}

// Reverses the bytes of one value of `size` bytes from `src` into `dst`.
inline void SwapInto(const uint8_t* src, size_t size, uint8_t* dst) {
    for (size_t i = 0; i < size; ++i) dst[i] = src[size - 1 - i];
}

} // namespace VnPlyCodec

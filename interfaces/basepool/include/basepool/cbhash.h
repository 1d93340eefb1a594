#pragma once
// Hash functions for the hash containers. Bucket indices are taken from the low bits
// (hash & (tableSize - 1)), so every hash is finished with a full avalanche mix: keys that
// differ only in high bits, or sequential integers, must still spread over the buckets.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "basepool/cbstring.h"

inline uint64_t CbHashMix(uint64_t x) {
    x ^= x >> 33;
    x *= 0xff51afd7ed558ccdull;
    x ^= x >> 33;
    x *= 0xc4ceb9fe1a85ec53ull;
    x ^= x >> 33;
    return x;
}

// FNV-1a over the bytes, then mixed: FNV's low bits alone are weak for short keys.
inline uint64_t CbHashBytes(const void* data, size_t size) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    uint64_t h = 0xcbf29ce484222325ull;
    for (size_t i = 0; i < size; ++i) {
        h ^= p[i];
        h *= 0x100000001b3ull;
    }
    return CbHashMix(h);
}

template <class K, class Enable = void> struct CbHash {
    size_t operator()(const K& key) const { return static_cast<size_t>(CbHashMix(std::hash<K>{}(key))); }
};
template <class K> struct CbHash<K, std::enable_if_t<std::is_integral_v<K> || std::is_enum_v<K>>> {
    size_t operator()(K key) const { return static_cast<size_t>(CbHashMix(static_cast<uint64_t>(key))); }
};
template <class K> struct CbHash<K*> {
    size_t operator()(K* key) const { return static_cast<size_t>(CbHashMix(reinterpret_cast<uintptr_t>(key))); }
};
template <> struct CbHash<std::string> {
    size_t operator()(const std::string& key) const { return static_cast<size_t>(CbHashBytes(key.data(), key.size())); }
};
template <> struct CbHash<CStringA> {
    size_t operator()(const CStringA& key) const { return static_cast<size_t>(CbHashBytes(key.data(), key.size())); }
};
template <> struct CbHash<CStringW> {
    size_t operator()(const CStringW& key) const {
        return static_cast<size_t>(CbHashBytes(key.data(), key.size() * sizeof(wchar_t)));
    }
};

#pragma once
// Association nodes of CbMap and the policy that draws them from a CbPlexManager.
#include <cstddef>
#include <string>
#include <utility>

#include "basepool/cbexception.h"
#include "basepool/cbplexmanager.h"
#include "basepool/cbtypename.h"

namespace CbMapTypes {
// One key/value pair with its links: the bucket chain of the hash index and the
// insertion-order list that iteration follows.
template <class K, class V> struct SAssociation {
    template <class KeyArg, class... Args>
    explicit SAssociation(size_t h, KeyArg&& key, Args&&... args)
        : kv(std::piecewise_construct, std::forward_as_tuple(std::forward<KeyArg>(key)),
             std::forward_as_tuple(std::forward<Args>(args)...)),
          hash(h) {}
    std::pair<const K, V> kv;
    size_t hash;
    SAssociation* nextInBucket = nullptr;
    SAssociation* prev = nullptr;
    SAssociation* next = nullptr;
};

// Value type of a map used as a set.
struct SEmpty {
    friend bool operator==(SEmpty, SEmpty) { return true; }
};
} // namespace CbMapTypes

template <class K, class V> struct CbTypeName<CbMapTypes::SAssociation<K, V>> {
    static std::string Get() {
        return "struct CbMapTypes::SAssociation<" + CbTypeName<K>::Get() + "," + CbTypeName<V>::Get() + ">";
    }
};
template <> struct CbTypeName<CbMapTypes::SEmpty> {
    static std::string Get() { return "struct CbMapTypes::SEmpty"; }
};

namespace CbMapPolicyDetail {
// Host code matches on this (file, line) pair, so it is a fixed value, not __LINE__.
constexpr const char* kSource = "basepool/cbmappolicyplexmanager";
constexpr uint32_t kLineBlockSizeZero = 303;
} // namespace CbMapPolicyDetail

template <class K, class V> class CbMapPolicyPlexManager {
public:
    using SAssociation = CbMapTypes::SAssociation<K, V>;
    using Plex = CbPlexManager<SAssociation, 0, 0, unsigned int>;

    // Throws CbExceptionContainer when `blockSize` is 0, before any pool is built.
    explicit CbMapPolicyPlexManager(unsigned int blockSize) : m_plex(checkedBlockSize(blockSize)) {}

    template <class KeyArg, class... Args> SAssociation* NewAssociation(size_t hash, KeyArg&& key, Args&&... args) {
        return m_plex.New(hash, std::forward<KeyArg>(key), std::forward<Args>(args)...);
    }
    void FreeAssociation(SAssociation* a) noexcept { m_plex.Delete(a); }
    // Returns all blocks; every association must already be freed.
    void FreeAll() noexcept { m_plex.FreeAll(); }
    void Swap(CbMapPolicyPlexManager& other) noexcept { m_plex.Swap(other.m_plex); }
    unsigned int GetBlockSize() const { return m_plex.GetBlockSize(); }
    Plex& GetPlexManager() { return m_plex; }
    const Plex& GetPlexManager() const { return m_plex; }

    static std::string FunctionName(const char* member) {
        return "CbMapPolicyPlexManager<" + CbTypeName<K>::Get() + "," + CbTypeName<V>::Get() + ">::" + member;
    }

private:
    static unsigned int checkedBlockSize(unsigned int blockSize) {
        if (blockSize == 0)
            throw CbExceptionContainer(CbMapPolicyDetail::kSource, CbMapPolicyDetail::kLineBlockSizeZero,
                                       FunctionName("CbMapPolicyPlexManager").c_str());
        return blockSize;
    }

    Plex m_plex;
};

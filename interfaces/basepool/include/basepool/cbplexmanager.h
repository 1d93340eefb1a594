#pragma once
// A node pool: elements come from blocks of a fixed number of slots, and released slots
// go onto a free list that later requests are served from before any new block is taken.
// Node-based containers (map associations, list nodes) use it so that inserting one
// element costs no heap call in the common case and all nodes die with one sweep.
//
// Template parameters:
//   T  the element type.
//   A  minimum slot alignment in bytes; 0 means the natural alignment of T.
//   B  release policy; non-zero returns every block to the heap as soon as the last
//      live element is released, 0 keeps blocks until FreeAll() or destruction.
//   S  the unsigned type of block sizes and counts.
//
// The pool does not know which slots are live: owners destroy their elements (Delete or
// an explicit destructor call plus releaseElement) before FreeAll().
#include <algorithm>
#include <cstddef>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "basepool/cbexception.h"
#include "basepool/cbtypename.h"

namespace CbPlexDetail {
// Host code matches on these (file, line) pairs, so they are fixed values, not __LINE__.
constexpr const char* kSource = "basepool/cbplexmanager";
constexpr uint32_t kLineBlockSizeZero = 188;
constexpr uint32_t kLineNoFreeElement = 313;
} // namespace CbPlexDetail

template <class T, int A, int B, class S> class CbPlexManager {
    static_assert(std::is_unsigned_v<S>, "block sizes and counts are unsigned");
    static_assert(A >= 0 && (A & (A - 1)) == 0, "alignment must be zero or a power of two");

public:
    // Throws CbExceptionContainer when `blockSize` is 0. `maxBlocks` caps the number of
    // blocks held at once (0: no cap); a request beyond it fails like an exhausted heap.
    explicit CbPlexManager(S blockSize, S maxBlocks = 0) : m_blockSize(blockSize), m_maxBlocks(maxBlocks) {
        if (blockSize == 0)
            throw CbExceptionContainer(CbPlexDetail::kSource, CbPlexDetail::kLineBlockSizeZero,
                                       FunctionName("CbPlexManager").c_str());
    }
    ~CbPlexManager() { FreeAll(); }
    CbPlexManager(const CbPlexManager&) = delete;
    CbPlexManager& operator=(const CbPlexManager&) = delete;
    // Moving hands the blocks over; the source keeps its block size and is empty.
    CbPlexManager(CbPlexManager&& other) noexcept : m_blockSize(other.m_blockSize), m_maxBlocks(other.m_maxBlocks) {
        Swap(other);
    }
    CbPlexManager& operator=(CbPlexManager&& other) noexcept {
        if (this != &other) {
            FreeAll();
            m_blockSize = other.m_blockSize;
            m_maxBlocks = other.m_maxBlocks;
            Swap(other);
        }
        return *this;
    }
    void Swap(CbPlexManager& other) noexcept {
        std::swap(m_blockSize, other.m_blockSize);
        std::swap(m_maxBlocks, other.m_maxBlocks);
        std::swap(m_blocks, other.m_blocks);
        std::swap(m_free, other.m_free);
        std::swap(m_blockCount, other.m_blockCount);
        std::swap(m_freeCount, other.m_freeCount);
        std::swap(m_liveCount, other.m_liveCount);
    }

    // Storage for one element, uninitialised. Throws CbExceptionContainer when no free
    // slot is left and no new block can be obtained.
    void* getFreeElement() {
        if (!m_free) newBlock();
        SFreeSlot* slot = m_free;
        m_free = slot->next;
        --m_freeCount;
        ++m_liveCount;
        return slot;
    }
    // Returns a slot obtained from getFreeElement (its element already destroyed).
    void releaseElement(void* p) noexcept {
        SFreeSlot* slot = ::new (p) SFreeSlot{m_free};
        m_free = slot;
        ++m_freeCount;
        --m_liveCount;
        if (B != 0 && m_liveCount == 0) FreeAll();
    }

    template <class... Args> T* New(Args&&... args) {
        void* p = getFreeElement();
        try {
            return ::new (p) T(std::forward<Args>(args)...);
        } catch (...) {
            releaseElement(p);
            throw;
        }
    }
    void Delete(T* element) noexcept {
        if (!element) return;
        element->~T();
        releaseElement(element);
    }

    // Returns every block to the heap. Live elements are not destroyed.
    void FreeAll() noexcept {
        while (m_blocks) {
            SBlockHeader* next = m_blocks->next;
            ::operator delete(static_cast<void*>(m_blocks), std::align_val_t(kSlotAlign));
            m_blocks = next;
        }
        m_free = nullptr;
        m_blockCount = m_freeCount = m_liveCount = 0;
    }

    S GetBlockSize() const { return m_blockSize; }
    S GetMaxBlocks() const { return m_maxBlocks; }
    void SetMaxBlocks(S maxBlocks) { m_maxBlocks = maxBlocks; }
    S GetBlockCount() const { return m_blockCount; }
    size_t GetFreeCount() const { return m_freeCount; }
    size_t GetElementCount() const { return m_liveCount; }

    // "CbPlexManager<unsigned int,0,0,unsigned int>::<member>".
    static std::string FunctionName(const char* member) {
        return "CbPlexManager<" + CbTypeName<T>::Get() + "," + std::to_string(A) + "," + std::to_string(B) + "," +
               CbTypeName<S>::Get() + ">::" + member;
    }

private:
    struct SFreeSlot {
        SFreeSlot* next;
    };
    struct SBlockHeader {
        SBlockHeader* next;
    };
    static constexpr size_t kSlotAlign =
        std::max({size_t(A), alignof(T), alignof(SFreeSlot), alignof(SBlockHeader)});
    static constexpr size_t roundUp(size_t n) { return (n + kSlotAlign - 1) / kSlotAlign * kSlotAlign; }
    static constexpr size_t kSlotSize = roundUp(std::max(sizeof(T), sizeof(SFreeSlot)));
    static constexpr size_t kHeaderSize = roundUp(sizeof(SBlockHeader));

    [[noreturn]] void throwNoFreeElement() const {
        throw CbExceptionContainer(CbPlexDetail::kSource, CbPlexDetail::kLineNoFreeElement,
                                   FunctionName("getFreeElement").c_str());
    }

    void newBlock() {
        if (m_maxBlocks != 0 && m_blockCount >= m_maxBlocks) throwNoFreeElement();
        const size_t slots = static_cast<size_t>(m_blockSize);
        if (slots > (static_cast<size_t>(-1) - kHeaderSize) / kSlotSize) throwNoFreeElement();
        void* raw = ::operator new(kHeaderSize + slots * kSlotSize, std::align_val_t(kSlotAlign), std::nothrow);
        if (!raw) throwNoFreeElement();
        SBlockHeader* block = ::new (raw) SBlockHeader{m_blocks};
        m_blocks = block;
        ++m_blockCount;
        // Thread the slots back to front so the block is handed out in address order.
        unsigned char* first = static_cast<unsigned char*>(raw) + kHeaderSize;
        for (size_t i = slots; i-- > 0;) m_free = ::new (first + i * kSlotSize) SFreeSlot{m_free};
        m_freeCount += slots;
    }

    S m_blockSize;
    S m_maxBlocks;
    SBlockHeader* m_blocks = nullptr;
    SFreeSlot* m_free = nullptr;
    S m_blockCount = 0;
    size_t m_freeCount = 0;
    size_t m_liveCount = 0;
};

// Containers of the foundation layer: map and set order and correctness against the
// standard containers, the node pool and its failure spellings, list positions, arrays,
// flags, date-time and the reference-count locks.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <list>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "basepool/cbarray.h"
#include "basepool/cbcriticalsection.h"
#include "basepool/cbdatetime.h"
#include "basepool/cbflags.h"
#include "basepool/cblist.h"
#include "basepool/cbmap.h"
#include "basepool/cbplexmanager.h"
#include "basepool/cbset.h"

namespace {

template <class Map> std::vector<typename Map::key_type> keysInOrder(const Map& map) {
    std::vector<typename Map::key_type> keys;
    for (const auto& [k, v] : map) keys.push_back(k);
    return keys;
}

// Expects `fn` to throw CbExceptionContainer naming exactly (file, line, function).
template <class Fn> void expectContainerError(Fn fn, const char* file, uint32_t line, const std::string& function) {
    try {
        fn();
        ADD_FAILURE() << "no exception, expected " << function;
    } catch (const CbExceptionContainer& e) {
        EXPECT_EQ(e.GetSourceFile(), file);
        EXPECT_EQ(e.GetLine(), line);
        EXPECT_EQ(e.GetFunction(), function);
    }
}

// Counts live instances so that tests see every node destroyed exactly once.
struct SCounted {
    static inline int s_live = 0;
    int value = 0;
    SCounted() { ++s_live; }
    explicit SCounted(int v) : value(v) { ++s_live; }
    SCounted(const SCounted& o) : value(o.value) { ++s_live; }
    SCounted& operator=(const SCounted&) = default;
    ~SCounted() { --s_live; }
};

// The reference containers hash independently of the code under test.
struct SStdStringHash {
    size_t operator()(const CStringA& s) const { return std::hash<std::string>{}(s); }
};
template <class K> using ModelHash = std::conditional_t<std::is_same_v<K, CStringA>, SStdStringHash, std::hash<K>>;

// Keeps the order model of a map: keys in first-insertion order with O(1) erase.
template <class K> class COrderModel {
public:
    void Insert(const K& k) {
        if (m_where.count(k)) return;
        m_where[k] = m_order.insert(m_order.end(), k);
    }
    void Erase(const K& k) {
        auto it = m_where.find(k);
        if (it == m_where.end()) return;
        m_order.erase(it->second);
        m_where.erase(it);
    }
    std::vector<K> Keys() const { return {m_order.begin(), m_order.end()}; }

private:
    std::list<K> m_order;
    std::unordered_map<K, typename std::list<K>::iterator, ModelHash<K>> m_where;
};

CStringA keyName(uint32_t i) { return CbFormatA("key-%u", i); }

} // namespace

// ---------------------------------------------------------------------------------------
// CbMap

TEST(CbMapOrder, InsertionOrderSurvivesRehash) {
    CbMap<unsigned int, unsigned int> map;
    std::mt19937 rng(7);
    std::vector<unsigned int> inserted;
    std::set<unsigned int> seen;
    size_t tableSizes = 0, lastSize = 0;
    while (inserted.size() < 5000) {
        unsigned int k = rng();
        if (!seen.insert(k).second) continue;
        inserted.push_back(k);
        map.SetAt(k, static_cast<unsigned int>(inserted.size()));
        if (map.GetHashTableSize() != lastSize) {
            lastSize = map.GetHashTableSize();
            ++tableSizes;
            EXPECT_EQ(lastSize & (lastSize - 1), 0u) << "bucket table must stay a power of two";
        }
    }
    EXPECT_GT(tableSizes, 5u) << "the table should have grown several times";
    EXPECT_GE(map.GetHashTableSize(), 5000u);
    EXPECT_EQ(keysInOrder(map), inserted);
    // Overwriting keeps a key's place.
    map.SetAt(inserted[0], 99);
    map[inserted[1]] = 98;
    EXPECT_EQ(keysInOrder(map), inserted);
    EXPECT_EQ(map[inserted[0]], 99u);
}

TEST(CbMapOrder, RemovalKeepsOrderOfTheRestAndReinsertGoesLast) {
    CbMap<CStringA, int> map;
    std::vector<CStringA> expected;
    for (uint32_t i = 0; i < 300; ++i) map[keyName(i * 7919 % 300)] = static_cast<int>(i);
    for (uint32_t i = 0; i < 300; ++i) {
        CStringA k = keyName(i * 7919 % 300);
        if (i % 3 == 1) {
            EXPECT_TRUE(map.RemoveKey(k));
            EXPECT_FALSE(map.RemoveKey(k)) << "second removal of " << k;
        } else {
            expected.push_back(k);
        }
    }
    EXPECT_EQ(map.GetCount(), static_cast<int>(expected.size()));
    EXPECT_EQ(keysInOrder(map), expected);
    // Remove head and tail, then re-insert a removed key: it goes to the end.
    CStringA head = expected.front(), tail = expected.back();
    EXPECT_TRUE(map.RemoveKey(head));
    EXPECT_TRUE(map.RemoveKey(tail));
    expected.erase(expected.begin());
    expected.pop_back();
    map[head] = -1;
    expected.push_back(head);
    EXPECT_EQ(keysInOrder(map), expected);
}

template <class K, class MakeKey> void runRandomOperations(MakeKey makeKey, uint32_t keySpace, int steps) {
    std::mt19937 rng(12345);
    CbMap<K, uint32_t> map;
    std::unordered_map<K, uint32_t, ModelHash<K>> model;
    COrderModel<K> order;
    for (int step = 0; step < steps; ++step) {
        K k = makeKey(rng() % keySpace);
        uint32_t v = rng();
        switch (rng() % 6) {
        case 0:
        case 1:
            map.SetAt(k, v);
            model[k] = v;
            order.Insert(k);
            break;
        case 2:
            map[k] += v;
            model[k] += v;
            order.Insert(k);
            break;
        case 3: {
            bool removed = map.RemoveKey(k);
            ASSERT_EQ(removed, model.erase(k) == 1) << "step " << step;
            order.Erase(k);
            break;
        }
        case 4: {
            uint32_t got = 0xDEADBEEF;
            bool found = map.Lookup(k, got);
            auto it = model.find(k);
            ASSERT_EQ(found, it != model.end()) << "step " << step;
            if (found) {
                ASSERT_EQ(got, it->second);
            } else {
                ASSERT_EQ(got, 0xDEADBEEFu) << "a failed lookup must leave the output alone";
            }
            break;
        }
        default: {
            const auto& cmap = map;
            const uint32_t* p = cmap.PLookup(k);
            auto it = model.find(k);
            ASSERT_EQ(p != nullptr, it != model.end()) << "step " << step;
            ASSERT_EQ(cmap.Contains(k), p != nullptr);
            if (p) {
                ASSERT_EQ(*p, it->second);
            }
            break;
        }
        }
        ASSERT_EQ(map.GetCount(), static_cast<int>(model.size()));
        if (step % 997 == 0 || step == steps - 1) {
            ASSERT_EQ(keysInOrder(map), order.Keys()) << "step " << step;
            for (const auto& [key, value] : map) ASSERT_EQ(model.at(key), value);
        }
    }
    map.RemoveAll();
    EXPECT_TRUE(map.IsEmpty());
    EXPECT_EQ(map.GetHashTableSize(), 0u);
    EXPECT_EQ(map.begin(), map.end());
    map[makeKey(1)] = 5; // usable after RemoveAll
    EXPECT_EQ(map.GetCount(), 1);
}

TEST(CbMapRandom, UnsignedKeysMatchStdUnorderedMap) {
    runRandomOperations<unsigned int>([](uint32_t i) { return i; }, 3000, 60000);
}

TEST(CbMapRandom, HighBitKeysMatchStdUnorderedMap) {
    // Keys that differ only above the bucket mask must still be told apart.
    runRandomOperations<unsigned int>([](uint32_t i) { return i << 20; }, 4000, 30000);
}

TEST(CbMapRandom, IntKeysMatchStdUnorderedMap) {
    runRandomOperations<int>([](uint32_t i) { return static_cast<int>(i) - 1500; }, 3000, 30000);
}

TEST(CbMapRandom, StringKeysMatchStdUnorderedMap) {
    runRandomOperations<CStringA>([](uint32_t i) { return keyName(i); }, 2000, 30000);
}

TEST(CbMapHash, SequentialAndShiftedKeysSpreadOverBuckets) {
    // The bucket is hash & mask: low hash bits must depend on every key bit.
    const size_t buckets = 1024;
    for (int shift : {0, 10, 16, 22}) {
        std::vector<int> used(buckets, 0);
        for (uint32_t i = 0; i < buckets; ++i) ++used[CbHash<unsigned int>{}(i << shift) & (buckets - 1)];
        size_t empty = static_cast<size_t>(std::count(used.begin(), used.end(), 0));
        // A random assignment leaves about 1/e (~377) buckets empty.
        EXPECT_LT(empty, 450u) << "shift " << shift;
    }
    std::vector<int> used(buckets, 0);
    for (uint32_t i = 0; i < buckets; ++i) ++used[CbHash<CStringA>{}(keyName(i)) & (buckets - 1)];
    EXPECT_LT(static_cast<size_t>(std::count(used.begin(), used.end(), 0)), 450u);
    EXPECT_NE(CbHash<CStringA>{}(CStringA("ab")), CbHash<CStringA>{}(CStringA("ba")));
}

TEST(CbMapValue, CopyMoveAndNodeLifetimes) {
    SCounted::s_live = 0;
    {
        CbMap<CStringA, SCounted> a(3); // small blocks: several pool blocks in play
        for (int i = 0; i < 20; ++i) a[keyName(static_cast<uint32_t>(i))] = SCounted(i);
        EXPECT_EQ(SCounted::s_live, 20);
        CbMap<CStringA, SCounted> b(a);
        EXPECT_EQ(SCounted::s_live, 40);
        EXPECT_EQ(keysInOrder(b), keysInOrder(a));
        b[keyName(0)].value = 100;
        EXPECT_EQ(a[keyName(0)].value, 0) << "a copy must not share nodes";
        EXPECT_TRUE(b.RemoveKey(keyName(5)));
        EXPECT_EQ(SCounted::s_live, 39);

        CbMap<CStringA, SCounted> c(std::move(b));
        EXPECT_EQ(c.GetCount(), 19);
        EXPECT_TRUE(b.IsEmpty()); // NOLINT(bugprone-use-after-move): moved-from maps are empty and usable
        b[keyName(1)] = SCounted(1);
        EXPECT_EQ(b.GetCount(), 1);
        EXPECT_EQ(SCounted::s_live, 40);

        a = c;
        EXPECT_EQ(a.GetCount(), 19);
        EXPECT_EQ(a[keyName(0)].value, 100);
        EXPECT_EQ(SCounted::s_live, 39);
        c = std::move(b);
        EXPECT_EQ(c.GetCount(), 1);
        EXPECT_EQ(SCounted::s_live, 20);
        a.RemoveAll();
        EXPECT_EQ(SCounted::s_live, 1);
    }
    EXPECT_EQ(SCounted::s_live, 0);
}

TEST(CbMapValue, PositionWalkAndFind) {
    CbMap<int, int> map;
    for (int i = 0; i < 10; ++i) map[10 - i] = i * i;
    std::vector<int> keys;
    for (CbPosition pos = map.GetStartPosition(); pos;) {
        int k = 0, v = 0;
        map.GetNextAssoc(pos, k, v);
        EXPECT_EQ(v, (10 - k) * (10 - k));
        keys.push_back(k);
    }
    EXPECT_EQ(keys, keysInOrder(map));
    CbPosition none = nullptr;
    int k, v;
    EXPECT_THROW(map.GetNextAssoc(none, k, v), CbExceptionPreconditionViolation);
    auto it = map.find(4);
    ASSERT_NE(it, map.end());
    it->second = -4;
    EXPECT_EQ(map[4], -4);
    EXPECT_EQ(map.find(42), map.end());
}

TEST(CbMapPolicy, BlockSizeZeroThrowsWithPolicySpelling) {
    expectContainerError([] { CbMap<unsigned int, unsigned int> map(0); }, "basepool/cbmappolicyplexmanager", 303,
                         "CbMapPolicyPlexManager<unsigned int,unsigned int>::CbMapPolicyPlexManager");
    expectContainerError([] { CbMapPolicyPlexManager<CStringA, int> policy(0); }, "basepool/cbmappolicyplexmanager",
                         303, "CbMapPolicyPlexManager<class CStringA,int>::CbMapPolicyPlexManager");
}

TEST(CbMapPolicy, ExhaustedPoolFailsTheInsertAndLeavesTheMapIntact) {
    CbMap<unsigned int, unsigned int> map(2);
    map.GetPolicy().GetPlexManager().SetMaxBlocks(1);
    map[1] = 10;
    map[2] = 20;
    expectContainerError([&] { map[3] = 30; }, "basepool/cbplexmanager", 313,
                         "CbPlexManager<struct CbMapTypes::SAssociation<unsigned int,unsigned int>,0,0,unsigned int>"
                         "::getFreeElement");
    EXPECT_EQ(map.GetCount(), 2);
    EXPECT_FALSE(map.Contains(3));
    EXPECT_EQ(keysInOrder(map), (std::vector<unsigned int>{1, 2}));
    map[2] = 21; // existing keys need no node
    EXPECT_TRUE(map.RemoveKey(1));
    map[3] = 30; // the freed node is reused under the cap
    EXPECT_EQ(keysInOrder(map), (std::vector<unsigned int>{2, 3}));
    EXPECT_EQ(map[2], 21u);
}

// ---------------------------------------------------------------------------------------
// CbPlexManager

using CPlexUU = CbPlexManager<CbMapTypes::SAssociation<unsigned int, unsigned int>, 0, 0, unsigned int>;

TEST(CbPlexManager, FreeListIsReusedBeforeANewBlock) {
    CbPlexManager<int, 0, 0, unsigned int> plex(4);
    EXPECT_EQ(plex.GetBlockCount(), 0u) << "blocks are taken lazily";
    std::vector<int*> p;
    for (int i = 0; i < 4; ++i) p.push_back(plex.New(i));
    EXPECT_EQ(plex.GetBlockCount(), 1u);
    EXPECT_EQ(plex.GetFreeCount(), 0u);
    EXPECT_EQ(std::set<int*>(p.begin(), p.end()).size(), 4u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(*p[i], i);

    plex.Delete(p[1]);
    plex.Delete(p[3]);
    EXPECT_EQ(plex.GetFreeCount(), 2u);
    EXPECT_EQ(plex.GetElementCount(), 2u);
    // Released slots come back (last released first) before any new block is taken.
    int* a = plex.New(10);
    int* b = plex.New(11);
    EXPECT_EQ(a, p[3]);
    EXPECT_EQ(b, p[1]);
    EXPECT_EQ(plex.GetBlockCount(), 1u);
    EXPECT_EQ(*p[0], 0) << "reuse must not disturb live elements";
    EXPECT_EQ(*p[2], 2);

    int* c = plex.New(12);
    EXPECT_EQ(plex.GetBlockCount(), 2u);
    EXPECT_EQ(plex.GetFreeCount(), 3u);
    EXPECT_EQ(std::count(p.begin(), p.end(), c), 0);
    plex.FreeAll();
    EXPECT_EQ(plex.GetBlockCount(), 0u);
    EXPECT_EQ(plex.GetFreeCount(), 0u);
}

TEST(CbPlexManager, AlignmentAndReleasePolicy) {
    struct alignas(16) SWide {
        char bytes[24];
    };
    CbPlexManager<SWide, 64, 1, unsigned int> plex(5);
    std::vector<SWide*> p;
    for (int i = 0; i < 12; ++i) p.push_back(plex.New());
    for (SWide* e : p) EXPECT_EQ(reinterpret_cast<uintptr_t>(e) % 64, 0u);
    EXPECT_EQ(plex.GetBlockCount(), 3u);
    for (size_t i = 0; i + 1 < p.size(); ++i) plex.Delete(p[i]);
    EXPECT_EQ(plex.GetBlockCount(), 3u);
    plex.Delete(p.back());
    EXPECT_EQ(plex.GetBlockCount(), 0u) << "a non-zero release policy frees blocks with the last element";
}

TEST(CbPlexManager, ThrowingConstructorReturnsTheSlot) {
    struct SThrows {
        explicit SThrows(bool fail) {
            if (fail) throw std::runtime_error("ctor");
        }
    };
    CbPlexManager<SThrows, 0, 0, unsigned int> plex(2);
    SThrows* ok = plex.New(false);
    EXPECT_THROW(plex.New(true), std::runtime_error);
    EXPECT_EQ(plex.GetElementCount(), 1u);
    EXPECT_EQ(plex.GetFreeCount(), 1u);
    plex.Delete(ok);
}

TEST(CbPlexManager, BlockSizeZeroThrowsWithTemplateSpelling) {
    expectContainerError([] { CPlexUU plex(0); }, "basepool/cbplexmanager", 188,
                         "CbPlexManager<struct CbMapTypes::SAssociation<unsigned int,unsigned int>,0,0,unsigned int>"
                         "::CbPlexManager");
    expectContainerError([] { CbPlexManager<int, 0, 0, unsigned int> plex(0); }, "basepool/cbplexmanager", 188,
                         "CbPlexManager<int,0,0,unsigned int>::CbPlexManager");
}

TEST(CbPlexManager, ExhaustedBlocksThrowFromGetFreeElement) {
    CPlexUU plex(2, 1);
    void* a = plex.getFreeElement();
    void* b = plex.getFreeElement();
    expectContainerError([&] { plex.getFreeElement(); }, "basepool/cbplexmanager", 313,
                         "CbPlexManager<struct CbMapTypes::SAssociation<unsigned int,unsigned int>,0,0,unsigned int>"
                         "::getFreeElement");
    EXPECT_EQ(plex.GetElementCount(), 2u) << "a failed request must leave the pool as it was";
    plex.releaseElement(a);
    EXPECT_EQ(plex.getFreeElement(), a) << "a freed slot is available again under the cap";
    plex.releaseElement(b);
    plex.releaseElement(a);

    using CPlexSI = CbPlexManager<CbMapTypes::SAssociation<CStringA, int>, 0, 0, unsigned int>;
    CPlexSI strings(1, 1);
    strings.getFreeElement();
    expectContainerError([&] { strings.getFreeElement(); }, "basepool/cbplexmanager", 313,
                         "CbPlexManager<struct CbMapTypes::SAssociation<class CStringA,int>,0,0,unsigned int>"
                         "::getFreeElement");
    strings.FreeAll();

    // A block too large for the address space fails the same way instead of wrapping.
    CbPlexManager<double, 0, 0, unsigned long long> huge(~0ull / 4);
    expectContainerError([&] { huge.getFreeElement(); }, "basepool/cbplexmanager", 313,
                         "CbPlexManager<double,0,0,unsigned __int64>::getFreeElement");
}

// ---------------------------------------------------------------------------------------
// CbList

template <class T> std::vector<T> forwardValues(const CbList<T>& list) {
    std::vector<T> out;
    for (CbPosition pos = list.GetHeadPosition(); pos;) out.push_back(list.GetNext(pos));
    return out;
}
template <class T> std::vector<T> backwardValues(const CbList<T>& list) {
    std::vector<T> out;
    for (CbPosition pos = list.GetTailPosition(); pos;) out.push_back(list.GetPrev(pos));
    std::reverse(out.begin(), out.end());
    return out;
}

TEST(CbList, PositionsSurviveRemovalAtHeadMiddleAndTail) {
    CbList<int> list(2);
    std::vector<CbPosition> pos;
    for (int i = 0; i < 7; ++i) pos.push_back(list.AddTail(i));
    EXPECT_EQ(list.GetHeadPosition(), pos.front());
    EXPECT_EQ(list.GetTailPosition(), pos.back());

    list.RemoveAt(pos[3]); // middle
    list.RemoveAt(pos[0]); // head
    list.RemoveAt(pos[6]); // tail
    std::vector<int> expected{1, 2, 4, 5};
    EXPECT_EQ(forwardValues(list), expected);
    EXPECT_EQ(backwardValues(list), expected) << "prev links must agree with next links";
    EXPECT_EQ(list.GetCount(), 4);
    EXPECT_EQ(list.GetHeadPosition(), pos[1]);
    EXPECT_EQ(list.GetTailPosition(), pos[5]);
    EXPECT_EQ(list.GetAt(pos[4]), 4) << "untouched positions stay valid";

    list.SetAt(pos[2], 20);
    list.InsertBefore(pos[1], 0);
    list.InsertAfter(pos[5], 6);
    list.InsertAfter(pos[2], 3);
    EXPECT_EQ(forwardValues(list), (std::vector<int>{0, 1, 20, 3, 4, 5, 6}));
    EXPECT_EQ(backwardValues(list), forwardValues(list));
    EXPECT_EQ(list.Find(4), pos[4]);
    EXPECT_EQ(list.Find(99), nullptr);

    EXPECT_EQ(list.RemoveHead(), 0);
    EXPECT_EQ(list.RemoveTail(), 6);
    while (!list.IsEmpty()) list.RemoveTail();
    EXPECT_EQ(list.GetHeadPosition(), nullptr);
    EXPECT_EQ(list.GetTailPosition(), nullptr);
    list.AddHead(8);
    EXPECT_EQ(list.GetHead(), 8);
    EXPECT_EQ(list.GetTail(), 8);
}

TEST(CbList, MisuseThrowsPreconditionViolation) {
    CbList<int> list;
    CbPosition none = nullptr;
    EXPECT_THROW(list.RemoveHead(), CbExceptionPreconditionViolation);
    EXPECT_THROW(list.RemoveTail(), CbExceptionPreconditionViolation);
    EXPECT_THROW(list.RemoveAt(none), CbExceptionPreconditionViolation);
    EXPECT_THROW(list.GetNext(none), CbExceptionPreconditionViolation);
    EXPECT_THROW(list.GetHead(), CbExceptionPreconditionViolation);
    EXPECT_THROW(CbList<int>(0), CbExceptionContainer);
}

TEST(CbList, IteratorsCopiesAndLifetimes) {
    SCounted::s_live = 0;
    {
        CbList<SCounted> list(3);
        for (int i = 0; i < 10; ++i) list.AddTail(SCounted(i));
        EXPECT_EQ(SCounted::s_live, 10);
        int expect = 0;
        for (const SCounted& c : list) EXPECT_EQ(c.value, expect++);
        auto last = list.end();
        --last;
        EXPECT_EQ(last->value, 9);
        EXPECT_EQ(last.GetPosition(), list.GetTailPosition());
        CbList<SCounted>::const_iterator first = list.begin();
        EXPECT_EQ(first->value, 0);

        CbList<SCounted> copy(list);
        copy.GetHead().value = 100;
        EXPECT_EQ(list.GetHead().value, 0);
        EXPECT_EQ(SCounted::s_live, 20);
        CbList<SCounted> moved(std::move(copy));
        EXPECT_TRUE(copy.IsEmpty()); // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(moved.GetHead().value, 100);
        list = moved;
        EXPECT_EQ(list.GetHead().value, 100);
        EXPECT_EQ(SCounted::s_live, 20);
        list.RemoveAll();
        EXPECT_EQ(SCounted::s_live, 10);
    }
    EXPECT_EQ(SCounted::s_live, 0);
}

// ---------------------------------------------------------------------------------------
// CbSet

TEST(CbSet, AddReportsNewnessAndKeepsInsertionOrder) {
    CbSet<CStringA> set;
    EXPECT_TRUE(set.Add("pear"));
    EXPECT_TRUE(set.Add("apple"));
    EXPECT_FALSE(set.Add("pear"));
    EXPECT_TRUE(set.Add("fig"));
    EXPECT_EQ(set.GetCount(), 3);
    EXPECT_EQ(std::vector<CStringA>(set.begin(), set.end()), (std::vector<CStringA>{"pear", "apple", "fig"}));
    EXPECT_TRUE(set.Remove("apple"));
    EXPECT_FALSE(set.Remove("apple"));
    EXPECT_FALSE(set.Contains("apple"));
    EXPECT_TRUE(set.Add("apple"));
    EXPECT_EQ(std::vector<CStringA>(set.begin(), set.end()), (std::vector<CStringA>{"pear", "fig", "apple"}));
    CbSet<CStringA> other{"apple", "pear", "fig"};
    EXPECT_TRUE(set == other) << "equality ignores order";
    other.Remove("fig");
    EXPECT_FALSE(set == other);
    set.RemoveAll();
    EXPECT_TRUE(set.IsEmpty());
    EXPECT_FALSE(set.Contains("pear"));
}

TEST(CbSet, RandomOperationsMatchStdSet) {
    std::mt19937 rng(99);
    CbSet<unsigned int> set;
    std::set<unsigned int> model;
    for (int step = 0; step < 20000; ++step) {
        unsigned int v = rng() % 1500;
        if (rng() % 3) {
            ASSERT_EQ(set.Add(v), model.insert(v).second);
        } else {
            ASSERT_EQ(set.Remove(v), model.erase(v) == 1);
        }
        ASSERT_EQ(set.Contains(v), model.count(v) == 1);
    }
    EXPECT_EQ(set.GetCount(), static_cast<int>(model.size()));
    EXPECT_EQ(std::set<unsigned int>(set.begin(), set.end()), model);
}

// ---------------------------------------------------------------------------------------
// CbArray

TEST(CbArray, IndexedEditsAndBounds) {
    CbArray<CStringA> a;
    EXPECT_EQ(a.Add("b"), 0);
    EXPECT_EQ(a.Add(CStringA("d")), 1);
    a.InsertAt(0, "a");
    a.InsertAt(2, "c");
    a.InsertAt(a.GetSize(), "e", 2);
    EXPECT_EQ(std::vector<CStringA>(a.begin(), a.end()), (std::vector<CStringA>{"a", "b", "c", "d", "e", "e"}));
    a.RemoveAt(4, 2);
    a.RemoveAt(0);
    EXPECT_EQ(std::vector<CStringA>(a.begin(), a.end()), (std::vector<CStringA>{"b", "c", "d"}));
    a.SetAt(1, "x");
    EXPECT_EQ(a.GetAt(1), "x");
    EXPECT_EQ(a[2], "d");
    EXPECT_EQ(a.GetData()[0], "b");

    EXPECT_THROW(a.GetAt(3), CbExceptionPreconditionViolation);
    EXPECT_THROW(a.GetAt(-1), CbExceptionPreconditionViolation);
    EXPECT_THROW(a.SetAt(3, "y"), CbExceptionPreconditionViolation);
    EXPECT_THROW(a.InsertAt(4, "y"), CbExceptionPreconditionViolation);
    EXPECT_THROW(a.RemoveAt(2, 2), CbExceptionPreconditionViolation);
    EXPECT_THROW(a.SetSize(-1), CbExceptionPreconditionViolation);
    EXPECT_EQ(a.GetCount(), 3) << "failed edits change nothing";

    CbArray<int> n;
    n.SetSize(4);
    EXPECT_EQ(n, (CbArray<int>{0, 0, 0, 0})) << "new elements are value-initialised";
    n.Reserve(100);
    CbArray<int> copy = n;
    copy[0] = 7;
    EXPECT_EQ(n[0], 0);
    CbArray<int> moved = std::move(copy);
    EXPECT_EQ(moved[0], 7);
    EXPECT_EQ(moved.Append(n), 4);
    EXPECT_EQ(moved.GetSize(), 8);
    moved.RemoveAll();
    EXPECT_TRUE(moved.IsEmpty());
}

// ---------------------------------------------------------------------------------------
// CbFlags

namespace {
enum EPlainFlags : uint32_t { ePlainA = 1, ePlainB = 2, ePlainAB = 3, ePlainHigh = 0x80000000u };
enum class EScopedFlags : uint8_t { eOne = 1, eFour = 4 };
} // namespace

TEST(CbFlags, AnyBitAllBitsAndRemoval) {
    CbFlags<EPlainFlags> f;
    EXPECT_TRUE(f.IsEmpty());
    f.Set(ePlainA);
    EXPECT_TRUE(f.Has(ePlainAB)) << "Has asks for any bit of a multi-bit flag";
    EXPECT_FALSE(f.HasAll(ePlainAB));
    f |= ePlainB;
    f.Add(ePlainHigh);
    EXPECT_TRUE(f.HasAll(ePlainAB));
    EXPECT_EQ(f.GetValue(), 0x80000003u);
    f.Remove(ePlainAB);
    EXPECT_EQ(f.GetValue(), 0x80000000u);
    f.Set(ePlainHigh, false);
    EXPECT_TRUE(f.IsEmpty());
    EXPECT_EQ(CbFlags<EPlainFlags>(5u).GetValue(), 5u);
    EXPECT_TRUE(CbFlags<EPlainFlags>(ePlainA) == CbFlags<EPlainFlags>(1u));
    EXPECT_FALSE(CbFlags<EPlainFlags>(ePlainA) == CbFlags<EPlainFlags>(ePlainB));
    EXPECT_EQ((CbFlags<EPlainFlags>(ePlainA) | ePlainB).GetValue(), 3u);

    CbFlags<EScopedFlags> s(EScopedFlags::eFour);
    EXPECT_TRUE(s.Has(EScopedFlags::eFour));
    EXPECT_FALSE(s.Has(EScopedFlags::eOne));
    s.Toggle(EScopedFlags::eOne).Toggle(EScopedFlags::eFour);
    EXPECT_EQ(s.GetValue(), 1u);

    CbFlags<uint32_t> bits(0x10u);
    EXPECT_TRUE(bits.Has(0x30u));
    bits.Remove(0x10u);
    EXPECT_EQ(bits.GetValue(), 0u);
}

// ---------------------------------------------------------------------------------------
// CbDateTime and the locks

TEST(CbDateTime, NowIsPlausibleLocalTime) {
    std::time_t before = std::time(nullptr);
    CbDateTime now;
    std::tm local{};
    localtime_r(&before, &local);
    EXPECT_GE(now.GetYear(), 2024);
    EXPECT_GE(now.GetYear(), local.tm_year + 1900);
    EXPECT_LE(now.GetYear(), local.tm_year + 1901);
    EXPECT_GE(now.GetMonth(), 1);
    EXPECT_LE(now.GetMonth(), 12);
    EXPECT_GE(now.GetDay(), 1);
    EXPECT_LE(now.GetDay(), 31);
    EXPECT_LE(now.GetHour(), 23);
    EXPECT_LE(now.GetMinute(), 59);
    EXPECT_LE(now.GetSecond(), 59);
    EXPECT_EQ(CbDateTime(2025, 3, 9, 7, 5, 1).Format(), "2025-03-09 07:05:01");
}

TEST(CbCriticalSection, RecursiveAndGuardsSharedCounts) {
    int objects[8];
    for (int& o : objects) EXPECT_EQ(&ReferenceCounter_GetCriticalSection(&o), &ReferenceCounter_GetCriticalSection(&o));
    std::set<CbCriticalSection*> distinct;
    for (int& o : objects) distinct.insert(&ReferenceCounter_GetCriticalSection(&o));
    EXPECT_GT(distinct.size(), 1u) << "neighbouring objects should not all share one lock";

    CbCriticalSection& cs = ReferenceCounter_GetCriticalSection(&objects[0]);
    cs.Enter();
    cs.Enter(); // recursive: must not deadlock
    cs.Leave();
    cs.Leave();

    // Plain increments under the lock from several threads must not lose updates.
    long count = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                CbLock lock(ReferenceCounter_GetCriticalSection(&count));
                ++count;
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(count, 80000);
}

#include "vn3dbase/vnfttriangulationcombinetrianglesoup.h"

#include <bit>
#include <cmath>
#include <cstring>

using Geometry::c_IndexInvalid;

namespace {

uint32_t keyBits(float f) {
    if (f == 0.f) return 0; // +0 and -0 are one point
    return std::bit_cast<uint32_t>(f);
}

uint64_t mix(uint64_t h) {
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdull;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ull;
    h ^= h >> 33;
    return h;
}

uint64_t hashPoint(const CbVector3f& p) {
    return mix(keyBits(p.x) * 0x9E3779B97F4A7C15ull ^ (uint64_t(keyBits(p.y)) << 21) ^ (uint64_t(keyBits(p.z)) << 42) ^
               keyBits(p.z));
}

bool samePoint(const CbVector3f& a, const CbVector3f& b) {
    return keyBits(a.x) == keyBits(b.x) && keyBits(a.y) == keyBits(b.y) && keyBits(a.z) == keyBits(b.z);
}

// Open addressing over group representatives: expected O(1) per vertex.
class CPointTable {
public:
    explicit CPointTable(size_t expected) {
        size_t cap = 16;
        while (cap < expected * 2) cap <<= 1;
        m_slots.assign(cap, c_IndexInvalid);
        m_mask = cap - 1;
    }
    // Returns the slot holding an equal point, or the empty slot where it belongs.
    template <class Equal> uint32_t& find(uint64_t hash, Equal equal) {
        size_t i = hash & m_mask;
        while (m_slots[i] != c_IndexInvalid && !equal(m_slots[i])) i = (i + 1) & m_mask;
        return m_slots[i];
    }

private:
    std::vector<uint32_t> m_slots;
    size_t m_mask;
};

struct SCell {
    int64_t x, y, z;
};

uint64_t hashCell(const SCell& c) {
    return mix(uint64_t(c.x) * 0x9E3779B97F4A7C15ull ^ uint64_t(c.y) * 0xC2B2AE3D27D4EB4Full ^ uint64_t(c.z));
}

} // namespace

namespace VnWeld {

std::vector<uint32_t> GroupVertices(const CbVector3f* positions, size_t slotCount, const std::vector<uint32_t>& live,
                                    bool useTolerance, float tolerance, uint32_t& groupCount) {
    std::vector<uint32_t> group(slotCount, c_IndexInvalid);
    groupCount = 0;
    if (!useTolerance || !(tolerance > 0.f) || !std::isfinite(tolerance)) {
        CPointTable table(live.size());
        std::vector<uint32_t> representative; // group -> first vertex
        representative.reserve(live.size() / 4 + 16);
        for (uint32_t v : live) {
            const CbVector3f& p = positions[v];
            uint32_t& slot = table.find(hashPoint(p), [&](uint32_t g) { return samePoint(positions[representative[g]], p); });
            if (slot == c_IndexInvalid) {
                slot = groupCount++;
                representative.push_back(v);
            }
            group[v] = slot;
        }
        return group;
    }
    // Tolerance: survivors are bucketed in cells of the tolerance's size, so every survivor
    // within reach of a point lies in one of the 27 cells around it.
    const double cell = tolerance;
    const double tol2 = double(tolerance) * double(tolerance);
    struct SBucket {
        SCell cell;
        std::vector<uint32_t> members; // survivors, in index order
    };
    std::vector<SBucket> buckets;
    CPointTable table(live.size());
    std::vector<uint32_t> survivorGroup(slotCount, c_IndexInvalid);
    auto cellOf = [&](const CbVector3f& p) {
        return SCell{int64_t(std::floor(p.x / cell)), int64_t(std::floor(p.y / cell)), int64_t(std::floor(p.z / cell))};
    };
    for (uint32_t v : live) {
        const CbVector3f& p = positions[v];
        bool finite = std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) &&
                      std::fabs(p.x / cell) < 4e18 && std::fabs(p.y / cell) < 4e18 && std::fabs(p.z / cell) < 4e18;
        uint32_t best = c_IndexInvalid;
        SCell c{0, 0, 0};
        if (finite) {
            c = cellOf(p);
            for (int dx = -1; dx <= 1 && best == c_IndexInvalid; ++dx)
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dz = -1; dz <= 1; ++dz) {
                        SCell n{c.x + dx, c.y + dy, c.z + dz};
                        uint32_t& slot = table.find(hashCell(n), [&](uint32_t b) {
                            return buckets[b].cell.x == n.x && buckets[b].cell.y == n.y && buckets[b].cell.z == n.z;
                        });
                        if (slot == c_IndexInvalid) continue;
                        for (uint32_t s : buckets[slot].members) {
                            const CbVector3f& q = positions[s];
                            double ex = double(p.x) - q.x, ey = double(p.y) - q.y, ez = double(p.z) - q.z;
                            if (ex * ex + ey * ey + ez * ez <= tol2 && (best == c_IndexInvalid || s < best)) best = s;
                        }
                    }
        }
        if (best != c_IndexInvalid) {
            group[v] = survivorGroup[best];
            continue;
        }
        group[v] = survivorGroup[v] = groupCount++;
        if (!finite) continue; // a non-finite point joins nothing
        uint32_t& slot = table.find(hashCell(c), [&](uint32_t b) {
            return buckets[b].cell.x == c.x && buckets[b].cell.y == c.y && buckets[b].cell.z == c.z;
        });
        if (slot == c_IndexInvalid) {
            slot = static_cast<uint32_t>(buckets.size());
            buckets.push_back(SBucket{c, {}});
        }
        buckets[slot].members.push_back(v);
    }
    return group;
}

} // namespace VnWeld

bool VnFtTriangulationCombineTriangleSoup::compute(uint32_t) {
    if (!m_mesh) return false;
    Geometry::CTriangulation& mesh = *m_mesh;
    if ((m_flags & (eFlagCombine | eFlagTolerance)) == 0) return true;
    std::vector<uint32_t> live;
    live.reserve(mesh.GetVertexCount());
    for (Geometry::CVertexRef v : mesh.Vertices()) live.push_back(v);
    uint32_t groups = 0;
    std::vector<uint32_t> map = VnWeld::GroupVertices(mesh.GetPositions(), mesh.GetVertexSlotCount(), live,
                                                      (m_flags & eFlagTolerance) != 0, m_tolerance, groups);
    mesh.RemapVertices(map, groups);
    if (m_flags & eFlagRemoveDegenerate) {
        for (Geometry::CTriangleRef t : mesh.Triangles()) {
            const auto& c = mesh.GetCorners(t);
            if (c[0] == c[1] || c[1] == c[2] || c[0] == c[2]) mesh.RemoveTriangle(t);
        }
        std::vector<uint8_t> used(mesh.GetVertexSlotCount(), 0);
        for (Geometry::CTriangleRef t : mesh.Triangles())
            for (uint32_t c : mesh.GetCorners(t))
                if (c < used.size()) used[c] = 1;
        for (uint32_t v = 0; v < used.size(); ++v)
            if (!used[v]) mesh.RemoveVertex(Geometry::CVertexRef(v));
        mesh.Compact();
    }
    return true;
}

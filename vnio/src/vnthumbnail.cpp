#include "vnio/vnthumbnail.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "vn3dbase/attributeentry.h"
#include "vnbase/vncolor.h"
#include "vnio/vnjpegwriter.h"

using namespace Geometry;

namespace {

constexpr const char* c_SourceFile = "vnlibraries/vnio/vnthumbnail";

[[noreturn]] void failPrecondition(uint32_t line) {
    throw CbExceptionPreconditionViolation(c_SourceFile, line, "VnThumbnail::Render");
}

// Fraction of the picture left free on each side around the fitted mesh.
constexpr float c_Margin = 0.05f;
// Pictures of up to this many pixels are supersampled 2 x 2.
constexpr size_t c_SupersampleLimit = 1024 * 1024;
constexpr float c_Ambient = 0.28f;
constexpr float c_Diffuse = 0.72f;
// Light direction in camera coordinates (right, up, towards the viewer): from the upper
// left and somewhat from the front, so that faces turned different ways get different
// shades even when they face the camera equally (the three faces of a cube in the
// diagonal view).
constexpr float c_LightRight = -0.3f, c_LightUp = 0.5f, c_LightBack = 1.0f;
constexpr uint8_t c_Background[3] = {240, 240, 240}; // B, G, R
constexpr float c_Surface[3] = {205.f, 185.f, 170.f}; // B, G, R: a light blue-grey

struct SVec {
    float x, y, z;
};
SVec operator-(SVec a, SVec b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
float dot(SVec a, SVec b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
SVec cross(SVec a, SVec b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
SVec scaled(SVec a, float s) { return {a.x * s, a.y * s, a.z * s}; }
SVec add(SVec a, SVec b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
SVec toVec(const CbVector3f& v) { return {v.x, v.y, v.z}; }
bool isFinite(SVec v) { return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z); }

// Camera axes in world coordinates: right, up, and back (from the scene to the viewer).
struct SCamera {
    SVec right, up, back;
};

SCamera cameraFor(VnThumbnail::EView view) {
    switch (view) {
    case VnThumbnail::eViewFront: return {{1, 0, 0}, {0, 0, 1}, {0, -1, 0}};
    case VnThumbnail::eViewTop: return {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    case VnThumbnail::eViewIso: {
        const float s2 = 1.f / std::sqrt(2.f), s3 = 1.f / std::sqrt(3.f), s6 = 1.f / std::sqrt(6.f);
        return {{s2, s2, 0}, {-s6, s6, 2 * s6}, {s3, -s3, s3}};
    }
    }
    return {};
}

// The storage of a vertex attribute when it exists, is live and holds T; else null.
template <class T> const T* vertexArray(const CTriangulation& mesh, std::string_view name) {
    const SAttributeEntry* e = mesh.FindAttribute(eContainerVertex, name);
    if (!e || !e->connected || e->elementSize != sizeof(T) || (e->type && *e->type != typeid(T))) return nullptr;
    if (e->data.size() < size_t(mesh.GetVertexSlotCount()) * sizeof(T)) return nullptr;
    return reinterpret_cast<const T*>(e->data.data());
}

// Per-vertex data after projection. Positions of deleted or non-finite vertices are NaN,
// so every triangle using one is skipped by one test.
struct SScreenVertex {
    float x, y;  // pixel coordinates, y down
    float depth; // larger is nearer
};

struct SShade {
    float b, g, r;
};

class CRasteriser {
public:
    CRasteriser(uint32_t width, uint32_t height)
        : m_width(width), m_height(height), m_bgr(size_t(width) * height * 3),
          m_depth(size_t(width) * height, -std::numeric_limits<float>::infinity()) {
        for (size_t i = 0; i < m_depth.size(); ++i)
            for (int k = 0; k < 3; ++k) m_bgr[3 * i + k] = c_Background[k];
    }

    // The screen footprint of one triangle, corners in counter-clockwise order on screen.
    struct SSetup {
        const SScreenVertex* v[3];
        int corner[3]; // which of the given corners each v is
        float area;    // twice the screen area, > 0
        int x0, x1, y0, y1;
    };

    // False when the triangle covers no pixel centre (degenerate, off screen, or too small
    // to hit one): most triangles of a dense mesh, which then need no shading.
    bool setup(const SScreenVertex* const v[3], SSetup& t) const {
        float area = edge(*v[0], *v[1], v[2]->x, v[2]->y);
        if (!(area != 0.f)) return false; // degenerate on screen (or NaN)
        const bool flip = area < 0;
        t.v[0] = v[0], t.v[1] = v[flip ? 2 : 1], t.v[2] = v[flip ? 1 : 2];
        t.corner[0] = 0, t.corner[1] = flip ? 2 : 1, t.corner[2] = flip ? 1 : 2;
        t.area = flip ? -area : area;
        // Pixel centres sit at +0.5; the loops cover the centres inside the bounding box.
        const float minX = std::min({v[0]->x, v[1]->x, v[2]->x}), maxX = std::max({v[0]->x, v[1]->x, v[2]->x});
        const float minY = std::min({v[0]->y, v[1]->y, v[2]->y}), maxY = std::max({v[0]->y, v[1]->y, v[2]->y});
        t.x0 = std::max(0, static_cast<int>(std::ceil(minX - 0.5f)));
        t.x1 = std::min(static_cast<int>(m_width) - 1, static_cast<int>(std::floor(maxX - 0.5f)));
        t.y0 = std::max(0, static_cast<int>(std::ceil(minY - 0.5f)));
        t.y1 = std::min(static_cast<int>(m_height) - 1, static_cast<int>(std::floor(maxY - 0.5f)));
        return t.x0 <= t.x1 && t.y0 <= t.y1;
    }

    // `shades` in the order of the corners given to setup.
    void fill(const SSetup& t, const SShade shades[3]) {
        const SScreenVertex* const* v = t.v;
        const SShade* c[3] = {&shades[t.corner[0]], &shades[t.corner[1]], &shades[t.corner[2]]};
        const float inv = 1.f / t.area;
        for (int y = t.y0; y <= t.y1; ++y) {
            const float py = float(y) + 0.5f;
            for (int x = t.x0; x <= t.x1; ++x) {
                const float px = float(x) + 0.5f;
                const float w0 = edge(*v[1], *v[2], px, py), w1 = edge(*v[2], *v[0], px, py),
                            w2 = edge(*v[0], *v[1], px, py);
                if (w0 < 0 || w1 < 0 || w2 < 0) continue;
                const float a = w0 * inv, b = w1 * inv, g = w2 * inv;
                const float depth = a * v[0]->depth + b * v[1]->depth + g * v[2]->depth;
                const size_t i = size_t(y) * m_width + size_t(x);
                if (depth <= m_depth[i]) continue;
                m_depth[i] = depth;
                uint8_t* out = m_bgr.data() + 3 * i;
                out[0] = toByte(a * c[0]->b + b * c[1]->b + g * c[2]->b);
                out[1] = toByte(a * c[0]->g + b * c[1]->g + g * c[2]->g);
                out[2] = toByte(a * c[0]->r + b * c[1]->r + g * c[2]->r);
            }
        }
    }

private:
    // Twice the signed area of (a, b, p).
    static float edge(const SScreenVertex& a, const SScreenVertex& b, float px, float py) {
        return (b.x - a.x) * (py - a.y) - (b.y - a.y) * (px - a.x);
    }
    static uint8_t toByte(float v) { return static_cast<uint8_t>(std::clamp(v + 0.5f, 0.f, 255.f)); }

public:
    // Box-filters the picture down by `factor` in both directions into `out`.
    void resolve(uint32_t factor, unsigned char* out) const {
        if (factor == 1) {
            std::copy(m_bgr.begin(), m_bgr.end(), out);
            return;
        }
        const uint32_t w = m_width / factor, h = m_height / factor, n = factor * factor;
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x)
                for (int k = 0; k < 3; ++k) {
                    uint32_t sum = 0;
                    for (uint32_t dy = 0; dy < factor; ++dy)
                        for (uint32_t dx = 0; dx < factor; ++dx)
                            sum += m_bgr[3 * ((size_t(y) * factor + dy) * m_width + size_t(x) * factor + dx) + k];
                    out[3 * (size_t(y) * w + x) + k] = static_cast<unsigned char>((sum + n / 2) / n);
                }
    }

private:
    uint32_t m_width, m_height;
    std::vector<uint8_t> m_bgr;
    std::vector<float> m_depth;
};

float lambert(SVec unitNormal, SVec light) { return c_Ambient + c_Diffuse * std::max(0.f, dot(unitNormal, light)); }

SShade shade(const float base[3], float intensity) {
    return {base[0] * intensity, base[1] * intensity, base[2] * intensity};
}

// Unit vector, or false for a zero or non-finite one.
bool normalise(SVec& v) {
    const float len = std::sqrt(dot(v, v));
    if (!(len > 0.f) || !std::isfinite(len)) return false;
    v = scaled(v, 1.f / len);
    return true;
}

} // namespace

namespace VnThumbnail {

void Render(const CTriangulation& mesh, uint32_t width, uint32_t height, EView view, CbArray<unsigned char>& bgr) {
    if (width == 0 || height == 0 || width > c_MaxSide || height > c_MaxSide) failPrecondition(__LINE__);
    if (view != eViewFront && view != eViewTop && view != eViewIso) failPrecondition(__LINE__);
    if (mesh.GetTriangleCount() == 0) failPrecondition(__LINE__);

    // Small pictures are drawn at twice the size in each direction and filtered down, which
    // smooths the edges; large ones would cost too much memory for little gain.
    const uint32_t factor = size_t(width) * height <= c_SupersampleLimit ? 2 : 1;
    const uint32_t rw = width * factor, rh = height * factor;

    const SCamera cam = cameraFor(view);
    const uint32_t slots = mesh.GetVertexSlotCount();
    const CbVector3f* positions = mesh.GetPositions();
    const float nan = std::numeric_limits<float>::quiet_NaN();

    // Project into camera coordinates and take the extent on screen over the vertices that
    // some drawable triangle uses, so that stray unused vertices do not shrink the picture.
    std::vector<SScreenVertex> screen(slots, SScreenVertex{nan, nan, nan});
    for (uint32_t v = 0; v < slots; ++v) {
        if (!mesh.IsVertexLive(v)) continue;
        const SVec p = toVec(positions[v]);
        // Finite positions near the float limit can still overflow here.
        const SVec q{dot(p, cam.right), dot(p, cam.up), dot(p, cam.back)};
        if (isFinite(q)) screen[v] = {q.x, q.y, q.z};
    }
    float minX = std::numeric_limits<float>::infinity(), maxX = -minX, minY = minX, maxY = -minX;
    bool any = false;
    auto drawable = [&](const STriangleCorners& c) {
        for (uint32_t k : c)
            if (k >= slots || std::isnan(screen[k].x)) return false;
        return true;
    };
    for (CTriangleRef t : mesh.Triangles()) {
        const STriangleCorners& c = mesh.GetCorners(t);
        if (!drawable(c)) continue;
        any = true;
        for (uint32_t k : c) {
            minX = std::min(minX, screen[k].x);
            maxX = std::max(maxX, screen[k].x);
            minY = std::min(minY, screen[k].y);
            maxY = std::max(maxY, screen[k].y);
        }
    }
    if (!any) failPrecondition(__LINE__);

    // Fit: one scale for both axes so that shapes keep their proportions. Extents are
    // taken in double: float coordinates near the float limit would overflow.
    const double usableW = double(rw) * (1 - 2 * c_Margin), usableH = double(rh) * (1 - 2 * c_Margin);
    const double extX = double(maxX) - minX, extY = double(maxY) - minY;
    double scale = std::min(extX > 0 ? usableW / extX : HUGE_VAL, extY > 0 ? usableH / extY : HUGE_VAL);
    if (!std::isfinite(scale)) scale = 1; // a single point: nothing to fit
    const double midX = (double(minX) + maxX) / 2, midY = (double(minY) + maxY) / 2;
    // Vertices that no drawable triangle uses may lie far outside; the clamp keeps their
    // conversion to float defined.
    auto toPixel = [](double v) { return static_cast<float>(std::clamp(v, -1e7, 1e7)); };
    for (SScreenVertex& s : screen) {
        if (std::isnan(s.x)) continue;
        s.x = toPixel(rw / 2.0 + (s.x - midX) * scale);
        s.y = toPixel(rh / 2.0 - (s.y - midY) * scale);
    }

    SVec light = add(add(scaled(cam.right, c_LightRight), scaled(cam.up, c_LightUp)), scaled(cam.back, c_LightBack));
    normalise(light);

    // Per-vertex base colours (B, G, R floats), or the one surface colour.
    const VnColorRGBA* colors = vertexArray<VnColorRGBA>(mesh, "color");
    std::vector<float> base;
    if (colors) {
        base.resize(size_t(slots) * 3);
        for (uint32_t v = 0; v < slots; ++v) {
            base[3 * v] = colors[v].GetBlue();
            base[3 * v + 1] = colors[v].GetGreen();
            base[3 * v + 2] = colors[v].GetRed();
        }
    }
    auto baseOf = [&](uint32_t v) { return colors ? &base[3 * size_t(v)] : c_Surface; };

    // Unit vertex normals; a zero one marks "use the facet normal".
    const CbVector3f* normals = vertexArray<CbVector3f>(mesh, "normal");
    std::vector<SVec> unitNormals;
    if (normals) {
        unitNormals.resize(slots);
        for (uint32_t v = 0; v < slots; ++v) {
            SVec n = toVec(normals[v]);
            unitNormals[v] = normalise(n) ? n : SVec{0, 0, 0};
        }
    }

    CRasteriser raster(rw, rh);

    for (CTriangleRef t : mesh.Triangles()) {
        const STriangleCorners& c = mesh.GetCorners(t);
        if (!drawable(c)) continue;
        const SScreenVertex* corners[3] = {&screen[c[0]], &screen[c[1]], &screen[c[2]]};
        CRasteriser::SSetup footprint;
        if (!raster.setup(corners, footprint)) continue;
        bool smooth = normals != nullptr;
        SVec normalSum{0, 0, 0};
        if (smooth)
            for (uint32_t k : c) {
                const SVec& n = unitNormals[k];
                if (n.x == 0 && n.y == 0 && n.z == 0) smooth = false;
                normalSum = add(normalSum, n);
            }
        SVec facet = cross(toVec(positions[c[1]]) - toVec(positions[c[0]]), toVec(positions[c[2]]) - toVec(positions[c[0]]));
        // Two-sided lighting: a surface seen from behind is lit as if it were flipped. The
        // side follows the normals that shade it, so that a triangle wound against its
        // vertex normals is not darkened.
        const float side = dot(smooth ? normalSum : facet, cam.back) < 0 ? -1.f : 1.f;
        const bool facetOk = normalise(facet);
        const float flat = facetOk ? lambert(scaled(facet, side), light) : c_Ambient;
        SShade shades[3];
        for (int k = 0; k < 3; ++k) {
            const float intensity = smooth ? lambert(scaled(unitNormals[c[k]], side), light) : flat;
            shades[k] = shade(baseOf(c[k]), intensity);
        }
        raster.fill(footprint, shades);
    }
    bgr.SetSize(static_cast<int>(size_t(width) * height * 3));
    raster.resolve(factor, bgr.GetData());
}

void WriteJPEG(const CTriangulation& mesh, uint32_t width, uint32_t height, EView view, float quality,
               CbStreamWriteBinary& stream) {
    CbArray<unsigned char> bgr;
    Render(mesh, width, height, view, bgr);
    VnJPEGWriter writer(bgr, width, height);
    writer.SetQuality(quality);
    writer.Serialize(stream);
}

} // namespace VnThumbnail

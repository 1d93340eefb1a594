#include "vnio/vnthumbnail.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <tuple>
#include <typeinfo>
#include <vector>

#include "support/meshbuilders.h"
#include "vn3dbase/cattributehandle.h"
#include "vnbase/vncolor.h"

using namespace Geometry;

namespace {

struct SPixel {
    uint8_t b, g, r;
    bool operator<(const SPixel& o) const { return std::tie(b, g, r) < std::tie(o.b, o.g, o.r); }
    bool operator==(const SPixel& o) const { return b == o.b && g == o.g && r == o.r; }
};

struct SImage {
    uint32_t width, height;
    CbArray<unsigned char> bgr;
    SPixel at(uint32_t x, uint32_t y) const {
        const int i = static_cast<int>(3 * (y * width + x));
        return {bgr[i], bgr[i + 1], bgr[i + 2]};
    }
    // Pixel counts by colour, background (the corner pixel) left out.
    std::vector<std::pair<int, SPixel>> histogram() const {
        std::map<SPixel, int> counts;
        const SPixel bg = at(0, 0);
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x)
                if (!(at(x, y) == bg)) ++counts[at(x, y)];
        std::vector<std::pair<int, SPixel>> h;
        for (auto& [p, n] : counts) h.push_back({n, p});
        std::sort(h.begin(), h.end(), [](auto& a, auto& b) { return a.first > b.first; });
        return h;
    }
    // Colours that cover more than 3% of the foreground; edge blends stay below.
    size_t significantColours() const {
        const auto h = histogram();
        const int total = foreground();
        return static_cast<size_t>(std::count_if(h.begin(), h.end(), [&](auto& e) { return e.first * 100 > total * 3; }));
    }
    int foreground() const {
        int n = 0;
        for (auto& e : histogram()) n += e.first;
        return n;
    }
};

SImage render(const CTriangulation& mesh, uint32_t w, uint32_t h, VnThumbnail::EView view) {
    SImage img{w, h, {}};
    VnThumbnail::Render(mesh, w, h, view, img.bgr);
    return img;
}

int difference(SPixel a, SPixel b) { return std::abs(a.b - b.b) + std::abs(a.g - b.g) + std::abs(a.r - b.r); }

void colourVertices(CTriangulation& mesh, VnColorRGBA (*colourOf)(const CbVector3f&)) {
    auto colors = GetOrCreateAttribute<CVertexRef, VnColorRGBA>(mesh, "color");
    for (CVertexRef v : mesh.Vertices()) colors[v] = colourOf(mesh.GetPosition(v));
}

// A unit square in the plane y = `y`, spanning x and z in [0, 1], in one colour.
void addSquare(CTriangulation& mesh, float y, VnColorRGBA colour) {
    const CVertexRef a = mesh.AddVertex({0, y, 0}), b = mesh.AddVertex({1, y, 0}), c = mesh.AddVertex({1, y, 1}),
                     d = mesh.AddVertex({0, y, 1});
    mesh.AddTriangle(a, b, c);
    mesh.AddTriangle(a, c, d);
    auto colors = GetOrCreateAttribute<CVertexRef, VnColorRGBA>(mesh, "color");
    for (CVertexRef v : {a, b, c, d}) colors[v] = colour;
}

void expectPrecondition(const CTriangulation& mesh, uint32_t w, uint32_t h, VnThumbnail::EView view) {
    CbArray<unsigned char> bgr = {7, 8, 9};
    try {
        VnThumbnail::Render(mesh, w, h, view, bgr);
        ADD_FAILURE() << "no exception";
    } catch (const CbExceptionPreconditionViolation& e) {
        EXPECT_EQ(e.GetSourceFile(), "vnlibraries/vnio/vnthumbnail");
        EXPECT_EQ(e.GetFunction(), "VnThumbnail::Render");
    }
    EXPECT_EQ(bgr, (CbArray<unsigned char>{7, 8, 9}));
}

} // namespace

TEST(VnThumbnailRender, CubeFacesGetDistinctShades) {
    const SImage img = render(VnTest::MakeCube(), 128, 96, VnThumbnail::eViewIso);
    ASSERT_EQ(img.bgr.GetSize(), 128 * 96 * 3);
    const auto h = img.histogram();
    ASSERT_GE(h.size(), 3u);
    // Three visible faces, each flat: three colours hold nearly all the foreground, the
    // rest are the smoothed edges.
    EXPECT_EQ(img.significantColours(), 3u);
    const int total = img.foreground();
    EXPECT_GT(h[0].first + h[1].first + h[2].first, total * 85 / 100);
    for (int i = 0; i < 3; ++i) {
        EXPECT_GT(h[i].first, total / 10) << "face " << i;
        EXPECT_GT(difference(h[i].second, img.at(0, 0)), 30) << "face " << i << " vs background";
        for (int j = i + 1; j < 3; ++j) EXPECT_GT(difference(h[i].second, h[j].second), 30) << i << " vs " << j;
    }
}

TEST(VnThumbnailRender, CameraIsFittedToTheBoundingBox) {
    // Seen from the front the unit cube is one square face, centred with a 5% margin. Its
    // edges fall on pixel borders here, so no smoothing blends them.
    for (VnThumbnail::EView view : {VnThumbnail::eViewFront, VnThumbnail::eViewTop}) {
        const SImage img = render(VnTest::MakeCube(), 100, 60, view);
        const auto h = img.histogram();
        ASSERT_EQ(h.size(), 1u) << "one face in one colour";
        EXPECT_NEAR(h[0].first, 54 * 54, 2 * 54 + 2);
        EXPECT_FALSE(img.at(50, 30) == img.at(0, 0));
        EXPECT_FALSE(img.at(24, 4) == img.at(0, 0));
        EXPECT_TRUE(img.at(21, 30) == img.at(0, 0));
        EXPECT_TRUE(img.at(50, 1) == img.at(0, 0));
    }
}

TEST(VnThumbnailRender, ViewsKeepTheirUpAndRightDirections) {
    CTriangulation cube = VnTest::MakeCube();
    // Red on top (z = 1) and blue at the bottom: the front view shows red above blue.
    colourVertices(cube, [](const CbVector3f& p) { return p.z > 0.5f ? VnColorRGBA(255, 0, 0) : VnColorRGBA(0, 0, 255); });
    SImage img = render(cube, 64, 64, VnThumbnail::eViewFront);
    EXPECT_GT(img.at(32, 8).r, img.at(32, 8).b);
    EXPECT_GT(img.at(32, 56).b, img.at(32, 56).r);

    // Red at +x: the right side of the front view, and also of the top view.
    colourVertices(cube, [](const CbVector3f& p) { return p.x > 0.5f ? VnColorRGBA(255, 0, 0) : VnColorRGBA(0, 0, 255); });
    for (VnThumbnail::EView view : {VnThumbnail::eViewFront, VnThumbnail::eViewTop}) {
        img = render(cube, 64, 64, view);
        EXPECT_GT(img.at(56, 32).r, img.at(56, 32).b);
        EXPECT_GT(img.at(8, 32).b, img.at(8, 32).r);
    }

    // Red at +y: the top of the top view.
    colourVertices(cube, [](const CbVector3f& p) { return p.y > 0.5f ? VnColorRGBA(255, 0, 0) : VnColorRGBA(0, 0, 255); });
    img = render(cube, 64, 64, VnThumbnail::eViewTop);
    EXPECT_GT(img.at(32, 8).r, img.at(32, 8).b);
    EXPECT_GT(img.at(32, 56).b, img.at(32, 56).r);
}

TEST(VnThumbnailRender, NearerSurfaceWinsWhateverTheDrawingOrder) {
    for (bool nearFirst : {true, false}) {
        CTriangulation mesh;
        // The front camera looks along +y, so y = 0 is nearer than y = 1.
        if (nearFirst) addSquare(mesh, 0, VnColorRGBA(255, 0, 0));
        addSquare(mesh, 1, VnColorRGBA(0, 255, 0));
        if (!nearFirst) addSquare(mesh, 0, VnColorRGBA(255, 0, 0));
        const SImage img = render(mesh, 32, 32, VnThumbnail::eViewFront);
        const SPixel p = img.at(16, 16);
        EXPECT_GT(p.r, 100) << "near first: " << nearFirst;
        EXPECT_EQ(p.g, 0) << "near first: " << nearFirst;
    }
}

TEST(VnThumbnailRender, VertexNormalsReplaceFacetNormals) {
    CTriangulation cube = VnTest::MakeCube();
    auto normals = GetOrCreateAttribute<CVertexRef, CbVector3f>(cube, "normal");
    // All normals alike: every visible face gets the same shade.
    for (CVertexRef v : cube.Vertices()) normals[v] = CbVector3f(0.f, -3.f, 0.f);
    EXPECT_EQ(render(cube, 64, 64, VnThumbnail::eViewIso).significantColours(), 1u);
    // Zero normals carry no direction: the facet normals take over again.
    for (CVertexRef v : cube.Vertices()) normals[v] = CbVector3f();
    EXPECT_EQ(render(cube, 64, 64, VnThumbnail::eViewIso).significantColours(), 3u);
}

TEST(VnThumbnailRender, MisfitAttributesAndStrayVerticesAreHarmless) {
    const int plain = render(VnTest::MakeCube(), 64, 64, VnThumbnail::eViewIso).foreground();

    CTriangulation cube = VnTest::MakeCube();
    // A "color" of another type is not read as colours.
    cube.InsertAttribute(eContainerVertex, "color", 4, &typeid(float), std::vector<uint8_t>(4, 0), false);
    cube.connectAttribute(eContainerVertex, "color");
    // Vertices no triangle uses, far away or not finite, do not change the framing.
    cube.AddVertex({1e30f, -1e30f, 3e38f});
    cube.AddVertex({std::numeric_limits<float>::quiet_NaN(), 0, 0});
    const SImage img = render(cube, 64, 64, VnThumbnail::eViewIso);
    EXPECT_EQ(img.foreground(), plain);
    EXPECT_EQ(img.significantColours(), 3u);

    // A triangle with a non-finite corner is skipped, the rest is drawn.
    const CVertexRef bad = cube.AddVertex({std::numeric_limits<float>::infinity(), 0, 0});
    cube.AddTriangle(CVertexRef(0), CVertexRef(1), bad);
    EXPECT_EQ(render(cube, 64, 64, VnThumbnail::eViewIso).foreground(), plain);
}

TEST(VnThumbnailRender, NothingToDrawIsAPreconditionViolation) {
    CTriangulation mesh;
    expectPrecondition(mesh, 16, 16, VnThumbnail::eViewIso);
    const CVertexRef a = mesh.AddVertex({0, 0, 0}), b = mesh.AddVertex({1, 0, 0});
    expectPrecondition(mesh, 16, 16, VnThumbnail::eViewIso); // vertices only
    const CVertexRef c = mesh.AddVertex({0, std::numeric_limits<float>::quiet_NaN(), 0});
    const CTriangleRef t = mesh.AddTriangle(a, b, c);
    expectPrecondition(mesh, 16, 16, VnThumbnail::eViewIso); // no finite triangle
    mesh.RemoveTriangle(t);
    expectPrecondition(mesh, 16, 16, VnThumbnail::eViewIso); // only deleted triangles
}

TEST(VnThumbnailRender, BadSizesAndViewsAreRejected) {
    const CTriangulation cube = VnTest::MakeCube();
    expectPrecondition(cube, 0, 16, VnThumbnail::eViewFront);
    expectPrecondition(cube, 16, 0, VnThumbnail::eViewFront);
    expectPrecondition(cube, VnThumbnail::c_MaxSide + 1, 16, VnThumbnail::eViewFront);
    expectPrecondition(cube, 16, VnThumbnail::c_MaxSide + 1, VnThumbnail::eViewFront);
    expectPrecondition(cube, 16, 16, static_cast<VnThumbnail::EView>(3));
    // The extremes that are allowed still render.
    EXPECT_EQ(render(cube, 1, 1, VnThumbnail::eViewTop).bgr.GetSize(), 3);
    EXPECT_EQ(render(cube, VnThumbnail::c_MaxSide, 2, VnThumbnail::eViewTop).bgr.GetSize(),
              static_cast<int>(VnThumbnail::c_MaxSide * 2 * 3));
}

TEST(VnThumbnailWriteJPEG, WritesAJpegOrNothing) {
    CbStreamWriteBinaryMemory stream;
    VnThumbnail::WriteJPEG(VnTest::MakeSphere(12, 16), 48, 32, VnThumbnail::eViewIso, 0.8f, stream);
    const std::vector<uint8_t>& bytes = stream.GetData();
    ASSERT_GT(bytes.size(), 4u);
    EXPECT_EQ(bytes[0], 0xFF);
    EXPECT_EQ(bytes[1], 0xD8);
    EXPECT_EQ(bytes[bytes.size() - 1], 0xD9);

    CbStreamWriteBinaryMemory untouched;
    EXPECT_THROW(VnThumbnail::WriteJPEG(CTriangulation(), 48, 32, VnThumbnail::eViewIso, 0.8f, untouched),
                 CbExceptionPreconditionViolation);
    EXPECT_EQ(untouched.GetSize(), 0u);
}

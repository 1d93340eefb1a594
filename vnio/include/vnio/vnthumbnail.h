#pragma once
// VnThumbnail: a small software rasteriser that draws a mesh into a colour picture, for a
// preview of a file before it is opened in a viewer.
//
// The picture is an orthographic view with the camera fitted to the mesh's bounding box
// as seen from the chosen side, a z-buffer, one directional light plus ambient light,
// and two-sided shading so that open or inconsistently oriented meshes still read well.
// Meshes are taken to be Z-up, the usual convention for the formats the library reads.
#include <cstdint>

#include "basepool/cbarray.h"
#include "basepool/cbstreambinary.h"
#include "vn3dbase/ctriangulation.h"

namespace VnThumbnail {

enum EView : int {
    eViewFront = 0, // looking along +Y: X to the right, Z up
    eViewTop = 1,   // looking down along -Z: X to the right, Y up
    eViewIso = 2,   // from the front-right-top diagonal (+X, -Y, +Z), Z up
};

// Largest width or height accepted; it bounds the memory a call takes (about 10 bytes a
// pixel, at most some 170 MB).
constexpr uint32_t c_MaxSide = 4096;

// Renders `mesh` into `bgr`: width x height pixels, rows top to bottom, three bytes a
// pixel in the order blue, green, red (the layout VnJPEGWriter takes). Pictures of at most
// 1024 x 1024 pixels are drawn 2 x 2 supersampled, so their edges are smoothed.
//
// Shading uses the vertex attribute "normal" (CbVector3f) when the mesh has one, else the
// facet normals; a triangle with a zero or non-finite vertex normal falls back to its
// facet normal. Colours come from the vertex attribute "color" (VnColorRGBA, alpha
// ignored) when present, else one neutral surface colour. An attribute of one of these
// names with another element type is ignored. Triangles with a non-finite corner position
// are skipped.
//
// Throws CbExceptionPreconditionViolation ("vnlibraries/vnio/vnthumbnail",
// "VnThumbnail::Render") when width or height is 0 or above c_MaxSide, when `view` is not
// one of EView, and when there is nothing to draw: no live triangle, or no live triangle
// whose corners are all finite. `bgr` is left untouched then.
void Render(const Geometry::CTriangulation& mesh, uint32_t width, uint32_t height, EView view,
            CbArray<unsigned char>& bgr);

// Renders as above and appends the picture to `stream` as a JPEG image of the given
// quality in [0, 1] (clamped). Exceptions of Render and of VnJPEGWriter::Serialize pass
// through; nothing is written to `stream` then.
void WriteJPEG(const Geometry::CTriangulation& mesh, uint32_t width, uint32_t height, EView view, float quality,
               CbStreamWriteBinary& stream);

} // namespace VnThumbnail

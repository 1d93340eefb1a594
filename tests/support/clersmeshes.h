#pragma once
// Manifold meshes for the connectivity coder's suites: closed surfaces of any genus,
// random patches with holes, several components, shuffled numbering and deleted slots.
#include <cstdint>
#include <random>
#include <vector>

#include "vn3dbase/ctriangulation.h"

namespace VnTest {
using STriangleList = std::vector<Geometry::STriangleCorners>;

// Builds a mesh with `vertexCount` vertices (positions on a simple curve) and these triangles.
Geometry::CTriangulation MeshFromTriangles(uint32_t vertexCount, const STriangleList& triangles);
STriangleList TrianglesOf(const Geometry::CTriangulation& mesh);

// A closed sphere with `genus` handles: each handle replaces two far-apart triangles by a
// three-sided tube between their holes.
Geometry::CTriangulation MakeHandleBody(unsigned genus, unsigned rings, unsigned segments, uint32_t seed);

// Removes `holes` vertex-disjoint patches from a mesh, each grown over a random number of
// triangles (at most `maxHoleTriangles`), keeping the result manifold.
Geometry::CTriangulation PunchHoles(const Geometry::CTriangulation& mesh, unsigned holes, unsigned maxHoleTriangles,
                                    uint32_t seed);

// A random manifold patch: triangles of `mesh` kept with probability `keep`, then
// triangles around non-manifold vertices dropped until every vertex has one fan, then
// unused vertices dropped.
Geometry::CTriangulation RandomPatch(const Geometry::CTriangulation& mesh, double keep, uint32_t seed);

// Random numbering of vertices and triangles and a random rotation of each triangle's corners.
Geometry::CTriangulation Shuffle(const Geometry::CTriangulation& mesh, uint32_t seed);

// All meshes side by side in one mesh.
Geometry::CTriangulation Concatenate(const std::vector<Geometry::CTriangulation>& meshes);

// Copies `mesh` with `extra` unused vertices and triangles interleaved and then deleted.
Geometry::CTriangulation WithDeletedSlots(const Geometry::CTriangulation& mesh, uint32_t seed);

// True when every edge has at most two triangles of opposite directions and every used
// vertex has one fan; `unused` tells whether vertices without triangles are allowed.
bool IsManifold(const Geometry::CTriangulation& mesh, bool unused = false);
} // namespace VnTest

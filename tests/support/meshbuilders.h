#pragma once
// Small meshes built in code, shared by the suites.
#include <string>
#include <vector>

#include "vn3dbase/ctriangulation.h"

namespace VnTest {
// A unit cube, 8 vertices and 12 outward-facing triangles.
Geometry::CTriangulation MakeCube();
// A closed UV sphere with `rings` x `segments` quads split into triangles (poles shared).
Geometry::CTriangulation MakeSphere(unsigned rings, unsigned segments);
// A flat grid of (nx+1) x (ny+1) vertices, 2*nx*ny triangles, one boundary loop.
Geometry::CTriangulation MakeGrid(unsigned nx, unsigned ny);
// A closed torus of nu x nv quads split into triangles (genus 1).
Geometry::CTriangulation MakeTorus(unsigned nu, unsigned nv);
// Writes bytes to a fresh file in the test temp folder and returns its path.
std::wstring WriteTempFile(const std::string& name, const std::string& bytes);
std::wstring TempPath(const std::string& name);
std::string ReadFileBytes(const std::wstring& path);
} // namespace VnTest

#pragma once
// Meshes and grids for tests of volumes.

#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <random>

#include "fluids/grids/EGrid.h"
#include "fluids/meshes/HostGeometry.h"
#include "tests/support/SpherePolygons.h"

namespace orlix::test {

inline TriMeshSTL MeshOf(const PolygonObject& polygons, const LMatrix& matrix = {}) {
  TriMeshSTL mesh;
  ReadHostGeometry(polygons, matrix, Vec3D(1), mesh);
  return mesh;
}

// A closed sphere of 2 x segments x (rings - 1) triangles.
inline TriMeshSTL SphereMesh(double radius, int segments, int rings, const Vec3D& centre = {}) {
  return MeshOf(SpherePolygons(radius, segments, rings), {centre, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
}

inline TriMeshSTL BoxMesh(const Vec3D& min, const Vec3D& max) {
  PolygonObject p;
  for (int c = 0; c < 8; ++c) {
    p.points.push_back({c & 1 ? max.x : min.x, c & 2 ? max.y : min.y, c & 4 ? max.z : min.z});
  }
  p.polygons = {{0, 4, 6, 2}, {1, 3, 7, 5}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 2, 3, 1}, {4, 5, 7, 6}};
  return MeshOf(p);
}

// A level set of cells x cells x cells from a lower corner.
inline std::unique_ptr<ScalarGrid> LevelSetGrid(const VecInt3D& cells, const Vec3D& min, float cell) {
  return std::make_unique<ScalarGrid>(cells + VecInt3D(1, 1, 1), Vec3D(cells) * double(cell), cell, kGridNodalLevelset,
                                      min);
}

inline Vec3D NodeAt(const ScalarGrid& grid, int i, int j, int k) {
  return Vec3D(i, j, k) * grid.space.simPerVoxel + grid.space.simMin;
}

}  // namespace orlix::test

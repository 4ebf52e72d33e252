#pragma once
// Turns a level set into triangles: closed wherever the level set closes, each edge with two triangles, no point twice.

#include "fluids/grids/EGrid.h"
#include "fluids/grids/Interpolation.h"
#include "fluids/meshes/TriMeshSTL.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

enum class ExtractionMethod { Cubes = 0, Tetrahedra = 1, Tiles = 2 };

struct ExtractionSettings {
  ExtractionMethod method = ExtractionMethod::Cubes;
  Interpolation sampling = Interpolation::Trilinear;  // of tiles
  double iso = 0;                                     // m
  double divisor = 1;                                 // the mesh is smaller by it, seen from the level set's corner
  bool closed = false;                                // the surface is closed where the level set ends
  double tolerance = 0;                               // m: points that are nearer to each other become one
  bool normals = false;                               // with GradientNormals
};

class SurfaceExtractor {
 public:
  SurfaceExtractor(const ScalarGrid& grid, const ExtractionSettings& settings) : grid_(grid), settings_(settings) {}

  // Fills the mesh, in simulation space. A cell's outermost layer at the low sides has no surface. False when there are
  // more points or triangles than an i32 counts. Throws std::bad_alloc.
  bool Build(WorkerPool& pool, TriMeshSTL& mesh) const;
  // The level set's unit gradient at the points, as their attribute kPointNormalId; zero where it has none.
  void GradientNormals(WorkerPool& pool, TriMeshSTL& mesh) const;

 private:
  double Spacing() const { return grid_.space.cellSize / settings_.divisor; }

  const ScalarGrid& grid_;
  ExtractionSettings settings_;
};

}  // namespace orlix

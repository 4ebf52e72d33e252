#include "fluids/surfacing/SurfaceExtractor.h"

#include "fluids/grids/TrilinearGradient.h"
#include "fluids/surfacing/LatticeExtraction.h"
#include "fluids/surfacing/MeshWeld.h"
#include "fluids/surfacing/TileExtraction.h"

namespace orlix {

namespace {

constexpr double kNearest = 1e-8;           // m, of cubes
constexpr double kNearestOfOthers = 1e-30;  // m
constexpr double kLeastArea = 1e-6;         // of a triangle, in squared cells

}  // namespace

bool SurfaceExtractor::Build(WorkerPool& pool, TriMeshSTL& mesh) const {
  mesh.textureCoordinates.clear();
  // Normals keep their memory: to clear new pages takes as long as to fill them.
  std::vector<Vec3D> normals;
  if (settings_.normals) normals.swap(mesh.pointAttributes.Column(kPointNormalId));
  mesh.pointAttributes.Clear();
  if (settings_.normals) mesh.pointAttributes.Column(kPointNormalId).swap(normals);
  const VecInt3D n = grid_.dims;
  if (std::min({n.x, n.y, n.z}) < 3) return mesh.Clear(), true;
  SurfaceField field{.grid = grid_,
                     .iso = settings_.iso,
                     .cellSize = grid_.space.cellSize,
                     .low = {1, 1, 1},
                     .high = n - VecInt3D(1, 1, 1)};
  field.closed = settings_.closed;
  const bool cubes = settings_.method == ExtractionMethod::Cubes;
  field.nearest = cubes ? kNearest : kNearestOfOthers;
  const double spacing = Spacing();
  const bool fits = settings_.method == ExtractionMethod::Tiles
                        ? ExtractTiles(field, settings_.sampling, grid_.space.simMin, spacing, pool, mesh)
                        : ExtractLattice(field, !cubes, grid_.space.simMin, spacing, pool, mesh);
  if (!fits) return mesh.Clear(), false;
  WeldMesh({settings_.tolerance, kLeastArea * spacing * spacing}, pool, mesh);
  mesh.pointAttributes.Resize(static_cast<std::size_t>(mesh.PointCount()));
  if (settings_.normals) GradientNormals(pool, mesh);
  return true;
}

void SurfaceExtractor::GradientNormals(WorkerPool& pool, TriMeshSTL& mesh) const {
  std::vector<Vec3D>& normals = mesh.pointAttributes.Column(kPointNormalId);
  const GridView<const double> view(grid_);
  const double perPoint = 1 / Spacing();
  constexpr int kShare = 4096;
  const int points = mesh.PointCount();
  ForLayers(pool, 0, (points + kShare - 1) / kShare, [&](int share) {
    for (int p = share * kShare; p < std::min(points, (share + 1) * kShare); ++p) {
      const auto at = static_cast<std::size_t>(p);
      normals[at] = Normalized(TrilinearGradient(view, (mesh.Points()[at] - grid_.space.simMin) * perPoint));
    }
  });
}

}  // namespace orlix

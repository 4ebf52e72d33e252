#pragma once
// The surface of a liquid as foam sees it: a level set, its mean curvature, and a mesh with the curvature at its
// points.
//
//   kappa = ((pyy + pzz) px^2 + (pxx + pzz) py^2 + (pxx + pyy) pz^2
//            - 2 px py pxy - 2 px pz pxz - 2 py pz pyz) / |grad p|^3       k1 + k2: 2 / radius on a ball, 1/m

#include <memory>
#include <vector>

#include "fluids/grids/CountedVector.h"
#include "fluids/level_sets/LevelSetView.h"
#include "fluids/meshes/TriMeshSTL.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// Mean curvature at the inner nodes of a nodal level set, limited to the inverse cell size; 0 on the border and where
// there is no gradient. First and mixed derivatives are differences to the next node, second ones central.
void MeanCurvature(const GridView<const double>& phi, double cellSize, WorkerPool& pool, GridView<double> out);

class FoamSurface {
 public:
  // Throws std::bad_alloc.
  void UseLevelSet(const ScalarGrid& levelSet, WorkerPool& pool);
  // Makes a level set of the mesh on a lattice of nodes. False after a break or of an empty mesh.
  bool UseMeshLevelSet(const TriMeshSTL& mesh, const GridSpace& lattice, WorkerPool& pool, const BaseThread* thread);
  // The curvature at the mesh's points, smoothed over its triangles a number of times. After a level set.
  void UseMesh(const TriMeshSTL& mesh, std::int32_t smoothings, WorkerPool& pool);
  void Clear();

  bool HasLevelSet() const { return levelSet_ != nullptr; }
  // Needs a level set. m, negative inside.
  double Distance(const Vec3D& p) const { return view_.Sample(view_.IndexOfWorld(p)); }
  // Outward; zero without a slope.
  Vec3D Normal(const Vec3D& p) const { return view_.Normal(view_.IndexOfWorld(p)); }
  double Curvature(const Vec3D& p) const;
  const TriMeshSTL* mesh() const { return mesh_; }
  // Of each point of the mesh; empty without a level set.
  const std::vector<double>& pointCurvatures() const { return pointCurvatures_; }
  std::int64_t Bytes() const;

 private:
  void FillCurvature(WorkerPool& pool);

  const ScalarGrid* levelSet_ = nullptr;  // the linked one or own_
  std::unique_ptr<ScalarGrid> own_;
  LevelSetView view_;
  CountedVector<double> curvature_;  // on the nodes of the level set
  const TriMeshSTL* mesh_ = nullptr;
  std::vector<double> pointCurvatures_;
};

}  // namespace orlix

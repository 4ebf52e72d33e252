#pragma once
// Mean curvature and smoothing of triangle meshes. The same bits at any number of workers: each point reads its own
// triangles in their order and writes itself.

#include <span>
#include <vector>

#include "fluids/meshes/TriMeshSTL.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// The triangles around each point, in their order.
class MeshAdjacency {
 public:
  void Build(const TriMeshSTL& mesh);
  std::span<const std::int32_t> TrianglesAt(std::int32_t point) const {
    const auto p = static_cast<std::size_t>(point);
    return {triangles_.data() + begin_[p], triangles_.data() + begin_[p + 1]};
  }
  // Each neighbour of a point once, in the order of the triangles; found is emptied first.
  void NeighboursOf(const TriMeshSTL& mesh, std::int32_t point, std::vector<std::int32_t>& found) const;

 private:
  std::vector<std::size_t> begin_;
  std::vector<std::int32_t> triangles_;
};

// |k1 + k2| at each point, 1/m (2 / radius on a sphere), by the cotangents of the angles across from its edges (Meyer,
// Desbrun, Schroeder, Barr 2003), and the area that it stands for, m^2: two thirds of its triangles'.
void MeanCurvatures(const TriMeshSTL& mesh, const MeshAdjacency& adjacency, WorkerPool& pool,
                    std::vector<double>& curvatures, std::vector<double>& areas);

// The mean of each point and its neighbours, weighted by areas; a sum of 0 leaves the value.
std::vector<double> SmoothByArea(const TriMeshSTL& mesh, const MeshAdjacency& adjacency, WorkerPool& pool,
                                 const std::vector<double>& values, const std::vector<double>& areas);

// Moves each point towards the mean of its neighbours by its share of the way, and a vector attribute with it (null:
// none).
void SmoothPoints(const MeshAdjacency& adjacency, WorkerPool& pool, std::span<const double> shares,
                  std::vector<Vec3D>* attribute, TriMeshSTL& mesh);

// Unit normals from the triangles around each point, by their area; zero where these have none.
void PointNormals(const TriMeshSTL& mesh, const MeshAdjacency& adjacency, WorkerPool& pool,
                  std::vector<Vec3D>& normals);

}  // namespace orlix

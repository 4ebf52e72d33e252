#pragma once
// An indexed triangle mesh in simulation space. Volumes fill it from host geometry, the mesher from level sets.

#include "fluids/meshes/MeshProperties.h"
#include "fluids/meshes/iMesh.h"
#include "globals/Random.h"

namespace orlix {

class TriMeshSTL : public iTriMesh {
 public:
  std::int32_t TriangleCount() const override { return static_cast<std::int32_t>(triangles_.size()); }
  std::int32_t PointCount() const override { return static_cast<std::int32_t>(points_.size()); }
  const std::vector<VecInt3D>& Triangles() const override { return triangles_; }
  const std::vector<Vec3D>& Points() const override { return points_; }
  virtual std::vector<VecInt3D>& Triangles() { return triangles_; }
  virtual std::vector<Vec3D>& Points() { return points_; }

  virtual void CopyFrom(const TriMeshSTL& mesh);
  // Gives the arrays these counts. True when one was rebuilt: points and their attributes only when their count
  // differs, triangles likewise.
  virtual bool Resize(std::int32_t triangles, std::int32_t points);
  virtual void Clear();

  // Three (u, v) pairs a triangle; empty when the mesh has none.
  std::vector<Vec2D> textureCoordinates;
  MeshProperties pointAttributes;
  MersenneTwister random{10001};  // for consumers that need repeatable randomness

 private:
  std::vector<VecInt3D> triangles_;
  std::vector<Vec3D> points_;
};

}  // namespace orlix

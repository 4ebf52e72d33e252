#include "fluids/meshes/TriMeshSTL.h"

namespace orlix {

void TriMeshSTL::CopyFrom(const TriMeshSTL& mesh) { *this = mesh; }

bool TriMeshSTL::Resize(std::int32_t triangles, std::int32_t points) {
  bool rebuilt = false;
  if (points != PointCount()) {
    points_.assign(static_cast<std::size_t>(points), {});
    pointAttributes.Clear();
    pointAttributes.Resize(static_cast<std::size_t>(points));
    rebuilt = true;
  }
  if (triangles != TriangleCount()) {
    triangles_.assign(static_cast<std::size_t>(triangles), {});
    textureCoordinates.clear();
    rebuilt = true;
  }
  return rebuilt;
}

void TriMeshSTL::Clear() {
  triangles_.clear();
  points_.clear();
  textureCoordinates.clear();
  pointAttributes.Clear();
}

}  // namespace orlix

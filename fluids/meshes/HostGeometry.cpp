#include "fluids/meshes/HostGeometry.h"

#include <algorithm>
#include <limits>

namespace orlix {

namespace {

std::int64_t TriangleCount(const PolygonObject& polygons) {
  return static_cast<std::int64_t>(polygons.polygons.size()) +
         std::count_if(polygons.polygons.begin(), polygons.polygons.end(),
                       [](const PolygonObject::Polygon& p) { return !p.IsTriangle(); });
}

template <class T>
void Write(T& stored, const T& fresh, bool& moved) {
  if (stored == fresh) return;
  stored = fresh;
  moved = true;
}

void TakeTextures(const PolygonObject& polygons, TriMeshSTL& mesh) {
  mesh.textureCoordinates.clear();
  if (polygons.textureCoordinates.size() != polygons.polygons.size()) return;
  for (std::size_t p = 0; p < polygons.polygons.size(); ++p) {
    const auto& uv = polygons.textureCoordinates[p];
    mesh.textureCoordinates.insert(mesh.textureCoordinates.end(), {uv[0], uv[1], uv[2]});
    if (!polygons.polygons[p].IsTriangle()) {
      mesh.textureCoordinates.insert(mesh.textureCoordinates.end(), {uv[0], uv[2], uv[3]});
    }
  }
}

}  // namespace

LMatrix SimulationMatrix(const LMatrix& hostMatrix, const Vec3D& simPerHost) {
  LMatrix m = hostMatrix;
  m.off = hostMatrix.off * simPerHost;
  return m;
}

GeometryChange ReadHostGeometry(const PolygonObject& polygons, const LMatrix& matrix, const Vec3D& simPerHost,
                                TriMeshSTL& mesh) {
  const std::int64_t points = static_cast<std::int64_t>(polygons.points.size()), triangles = TriangleCount(polygons);
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  if (points == 0 || triangles == 0 || points > kMost || triangles > kMost) return GeometryChange::Failed;
  const auto placed = [&](const Vec3D& p) { return (matrix * p) * simPerHost; };
  if (!std::all_of(polygons.points.begin(), polygons.points.end(),
                   [&](const Vec3D& p) { return IsFinite(placed(p)); })) {
    return GeometryChange::Failed;
  }
  bool moved = mesh.Resize(static_cast<std::int32_t>(triangles), static_cast<std::int32_t>(points));
  for (std::size_t i = 0; i < polygons.points.size(); ++i) {
    Write(mesh.Points()[i], placed(polygons.points[i]), moved);
  }
  std::size_t t = 0;
  for (const PolygonObject::Polygon& p : polygons.polygons) {
    Write(mesh.Triangles()[t++], {p.a, p.b, p.c}, moved);
    if (!p.IsTriangle()) Write(mesh.Triangles()[t++], {p.a, p.c, p.d}, moved);
  }
  TakeTextures(polygons, mesh);
  mesh.matrix = SimulationMatrix(matrix, simPerHost);
  return moved ? GeometryChange::Moved : GeometryChange::Same;
}

}  // namespace orlix

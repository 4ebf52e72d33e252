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

void ReadTextureCoordinates(const PolygonObject& polygons, bool mirrored, TriMeshSTL& mesh) {
  mesh.textureCoordinates.clear();
  if (polygons.textureCoordinates.size() != polygons.polygons.size()) return;
  mesh.textureCoordinates.reserve(3 * static_cast<std::size_t>(mesh.TriangleCount()));
  for (std::size_t p = 0; p < polygons.polygons.size(); ++p) {
    const auto& uv = polygons.textureCoordinates[p];
    const auto add = [&](int second, int third) {
      if (mirrored) std::swap(second, third);
      for (const int corner : {0, second, third}) mesh.textureCoordinates.push_back(uv[corner]);
    };
    add(1, 2);
    if (!polygons.polygons[p].IsTriangle()) add(2, 3);
  }
}

// A normal stands on tangents: it turns by the inverse of what they are multiplied with, transposed.
void ReadNormals(const PolygonObject& polygons, const LMatrix& matrix, const Vec3D& simPerHost, TriMeshSTL& mesh) {
  std::vector<Vec3D>& normals = mesh.pointAttributes.Column(kPointNormalId);
  const LMatrix inverse = LMatrix{{}, matrix.v1 * simPerHost, matrix.v2 * simPerHost, matrix.v3 * simPerHost}.Inverse();
  for (std::size_t p = 0; p < normals.size(); ++p) {
    const Vec3D& n = polygons.normals[p];
    normals[p] = Normalized(Vec3D(Dot(inverse.v1, n), Dot(inverse.v2, n), Dot(inverse.v3, n)));
  }
}

}  // namespace

LMatrix SimulationMatrix(const LMatrix& hostMatrix, const Vec3D& simPerHost) {
  LMatrix m = hostMatrix;
  m.off = hostMatrix.off * simPerHost;
  return m;
}

GeometryChange ReadHostGeometry(const PolygonObject& polygons, const LMatrix& matrix, const Vec3D& simPerHost,
                                TriMeshSTL& mesh, bool withNormals) {
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
  // A mirror would turn triangles inside out.
  const bool mirrored = matrix.Determinant() < 0;
  std::size_t t = 0;
  const auto write = [&](std::int32_t a, std::int32_t b, std::int32_t c) {
    Write(mesh.Triangles()[t++], mirrored ? VecInt3D(a, c, b) : VecInt3D(a, b, c), moved);
  };
  for (const PolygonObject::Polygon& p : polygons.polygons) {
    write(p.a, p.b, p.c);
    if (!p.IsTriangle()) write(p.a, p.c, p.d);
  }
  ReadTextureCoordinates(polygons, mirrored, mesh);
  if (withNormals && polygons.normals.size() == polygons.points.size()) {
    ReadNormals(polygons, matrix, simPerHost, mesh);
  }
  mesh.matrix = SimulationMatrix(matrix, simPerHost);
  return moved ? GeometryChange::Moved : GeometryChange::Same;
}

bool FindBox(const BaseObject& object, const Vec3D& simPerHost, Vec3D& min, Vec3D& max) {
  const PolygonObject* polygons = object.Polygons();
  if (!polygons || polygons->points.empty()) return false;
  const LMatrix matrix = object.GlobalMatrix();
  min = Vec3D(std::numeric_limits<double>::max()), max = Vec3D(std::numeric_limits<double>::lowest());
  for (const Vec3D& point : polygons->points) {
    const Vec3D p = (matrix * point) * simPerHost;
    min = Min(min, p), max = Max(max, p);
  }
  return IsFinite(min) && IsFinite(max);
}

}  // namespace orlix

// The mesh readers on any bytes. The first byte chooses the format; what is read must be usable.

#include <cstdlib>

#include "host/geometry/MeshReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orlix;
  if (size == 0) return 0;
  const auto format = static_cast<MeshFormat>(data[0] % 4);
  const Result<PolygonObject> mesh = ParseMesh({reinterpret_cast<const char*>(data) + 1, size - 1}, format, "fuzz");
  if (!mesh.ok()) return 0;
  const auto count = static_cast<std::int64_t>(mesh->points.size());
  for (const Vec3D& p : mesh->points) {
    if (!IsFinite(p)) std::abort();
  }
  if (!mesh->normals.empty() && mesh->normals.size() != mesh->points.size()) std::abort();
  for (const PolygonObject::Polygon& p : mesh->polygons) {
    for (const std::int32_t corner : {p.a, p.b, p.c, p.d}) {
      if (corner < 0 || corner >= count) std::abort();
    }
  }
  return 0;
}

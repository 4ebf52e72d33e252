#include "fluids/particle_emitters/EmissionForecast.h"

#include <algorithm>
#include <cmath>

#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

// By the divergence theorem; an open mesh has some volume, too.
MeshSize SizeOfMesh(const PolygonObject& mesh, const LMatrix& matrix, const Vec3D& simPerHost) {
  std::vector<Vec3D> points;
  Vec3D middle;
  for (const Vec3D& point : mesh.points) {
    points.push_back(matrix * point * simPerHost);
    middle += points.back() / static_cast<double>(mesh.points.size());
  }
  MeshSize size;
  const auto add = [&](std::int32_t i, std::int32_t j, std::int32_t k) {
    const Vec3D a = points[static_cast<std::size_t>(i)] - middle, b = points[static_cast<std::size_t>(j)] - middle,
                c = points[static_cast<std::size_t>(k)] - middle;
    size.volume += Dot(a, Cross(b, c)) / 6;
    size.area += Length(Cross(b - a, c - a)) / 2;
  };
  for (const PolygonObject::Polygon& polygon : mesh.polygons) {
    add(polygon.a, polygon.b, polygon.c);
    if (!polygon.IsTriangle()) add(polygon.a, polygon.c, polygon.d);
  }
  size.volume = std::abs(size.volume);
  return size;
}

}  // namespace

MeshSize SizeOfVolume(const iObject& node, int volumeId) {
  MeshSize sum;
  auto* volume = node.GetScene().RetrieveAs<iVolume>(node.handler.GetLink(volumeId), NODE_VOLUME, RETRIEVE_VOLUME);
  std::vector<VolumeBase*> members;
  if (volume) volume->AppendVolumes(members);
  for (const VolumeBase* member : members) {
    const BaseObject* object = member->handler.GetObjectLink(VolumeBase::kObjectId);
    if (!object || !object->Polygons()) continue;
    const MeshSize own = SizeOfMesh(*object->Polygons(), object->GlobalMatrix(), node.GetSimulationSpace().simPerHost);
    sum.volume += own.volume, sum.area += own.area;
  }
  return sum;
}

MemoryNeed MemoryOfParticles(const iObject& node, double count, int propertiesId) {
  const auto* group = node.GetScene().RetrieveAs<ParticleGroup>(node.handler.GetLink(kEmitterGroupId), NODE_PARTICLES);
  if (!group || !(count > 0)) return {};
  const std::int32_t kind = KindOrLiquid(node.handler.GetInt(kEmitterKindId));
  BaseParticleData data = RetrieveProperties(node.GetScene(), node.handler, propertiesId).data;
  data.flags = FlagOfKind(kind);
  data.SetVector(PP::OldPosition, {});
  const double bytes = std::ceil(count / kChunkRows) * static_cast<double>(ParticleList::BytesOfChunk(data));
  return {.kept = std::max(0.0, bytes - static_cast<double>(group->factory(kind).Bytes()))};
}

const ParticleEmissionSettings* SettingsOf(const iObject& node, int settingsId) {
  return node.GetScene().RetrieveAs<ParticleEmissionSettings>(node.handler.GetLink(settingsId), NODE_SETTINGS);
}

}  // namespace orlix

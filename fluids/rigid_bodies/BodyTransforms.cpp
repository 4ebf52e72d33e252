#include "fluids/rigid_bodies/BodyTransforms.h"

#include "fluids/volumes/VolumeMesh.h"

namespace orlix {

std::vector<BodyTransform> CollectBodyTransforms(const OrlixScene& scene) {
  std::vector<VolumeBase*> volumes;
  scene.ForEachNode(NODE_VOLUME, NODE_VOLUME, [&](iBase& node) {
    auto* volume = node.IsEnabled() ? dynamic_cast<iVolume*>(&node) : nullptr;
    if (volume) volume->AppendVolumes(volumes);
  });
  std::vector<BodyTransform> transforms;
  const GridSpace& space = scene.GetSimulationSpace();
  for (const VolumeBase* each : volumes) {
    const auto* volume = dynamic_cast<const VolumeMesh*>(each);
    if (!volume || !volume->IsObstacle() || !volume->Body()->HasBody()) continue;
    const RigidBody& body = *volume->Body();
    BodyTransform transform;
    transform.object = volume->LinkedObject();
    transform.volume = volume->handler.hostObject();
    if (!transform.object) continue;
    transform.matrix = body.MeshMatrix();
    transform.matrix.off = transform.matrix.off * space.hostPerSim;
    transform.velocity = body.state.velocity * space.hostPerSim;
    transform.spin = body.state.spin;
    transform.mass = volume->IsDynamicBody() ? 1 / body.InverseMass() : 0;
    transform.asleep = body.state.asleep != 0;
    transforms.push_back(transform);
  }
  return transforms;
}

}  // namespace orlix

#pragma once
// A box in whose volume particles are emitted into one group.

#include "fluids/particles/ParticleGroup.h"
#include "tests/support/TestScene.h"

namespace orlix::test {

class EmissionScene : public TestScene {
 public:
  // edge: of the box, in cells of 0.1 m.
  explicit EmissionScene(const std::string& emitterType, int edge = 10, int workers = 2)
      : TestScene(workers),
        box(Add("box", "Box")),
        volume(Add("volume", "Volume")),
        group(Add("particlegroup", "Group")),
        settings(Add("particlemesh_emission_setting", "Settings")),
        emitter(Add(emitterType, "Emitter")),
        isMesh(emitterType == "particlemeshemitter") {
    root->Set(1002, 0.1);
    box.Set(box.type().parameters[0].id, Vec3D(edge * 10.0));
    volume.Set(1003, LinkTo(box));
    emitter.Set(1000, LinkTo(group));
    emitter.Set(isMesh ? 1003 : 1005, LinkTo(volume));
    emitter.Set(isMesh ? 1004 : 1003, LinkTo(settings));
  }
  ParticleList& List(int kind = PK_Liquid) { return *NodeOf<ParticleGroup>(group)->list(kind); }
  std::vector<Vec3D> Positions(int kind = PK_Liquid) {
    std::vector<Vec3D> positions;
    for (int i = 0; i < List(kind).count(); ++i) positions.push_back(List(kind).Position(i));
    return positions;
  }
  int Count(int kind = PK_Liquid) { return List(kind).count(); }
  void SetProperties(const std::vector<const BaseObject*>& list) { emitter.Set(isMesh ? 1005 : 1004, ListOf(list)); }

  BaseObject &box, &volume, &group, &settings, &emitter;
  bool isMesh;
};

}  // namespace orlix::test

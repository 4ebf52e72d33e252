#pragma once
// What emitters of particles share: the group that they fill, the particle that all start as, and how what the workers
// made reaches the group.
//
//   ResolveLinks  handler.Resolve(node, links)
//   Prepare       handler.Begin(node)                     false: nothing is emitted in this sub-step
//   Process       each worker fills runs of its own, handler.Complete(run, ...)
//   Finish        handler.Append(runs)                    in the order of the runs, not of the workers

#include <span>

#include "fluids/constraints/Constraint.h"
#include "fluids/grids/CountedVector.h"
#include "fluids/particle_emitters/ParticleEmissionSettings.h"
#include "fluids/particles/KindChoices.h"
#include "fluids/particles/ParticleGroup.h"
#include "fluids/particles/PropertyList.h"

namespace orlix {

// What a piece of the work made. Columns after the positions are empty where the emitter doesn't fill them.
struct EmittedRun {
  CountedVector<Vec3D> positions;
  CountedVector<Vec3D> normals, textures;     // texture coordinates (u, v, 0)
  CountedVector<Vec3D> colours, vorticities;  // by Complete
};

// Where a shader is asked.
struct ShaderSpace {
  Shader::PlaceKind kind = Shader::PlaceKind::Space;
  bool metres = false;  // places in space are given as they are, and not in host units
};

class ParticleEmissionHandler {
 public:
  // Where a node's parameters stand.
  struct LinkIds {
    int settings, properties, colourShader;
  };

  void Resolve(iObject& node, const LinkIds& ids);
  void Release();
  // What is known to be missing, and at the run's end that nothing came.
  void Advise(const iObject& node) const;
  // why: what is known to have kept it.
  void Conclude(const iObject& node, const char* why = nullptr) const;
  // Whether the node emits in this sub-step. Prepares constraints and alignment.
  bool Begin(iObject& node);
  // Colours by place, or by texture coordinates, and what vorticity starts with. On a worker.
  void Complete(EmittedRun& run, const ShaderSpace& space, MersenneTwister& random) const;
  // Adds the particles of all runs, and empties them. The number added.
  std::int64_t Append(std::span<EmittedRun> runs);
  // In a Finish, whether the node emitted or not.
  void End(iObject& node);

  bool SettingsAreDirty() const { return settings && settings->IsDirty(); }
  bool HasVectors() const { return properties_.anyVector; }
  // The colours that a shader gives to positions (simulation space) or texture coordinates.
  static void Ask(const BaseObject& shader, const ShaderSpace& space, const GridSpace& lattice,
                  std::span<const Vec3D> places, std::span<Vec3D> colours);

  // Between Resolve and Release.
  ParticleGroup* group = nullptr;
  std::int32_t kind = 0;
  ParticleEmissionSettings* settings = nullptr;
  std::vector<Constraint*> constraints;
  double weight = 1;  // the duration's, from Begin on

 private:
  ParticleList& List() const { return *group->list(kind); }

  GivenProperties properties_;  // what all particles start as
  bool linked_ = false;         // group and settings are there
  bool played_ = false;         // a cache filled the group in its place
  std::int64_t emitted_ = 0;    // in all, for Conclude
  const BaseObject* colourShader_ = nullptr;
  OrlixScene* scene_ = nullptr;
};

// The rows of a group and a kind, which both emitters have under the same numbers.
inline constexpr int kEmitterGroupId = 1000, kEmitterKindId = 1001;
constexpr Parameter EmitterKindParameter() {
  return ChoiceParameter(kEmitterKindId, "kind", PK_Liquid, kParticleKindChoices, "Kind of the particles");
}

// One generator for each piece of the work, so that the draws don't depend on the number of workers.
MersenneTwister RandomOfPiece(std::uint32_t seed, std::uint64_t piece);

}  // namespace orlix

#pragma once
// Fills a volume, or a band about its surface, with particles on a jittered lattice, and refuses places that are too
// close to a particle that is there: it may run in each sub-step and tops up what left.
//
// What was there is what the group held before the sub-step's emission. Each z layer of the volume has its own random
// numbers and its own run of particles, so that the result doesn't depend on the number of workers.

#include <atomic>

#include "fluids/particle_emitters/LatticeFill.h"
#include "fluids/particle_emitters/ParticleEmissionHandler.h"
#include "fluids/particle_emitters/VoxelNeighbours.h"
#include "fluids/volumes/ObjectVolume.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

class ChannelBase_Vector;

class ObjectParticleGridEmitter final : public ObjectVolume {
 public:
  ObjectParticleGridEmitter(BaseList2D* object, OrlixScene& owner);
  static constexpr int kSettingsId = 1003, kPropertiesId = 1004, kVolumeId = 1005, kSolversId = 1006, kFillId = 1007,
                       kInnerBandId = 1013, kOuterBandId = 1014, kDeepLimitId = 1015, kDeepSubdivisionId = 1016,
                       kShallowSubdivisionId = 1017, kColourShaderId = 1018, kSeparationId = 1019;
  static const TypeInfo& Type();

  std::int32_t GetNodeBaseType() const override { return NODE_EMITTER; }
  std::int32_t GetNodeSubType() const override { return 7; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_PARTICLE); }
  // By the volume, when it has a level set and the duration is active.
  void ExtendBounds(Vec3D& min, Vec3D& max) override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void Conclude() override;
  void ReleaseLinks() override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override;
  void CheckDirty() override;
  void Prepare(iBase* caller = nullptr) override;
  void Setup() override;
  void Process(ProcessData& data) override;
  void Finish() override;

 private:
  // A volume to be filled, with the particles about it.
  struct Target {
    const VolumeBase* volume;
    LatticeFill fill;
    std::unique_ptr<ParticleLines> lines;
    VecInt3D begin, end;               // voxels that may emit: none at the grid's rim, none beyond closed walls
    CountedVector<std::int32_t> held;  // by each voxel; none where the group was empty
    double share;                      // of what a voxel lacks that it emits
  };
  struct Layer {
    const Target* target;
    std::int32_t k;
  };
  // A worker's place to work in.
  struct Scratch {
    std::vector<double> distances;  // of the voxels of a row
    VoxelNeighbours near;
    std::vector<Vec3D> places;  // of a voxel
  };

  LatticeFill FillOf(const VolumeBase& member) const;
  void FindWalls();
  void KeepWithinWalls(Target& target);
  void TellOfWalls();
  void AdviseSubdivisions() const;
  void FillLayer(const Layer& layer, EmittedRun& run, MersenneTwister& random, std::int32_t worker);
  void TellOfObstacles();
  std::int32_t Most(const LatticeFill& fill, double d) const;
  void CountHeld(Target& target) const;
  void FillVoxel(const Target& target, const VecInt3D& voxel, double d, std::span<const Vec3D> near, EmittedRun& run,
                 MersenneTwister& random, std::int32_t worker);
  bool InContainers(const Vec3D& place) const;

  ParticleEmissionHandler handler_;
  std::vector<const ChannelBase_Vector*> containers_;  // velocities of the solvers that limit the emission
  bool limitedBySolvers_ = false;
  bool fill_ = true;
  double innerBand_ = 1, outerBand_ = 0, deepLimit_ = 0, separation_ = 1;
  std::int32_t deepSubdivision_ = 1, shallowSubdivision_ = 1;

  // Closed walls of the liquids that carry the group, simulation space: what was beyond would be moved onto them.
  Vec3D wallsMin_, wallsMax_;
  std::string walls_;  // whose; empty without any
  double voxelsBeyond_ = 0, voxelsInBand_ = 0;
  bool lookedForWalls_ = false, lookedForObstacles_ = false;

  std::vector<VolumeBase*> members_;
  std::vector<Target> targets_;
  std::vector<Layer> layers_;
  std::vector<EmittedRun> runs_;  // of each layer
  std::atomic<std::size_t> nextLayer_{0};
  std::vector<Scratch> scratch_;
};

}  // namespace orlix

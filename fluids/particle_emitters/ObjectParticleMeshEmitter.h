#pragma once
// Scatters particles over the triangles of a volume's mesh. Every triangle is equally likely, whatever its area, and a
// refused place isn't tried again: so many attempts a step, at most as many particles.
//
// Attempts are made in blocks, each with its own random numbers and its own run of particles, so that the result
// doesn't depend on the number of workers.

#include <atomic>

#include "fluids/particle_emitters/ParticleEmissionHandler.h"
#include "fluids/volumes/VolumeMesh.h"

namespace orlix {

class ObjectParticleMeshEmitter final : public iObject {
 public:
  ObjectParticleMeshEmitter(BaseList2D* object, OrlixScene& owner);
  static constexpr int kVolumeId = 1003, kSettingsId = 1004, kPropertiesId = 1005, kSampleInSpaceId = 1010,
                       kSampleLocalId = 1011, kUvChannelId = 1012, kWriteNormalId = 1013, kWriteUvId = 1014,
                       kColourShaderId = 1015, kDensityShaderId = 1016, kDensityThresholdId = 1017,
                       kInvertCurvatureId = 1020, kCurvatureLimitId = 1021, kMinimumDistanceId = 1022;
  static const TypeInfo& Type();

  std::int32_t GetNodeBaseType() const override { return NODE_EMITTER; }
  std::int32_t GetNodeSubType() const override { return 6; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_PARTICLE); }
  bool IsIterated() const override { return true; }
  // By its volume.
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
  void ResetSimulation() override { owed_ = 0; }
  void VisitState(StateVisitor& visitor) override { visitor.Visit("owed", owed_); }

 private:
  // A place on the mesh.
  struct Attempt {
    std::int32_t triangle;
    Vec3D weights;  // of its corners
    Vec3D place;
    Vec3D texture;  // (u, v, 0)
  };
  // A worker's place to work in.
  struct Scratch {
    std::vector<Attempt> attempts;
    std::vector<Vec3D> places, colours;  // of the mask
  };

  void AdviseOnMesh() const;
  bool HasTexture() const { return uvChannel_ >= 1 && !volume_->Mesh().textureCoordinates.empty(); }
  std::int64_t Attempts();
  ShaderSpace ShaderSpaceNow() const {
    return {sampleInSpace_ ? Shader::PlaceKind::Space : Shader::PlaceKind::Texture, sampleLocal_};
  }
  void Draw(std::int64_t count, MersenneTwister& random, std::int32_t worker);
  bool Passes(const Attempt& attempt, std::int32_t worker);
  void KeepByMask(std::int32_t worker);
  void Write(EmittedRun& run, std::int32_t worker) const;

  ParticleEmissionHandler handler_;
  VolumeMesh* volume_ = nullptr;
  const BaseObject* densityShader_ = nullptr;
  bool sampleInSpace_ = true, sampleLocal_ = false, writeNormal_ = false, writeTexture_ = false;
  bool invertCurvature_ = false;
  std::int32_t uvChannel_ = 0;
  double densityThreshold_ = 0, curvatureLimit_ = 0, minimumDistance_ = 0;

  std::int64_t attempts_ = 0;
  double owed_ = 0;                                 // the part of a particle that a sub-step left
  bool slow_ = false, tried_ = false;               // a sub-step came to less than one; to more
  const std::vector<double>* curvature_ = nullptr;  // of the mesh's points; null without a test
  std::vector<EmittedRun> runs_;                    // of each block
  std::atomic<std::size_t> nextBlock_{0};
  std::vector<Scratch> scratch_;
};

}  // namespace orlix

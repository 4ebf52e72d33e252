#pragma once
// What a particle sees of the surface around it: the normal, how much the surface bends, and how flat the particles
// around lie. Particles whose density is outside of two bounds count as inner ones and get none of it.
//
//   raw normal    the sum over neighbours of f(d / h) (x - xj), which points to where fewer particles are
//   curvature     by length: that of the raw normal; by spread: how far the neighbours' normals differ

#include "fluids/particle_operators/ParticleOperator.h"
#include "fluids/particle_operators/SheetAnisotropy.h"

namespace orlix {

class PSurface_Properties final : public ParticleOperator {
 public:
  static constexpr int kGroupId = 1000, kNormalRadiusId = 1004, kMinimumDensityId = 1005, kMaximumDensityId = 1006,
                       kWriteNormalId = 1007, kCurvatureModeId = 1008, kWriteAnisotropyId = 1009, kKindId = 1010,
                       kNormalKernelId = 1011, kCurvatureRadiusId = 1012, kAnisotropyRadiusId = 1013,
                       kCommonRadiusId = 1014, kCurvatureScaleId = 1015;
  enum class CurvatureMode { None, Length, SpreadSum, SpreadMean };
  enum class NormalKernel { Smooth, Spiky, Steep };

  PSurface_Properties(BaseList2D* object, OrlixScene& owner) : ParticleOperator(object, owner, kStageOperators, 10) {}
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 104; }
  bool EvaluatesOnUpdate() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override { WarnWithoutKind(kGroupId, kind_); }
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;

 protected:
  std::vector<ParticleGroup*> WrittenGroups() const override { return {}; }  // neither positions nor velocities

 private:
  bool WantsNormals() const { return writeNormal_ || curvatureMode_ != CurvatureMode::None; }
  bool Spreads() const { return curvatureMode_ >= CurvatureMode::SpreadSum; }
  void Tag(ParticleList& list);
  void FindNormals(const ParticleList& list, const ParticleKdTree& tree);
  void FindInner(const ParticleList& list);
  void FinishNormals();
  void SpreadNormals(const ParticleKdTree& tree);
  void FindAnisotropies(const ParticleList& list, const ParticleKdTree& tree);
  void Write(ParticleList& list);

  std::int32_t kind_ = PK_Liquid;
  CurvatureMode curvatureMode_ = CurvatureMode::Length;
  NormalKernel normalKernel_ = NormalKernel::Smooth;
  bool writeNormal_ = true, writeAnisotropy_ = false;
  double minimumDensity_ = 0, maximumDensity_ = 0;
  double normalRadius_ = 0, curvatureRadius_ = 0, anisotropyRadius_ = 0;  // m
  double curvatureScale_ = 1000;

  ParticleGroup* group_ = nullptr;  // between ResolveLinks and ReleaseLinks

  // Of each particle, in a pass.
  enum Part : std::uint8_t { Excluded, Inner, Surface };
  std::vector<Part> parts_;
  std::vector<Vec3D> normals_;
  std::vector<double> curvatures_;
  std::vector<SheetAnisotropy> anisotropies_;
};

}  // namespace orlix

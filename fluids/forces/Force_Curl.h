#pragma once
// A field of swirls from constraints: the curl of three potentials, each the chain of constraints at places far apart
// (Bridson, Hourihan, Nordenstam 2007). The curl has no divergence; its direction alone is used, so the force has some.

#include "fluids/forces/ConstrainedForce.h"

namespace orlix {

class Force_Curl final : public ConstrainedForce {
 public:
  // A sample of one potential at a neighbour of the point, and the component of the curl that it counts for.
  struct Tap {
    int potential;  // 0 A, 1 B, 2 C
    int axis;       // on which the neighbour lies
    int side;       // 1 above, -1 below
    int component;  // of the curl
    double sign;
  };
  static constexpr int kTaps = 12;

  // Links and clones, by their owner's name.
  struct CurlForceData : iPortData {
    std::vector<std::unique_ptr<Constraint>> clones;
    std::vector<Constraint*> chain;
  };

  using ConstrainedForce::ConstrainedForce;
  static constexpr int kStrengthId = 1000, kForceDurationId = 1001, kStepId = 1003;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 36; }
  void GetRetrieveTypes(std::uint32_t& mask) const override {
    mask |= RetrieveBit(RETRIEVE_GRID) | RetrieveBit(RETRIEVE_PARTICLE);
  }
  bool ReadParameters() override;
  void Advise() override;
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ForceRow& row) override;
  void PrepareParticles(iBase* caller) override;
  void ProcessParticles(const ForceParticles& run) override;
  void Finish() override;

 protected:
  Duration* FindDuration() const override { return DurationOf(kForceDurationId); }

 private:
  // The clones of the enabled constraints, prepared. False without one.
  bool CloneChain();
  Vec3D ShiftOf(const Tap& tap) const;
  // The curl at a place in simulation space.
  Vec3D Field(const Vec3D& place, std::int32_t threadIndex) const;
  // The curl at the cells of a row, into three rows of this worker.
  void FieldRow(const ForceRow& row, double* x, double* y, double* z);

  CurlForceData data_;
  RowWeights potentials_;
  std::array<GridSpace, kTaps> shifted_;  // the velocity's lattice, moved to each tap's places
  std::vector<double> field_;             // three rows a worker
  double strength_ = 0, step_ = 0, amount_ = 0;
  Vec3D offsets_;
};

}  // namespace orlix

#pragma once
// What all forces share: a duration that weighs the sub-step, and constraints that weigh the places.

#include "fluids/constraints/RowWeights.h"
#include "fluids/dynamics/Force.h"
#include "fluids/helpers/Duration.h"

namespace orlix {

class ConstrainedForce : public Force {
 public:
  using Force::Force;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Finish() override;

 protected:
  // The duration that weighs this force; null without one.
  virtual Duration* FindDuration() const = 0;
  // The one of the force's own link, or else of the link that all nodes have.
  Duration* DurationOf(std::int32_t linkId) const;
  // That of the emission settings of a link; without settings the one of the second link, as DurationOf.
  Duration* DurationOfSettings(std::int32_t settingsId, std::int32_t linkId) const;

  // How a Prepare begins: false, and the force is idle, when there is no velocity or the duration says no.
  bool BeginPrepare();
  // How it ends: amounts at a cell start from start.
  void EndPrepare(double start);
  // The same for a pass over particles.
  bool BeginParticles();
  void EndParticles();
  // What the constraints leave of weight x start for each particle of a run.
  const double* Amounts(const ForceParticles& run, double start);
  // The cells of the velocity.
  const GridSpace& Lattice() const;
  // What the constraints leave at the cells of a row, standing at its cell 0.
  const double* Amounts(const ForceRow& row) { return weights_.Of(row, this); }

  double strengthFactor_ = 1;
  std::vector<Constraint*> constraints_;
  Duration* duration_ = nullptr;

 private:
  bool TakeDuration();

  RowWeights weights_;
  std::vector<double> amounts_;  // a run a worker
  std::vector<std::uint8_t> open_;
};

}  // namespace orlix

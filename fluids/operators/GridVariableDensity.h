#pragma once
// Writes the density of each cell into a channel that the projection reads: hot gas is light, smoke is heavy.

#include "fluids/channels/LatticeRows.h"
#include "fluids/operators/GridOperator.h"

namespace orlix {

// r = air 294 / (T + 294) (density k + 1), k = (gas - air) / air; at least a twentieth of the air's. kg/m^3, and T in
// kelvins above 294 K.
struct DensityTerms {
  double air = 1.184, gas = 8.314472;
  double At(double density, double temperature) const {
    const double r = air * 294.0 / (temperature + 294.0) * (density * ((gas - air) / air) + 1.0), least = air * 0.05;
    return r < least ? least : r;
  }
};

// Pointers stand at cell 0. out takes the densities of the cells; those of weight 0 are 0.
void DensityRow(const DensityTerms& terms, const double* density, const double* temperature, const double* weights,
                std::int32_t begin, std::int32_t end, double* out);

// Adds half of each value of a row of cells to the two faces of its cell, in x, y and z; pointers stand at cell 0 of
// the row, and of the next row and layer. Null ones are left out.
struct FaceRows {
  double *x = nullptr, *y = nullptr, *nextY = nullptr, *z = nullptr, *nextZ = nullptr;
};
void AddToFaces(const double* values, std::int32_t begin, std::int32_t end, const FaceRows& faces);

class GridVariableDensity final : public GridOperator {
 public:
  struct GridVariableDensityPortData : iPortData {
    ChannelBase_Scalar* scalarTarget = nullptr;
    ChannelBase_Vector* vectorTarget = nullptr;
    ChannelBase_Scalar* density = nullptr;
    ChannelBase_Scalar* temperature = nullptr;
  };

  GridVariableDensity(BaseList2D* object, OrlixScene& owner) : GridOperator(object, owner, kStageOperators, 20) {}
  static constexpr int kTargetId = 1000, kDensityId = 1001, kTemperatureId = 1002, kAirDensityId = 1004,
                       kGasDensityId = 1005;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 61; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void ReleaseLinks() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;

 protected:
  std::vector<iBase*> WrittenChannels() const override { return {ports_.scalarTarget, ports_.vectorTarget}; }

 private:
  const ScalarGrid* ChooseLattice() const;
  void ProcessStaggered(const ProcessData& data);

  GridVariableDensityPortData ports_;
  const ScalarGrid* lattice_ = nullptr;  // of the cells that are walked
  bool staggered_ = false;               // the target stands on faces
  LatticeRows densityRows_, temperatureRows_;
  DensityTerms terms_;
};

}  // namespace orlix

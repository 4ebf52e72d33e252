#pragma once
// Burns: makes flames, heat, smoke and the expansion that drives an explosion. With a fuel channel the fuel burns;
// without one the flames of the fire channel burn down along curves.

#include <atomic>

#include "fluids/operators/GridOperator.h"

namespace orlix {

enum class BurnModel : std::int32_t { FixedRate = 0, MixtureLimited = 1 };

// With fuel F, temperature T, smoke S, where T is at least the ignition temperature and F above 0:
//
//   fixed rate        b = step, or what is left of F;  F -= b;  S += b smoke
//   mixture limited   b = step min(max(3.23 - (S + F), 0), ratio F);  F -= b / ratio;  S += (1 / ratio + 1) b smoke
//   both              fire = 1;  T += b heat;  expansion += b e
struct FuelTerms {
  BurnModel model = BurnModel::FixedRate;
  double ignition = 0;
  double burnStep = 0;       // rate x dt
  double fuelRatio = 0.19;   // of the mixture
  double smokeStep = 0;      // smoke rate x dt
  double heat = 0;           // K for each unit that burns
  double expansionStep = 0;  // 1/s for each unit that burns
};

// Without fuel, where the fire value f lies above the threshold and not above 1, with g = 1 - (f - threshold) / span:
//
//   T = temperatureCurve(g) range + base;  S += smokeCurve(g) smokeRate;  expansion += e
struct FlameBurnTerms {
  double threshold = 0.99, span = 0.01;
  const SplineData* temperatureCurve = nullptr;
  const SplineData* smokeCurve = nullptr;
  double range = 0, base = 0;  // K
  double smokeRate = 0;
  bool makesSmoke = false;
  double expansionStep = 0;
};

// Pointers stand at cell 0; fuel, smoke and expansion may be null. A weight of 0 leaves the cell.
struct BurnRow {
  std::int32_t begin = 0, end = 0;
  double* temperature = nullptr;
  double* fire = nullptr;
  double* fuel = nullptr;
  double* smoke = nullptr;
  double* expansion = nullptr;
  const double* weights = nullptr;
};

void BurnFuel(const FuelTerms& terms, const BurnRow& row);
void BurnFlames(const FlameBurnTerms& terms, const BurnRow& row);

class GridCombustion final : public GridOperator {
 public:
  GridCombustion(BaseList2D* object, OrlixScene& owner) : GridOperator(object, owner, kStageOperators, 20) {}
  static constexpr int kTemperatureId = 1000, kFireId = 1001, kFuelId = 1002, kSmokeId = 1003, kSolverId = 12,
                       kBurnModelId = 1004, kBurnRateId = 2, kFuelRatioId = 3, kBaseTemperatureId = 4, kHeatId = 5,
                       kTemperatureCurveId = 6, kSmokeRateId = 7, kSmokeCurveId = 8, kExpansionId = 9;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 58; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void Conclude() override;
  void ReleaseLinks() override;
  bool ComesBefore(const iBase& other) const override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;

 protected:
  std::vector<iBase*> WrittenChannels() const override { return {temperature_, fire_, fuel_, smoke_, divergence_}; }

 private:
  // An expansion for a divergence source on a lattice of its own.
  struct Expansion {
    VecInt3D cell;
    double value;
  };
  bool BindGrids();
  bool PrepareFuel();
  bool PrepareFlames();
  bool Burns(const BurnRow& row) const;
  void Burn(const BurnRow& row);
  void SpreadExpansions();

  ChannelBase_Scalar* temperature_ = nullptr;
  ChannelBase_Scalar* fire_ = nullptr;
  ChannelBase_Scalar* fuel_ = nullptr;
  ChannelBase_Scalar* smoke_ = nullptr;
  ChannelBase_Scalar* divergence_ = nullptr;
  const ScalarGrid* lattice_ = nullptr;  // of the cells that are walked
  ScalarGrid *fuelGrid_ = nullptr, *fireGrid_ = nullptr, *temperatureGrid_ = nullptr, *smokeGrid_ = nullptr,
             *divergenceGrid_ = nullptr;
  bool spreads_ = false;                            // the divergence source has a lattice of its own
  std::vector<std::vector<Expansion>> expansions_;  // one list a layer: spread in layer order
  double burnRate_ = 0, smokeRate_ = 0, expansion_ = 0;
  FuelTerms fuelTerms_;
  FlameBurnTerms flameTerms_;
  // Since the run began.
  bool acted_ = false;
  std::atomic<bool> burned_{false};
};

}  // namespace orlix

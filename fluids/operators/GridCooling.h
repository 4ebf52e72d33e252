#pragma once
// Cools a temperature channel, and lets the flames of a fire channel age.

#include "fluids/operators/GridOperator.h"

namespace orlix {

enum class CoolingModel : std::int32_t { FourthPower = 0, Exponential = 1, Linear = 2 };

// T' = T - ((T - min) / range)^4 cool amount    radiation: Nguyen, Fedkiw, Jensen 2002; no time step enters
// T' = T (1 - amount rate dt)
// T' = T - amount cool dt
struct CoolingTerms {
  CoolingModel model = CoolingModel::FourthPower;
  double min = 0;
  double inverseRange = 0;
  double cool = 0;    // range x rate
  double rateDt = 0;  // of the exponential model
  double dt = 0;
};

// Flames above the threshold age by hotStep to it, the others by coldStep to 0.
struct FlameTerms {
  double threshold = 0.9, hotStep = 0, coldStep = 0;
};

// Pointers stand at cell 0; fire may be null. weights: how strongly a cell's temperature cools, 0 not at all. Where
// flames are above the threshold the temperature stays.
struct CoolingRow {
  std::int32_t begin = 0, end = 0;
  double* temperature = nullptr;
  double* fire = nullptr;
  const double* weights = nullptr;
};

void CoolRow(const CoolingTerms& cooling, const FlameTerms& flames, const CoolingRow& row);

class GridCooling final : public GridOperator {
 public:
  GridCooling(BaseList2D* object, OrlixScene& owner) : GridOperator(object, owner, kStageChannelsOperators, 20) {}
  static constexpr int kTemperatureId = 1000, kFireId = 1001, kRateId = 1002, kModelId = 1004;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 57; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void ReleaseLinks() override;
  bool ComesBefore(const iBase& other) const override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;

 protected:
  std::vector<iBase*> WrittenChannels() const override { return {temperature_, fire_}; }

 private:
  ChannelBase_Scalar* temperature_ = nullptr;
  ChannelBase_Scalar* fire_ = nullptr;
  ScalarGrid* fireGrid_ = nullptr;
  double rate_ = 0;
  CoolingTerms cooling_;
  FlameTerms flames_;
};

}  // namespace orlix

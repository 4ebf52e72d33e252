#include "run/DefaultLook.h"

#include <algorithm>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/scene/RootObject.h"
#include "fluids/volume_renderer/GasPresets.h"
#include "fluids/volume_renderer/GasSettings.h"

namespace orlix {

namespace {

constexpr double kFlameRange = 1000;  // a temperature channel that reaches so far is one of fire, not of warm air

BaseObject* FirstOf(const BaseDocument& document, const char* type) {
  const TypeInfo* info = document.types().FindName(type);
  const std::vector<BaseObject*> found = info ? document.ObjectsOfType(info->id) : std::vector<BaseObject*>();
  return found.empty() ? nullptr : found.front();
}

double RangeOf(const BaseObject* channel) { return channel ? channel->GetDouble(ChannelBase_Scalar::kValueMaxId) : 0; }

// Along the mean side of the container; 0 when that isn't known.
double CellsASide(const BaseDocument& document) {
  const BaseObject* solver = FirstOf(document, "fluid");
  const std::vector<BaseObject*> roots = document.ObjectsOfType(kRootTypeId);
  if (!solver || roots.empty()) return 0;
  const BaseObject& root = *roots.front();
  const Vec3D size = solver->GetVector(FluidSolver::kContainerId);
  const double metres = root.GetDouble(RootSettings::kScaleMetresId) / root.GetDouble(RootSettings::kScaleUnitsId);
  return (size.x + size.y + size.z) / 3 * metres / root.GetDouble(RootSettings::kVoxelSizeId);
}

}  // namespace

BaseObject* AddDefaultLook(BaseDocument& document) {
  if (!document.ObjectsOfType(kGasMaterialId).empty()) return nullptr;
  const BaseObject* smoke = FirstOf(document, "channel_scalar");
  const BaseObject* temperature = FirstOf(document, "channel_temp");
  const bool burns = RangeOf(temperature) >= kFlameRange && FirstOf(document, "channel_fire");
  if (!smoke && !burns) return nullptr;
  const GasPreset* preset = FindGasPreset(!burns ? "thick smoke" : smoke ? "fireball" : "fire");
  BaseObject& look = document.AddObject(GasSettings::Type(), nullptr);
  look.name = "Default look";
  preset->apply(look);
  if (smoke) look.Set(GasSettings::kDensityId, LinkValue{smoke->creationNumber()});
  if (burns) look.Set(GasSettings::kTemperatureId, LinkValue{temperature->creationNumber()});
  // Hundreds of cells need no step a cell.
  if (const double cells = CellsASide(document); cells > 0) {
    look.Set(GasSettings::kFineStepId, std::clamp(cells / 100, 0.75, 2.0));
  }
  FitDefaultLook(look, 0);
  return &look;
}

void FitDefaultLook(BaseObject& look, double density) {
  // Channels are seldom filled to more than a tenth of their range.
  const double range = RangeOf(look.GetLink(GasSettings::kDensityId));
  const double usual = density > 0 ? density : range > 0 ? std::max(0.1 * range, 1e-6) : 1;
  look.Set(GasSettings::kUnitDensityId, usual);
}

}  // namespace orlix

#include "fluids/volume_renderer/SceneSampler.h"

#include <algorithm>

namespace orlix {

double MapToUnit(double x, double high, double low) {
  if (!(x > low)) return 0;
  if (x >= high || high == low) return 1;
  return (x - low) / (high - low);
}

void SampledColours::Build(const BaseObject& object, int gradientRow, double factor, const Vec3D& white, int system) {
  gradient = object.GetGradient(gradientRow) ? *object.GetGradient(gradientRow) : Gradient();
  blackBody = {};
  if (!hot) return;
  blackBody.lowest = kColdest, blackBody.highest = kHottest, blackBody.step = 5;
  constexpr double kLeastWhite = 0.001;
  blackBody.Build(factor, Max(white, Vec3D(kLeastWhite)), system);
}

Vec3D SampledColours::Of(double value, double temperature) const {
  Vec3D colour = gradient.ColourAt(std::clamp(value, 0.0, 1.0));
  if (hot) colour = colour * blackBody.Sample(temperature + kColdest);
  return Min(Max(colour, Vec3D(least)), Vec3D(most));
}

void SceneSampler::Colours(const BaseObject& object, PlaceKind kind, std::span<const Vec3D> places,
                           std::span<Vec3D> colours) const {
  for (std::size_t n = 0; n < places.size(); ++n) {
    const Vec3D place = places[n];
    colours[n] = kind == PlaceKind::Space ? ColourAt(object, {place, {}, {}, false}) : Vec3D(1.0);
  }
}

StartedSamplers::StartedSamplers(const BaseDocument& document, const OrlixHook& hook, WorkerPool& pool) {
  document.ForEachObject([&](const BaseObject& object) {
    auto* sampler = dynamic_cast<SceneSampler*>(object.data());
    if (!sampler) return;
    samplers_.push_back(sampler);
    sampler->Start(object, hook, pool);
  });
}

StartedSamplers::~StartedSamplers() {
  for (SceneSampler* sampler : samplers_) sampler->End();
}

}  // namespace orlix

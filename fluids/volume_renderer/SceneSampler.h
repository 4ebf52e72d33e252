#pragma once
// Shaders that look the engine's data up: a picture starts them with the nodes of its scenes, and ends them. In between
// all render threads ask them; they change nothing. One that has nothing to look up answers white, which leaves what it
// multiplies as it is.

#include <memory>
#include <vector>

#include "fluids/scene/OrlixHook.h"
#include "fluids/volume_renderer/BlackBodyTable.h"
#include "host/objects/BaseDocument.h"
#include "host/render/ShaderSlot.h"

namespace orlix {

// (x - low) / (high - low) from 0 to 1; 1 when the two are equal, 0 when x isn't above low.
double MapToUnit(double x, double high, double low);

enum class SampledColour { Gradient, BlackBody };
inline constexpr Choice kSampledColours[] = {{SampledColour::Gradient, "gradient", "The gradient's colours"},
                                             {SampledColour::BlackBody, "black_body", "Times those of a hot body"}};

// From a value of 0 to 1 and a temperature to the colour that a sampler gives.
struct SampledColours {
  Gradient gradient;
  BlackBodyTable blackBody;
  bool hot = false;
  double least = 0, most = 1;  // of each component

  static constexpr double kColdest = 297, kHottest = 5000;  // K
  void Build(const BaseObject& object, int gradientRow, double factor, const Vec3D& white, int system);
  Vec3D Of(double value, double temperature) const;
};

class SceneSampler : public ObjectData, public Shader, public SurfaceShader {
 public:
  const Shader* AsShader() const final { return this; }
  // Textures have no place: they get white.
  void Colours(const BaseObject& object, PlaceKind kind, std::span<const Vec3D> places,
               std::span<Vec3D> colours) const final;
  virtual void Start(const BaseObject& object, const OrlixHook& hook, WorkerPool& pool) = 0;
  virtual void End() = 0;
};

// The samplers of a document, started, and ended when this goes. Throws std::bad_alloc.
class StartedSamplers {
 public:
  StartedSamplers(const BaseDocument& document, const OrlixHook& hook, WorkerPool& pool);
  ~StartedSamplers();
  StartedSamplers(const StartedSamplers&) = delete;
  StartedSamplers& operator=(const StartedSamplers&) = delete;

 private:
  std::vector<SceneSampler*> samplers_;
};

extern const TypeInfo kGridSamplerType, kParticleSamplerType;

}  // namespace orlix

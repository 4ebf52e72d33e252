// The particle sampler (C4D_ParticleSampler_Shader): particles near a point of a surface, or a property of theirs, as a
// colour.

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>

#include "fluids/particles/ParticleGroup.h"
#include "fluids/particles/PropertyList.h"
#include "fluids/particles/SeenVelocity.h"
#include "fluids/volume_renderer/SceneSampler.h"

namespace orlix {

namespace {

constexpr int kGroup = 3000, kGradient = 3001, kProperty = 3002, kInputLow = 3003, kInputHigh = 3004, kOutputLow = 3005,
              kOutputHigh = 3006, kColourMode = 3008, kPreview = 3009, kSystem = 3010, kWhite = 3011, kFactor = 3012,
              kPreviewScale = 3013, kRadius = 3014, kWeighted = 3015, kMostNeighbours = 3017, kVectorIsColour = 3018,
              kFewestNeighbours = 3019, kOffset = 3020, kOffsetShader = 3021, kTexture = 3022;
constexpr GradientKnot kBlackToWhite[] = {{0, {0, 0, 0}}, {1, {1, 1, 1}}};

constexpr Parameter kParameters[] = {
    LinkParameter(kGroup, "group", kLinkParticles, "The particle group"),
    GradientParameter(kGradient, "gradient", kBlackToWhite, "Colour by value"),
    LinkParameter(kProperty, "property", kLinkProperty, "A property of the particles; without one, how dense they lie"),
    FloatParameter(kInputLow, "input_low", 0.0, "", "Value that takes the gradient's start"),
    FloatParameter(kInputHigh, "input_high", 1.0, "", "Value that takes its end"),
    FloatParameter(kOutputLow, "output_low", 0.0, "", "Least of a component of the colour"),
    FloatParameter(kOutputHigh, "output_high", 1.0, "", "Most of a component"),
    FloatParameter(3007, "shift", 0.0, "s", "Kept; no step reads it").Hidden().Unread(),
    ChoiceParameter(kColourMode, "colour_by", SampledColour::Gradient, kSampledColours, "Where colours come from"),
    ButtonParameter(kPreview, "preview_black_body", "Draws the colours of hot bodies"),
    IntParameter(kSystem, "colour_system", 4, "", "Primaries of black-body colours: 0 NTSC to 5 Rec. 709")
        .Between(0, 5)
        .ShownWhen(kColourMode, Relation::Is, 1),
    VectorParameter(kWhite, "white_balance", {1, 1, 1}, "", "Factors of X, Y, Z")
        .Min(0)
        .ShownWhen(kColourMode, Relation::Is, 1),
    FloatParameter(kFactor, "temperature_factor", 1.0, "", "Factor of the temperature in the table")
        .Min(0)
        .ShownWhen(kColourMode, Relation::Is, 1),
    FloatParameter(kPreviewScale, "preview_scale", 1.0, "", "Of an interface's preview").Hidden().Unread(),
    FloatParameter(kRadius, "radius", 1.0, "cells", "How far particles are looked for").Above(0),
    BoolParameter(kWeighted, "weighted", true, "Near particles count more"),
    IntParameter(3016, "mode", 0, "", "Kept; no step reads it").Hidden().Unread(),
    IntParameter(kMostNeighbours, "most_neighbours", 60, "", "Most particles that count").Between(1, 1000),
    BoolParameter(kVectorIsColour, "vector_is_colour", false, "A vector is the colour itself"),
    IntParameter(kFewestNeighbours, "fewest_neighbours", 1, "", "With fewer particles the value is 0").Between(1, 1000),
    FloatParameter(kOffset, "offset", 0.1, "host units", "How far off the surface particles are looked for"),
    LinkParameter(kOffsetShader, "offset_shader", kLinkShader, "A shader that scales the offset"),
    LinkParameter(kTexture, "texture", kLinkShader, "A shader that a vector property is looked up in"),
};

// A place among 64 for the search of one thread.
class SearchSlot {
 public:
  explicit SearchSlot(std::atomic<std::uint64_t>& taken) : taken_(taken) {
    std::uint64_t seen = taken.load(std::memory_order_relaxed);
    do {
      number_ = std::countr_one(seen) % 64;
    } while (seen == ~0ull || !taken.compare_exchange_weak(seen, seen | 1ull << number_, std::memory_order_acquire));
  }
  ~SearchSlot() { taken_.fetch_and(~(1ull << number_), std::memory_order_release); }
  int number() const { return number_; }

 private:
  std::atomic<std::uint64_t>& taken_;
  int number_ = 0;
};

// Samplers that look each other up in a ring would never end.
class Depth {
 public:
  Depth() { ++depth_; }
  ~Depth() { --depth_; }
  bool TooDeep() const { return depth_ > 8; }

 private:
  static thread_local int depth_;
};
thread_local int Depth::depth_ = 0;

class ParticleSampler final : public SceneSampler {
 public:
  void Start(const BaseObject& object, const OrlixHook& hook, WorkerPool& pool) override {
    End();
    BaseObject* link = object.GetLink(kGroup);
    auto* group = link ? dynamic_cast<ParticleGroup*>(hook.FindNode(link)) : nullptr;
    if (!group) return;
    BaseObject* property = object.GetLink(kProperty);
    const auto* node = property ? dynamic_cast<iProperty*>(hook.FindNode(property)) : nullptr;
    Collect(*group, node);
    if (places_.empty()) return;
    const GridSpace& space = group->GetScene().GetSimulationSpace();
    simPerHost_ = space.simPerHost;
    radius_ = object.GetDouble(kRadius) * space.cellSize;
    tree_.SetCapacity(static_cast<std::int32_t>(object.GetInt(kMostNeighbours)));
    tree_.Build(places_, pool);
    fewest_ = object.GetInt(kFewestNeighbours);
    weighted_ = object.GetBool(kWeighted), isColour_ = object.GetBool(kVectorIsColour);
    low_ = object.GetDouble(kInputLow), high_ = object.GetDouble(kInputHigh);
    offset_ = object.GetDouble(kOffset);
    offsetShader_ = ShaderSlot::Of(object, kOffsetShader), texture_ = ShaderSlot::Of(object, kTexture);
    if (!texture_.shader) texture_ = {};
    colours_.hot = object.GetChoice<SampledColour>(kColourMode) == SampledColour::BlackBody;
    colours_.least = object.GetDouble(kOutputLow), colours_.most = object.GetDouble(kOutputHigh);
    colours_.Build(object, kGradient, object.GetDouble(kFactor), object.GetVector(kWhite),
                   static_cast<int>(object.GetInt(kSystem)));
    ready_ = true;
  }
  void End() override {
    ready_ = false;
    places_.clear(), values_.clear();
    tree_.Build(std::span<const Vec3D>(), none_);
  }

  Vec3D ColourAt(const BaseObject&, const SurfacePlace& place) const override {
    const Depth depth;
    if (!ready_ || depth.TooDeep()) return Vec3D(1.0);
    double off = offset_;
    if (offsetShader_) {
      const Vec3D scale = offsetShader_.Colour(place);
      off *= (scale.x + scale.y + scale.z) / 3;
    }
    const Vec3D value = MeanAt((place.point + place.normal * off) * simPerHost_);
    if (kind_ != Kind::Vector) {
      const double v = MapToUnit(value.x, high_, low_);
      return colours_.Of(v, (rawTemperature_ ? value.x : v) * SampledColours::kHottest);
    }
    if (isColour_) return Min(Max(value, Vec3D(colours_.least)), Vec3D(colours_.most));
    if (texture_) {
      Vec3D at(value.x, value.y, 0);
      texture_.shader->Colours(*texture_.object, PlaceKind::Texture, {&at, 1}, {&at, 1});
      return at;
    }
    const double v = MapToUnit(Dot(value, value), high_ * high_, low_ * low_);
    return colours_.Of(v, v * SampledColours::kHottest);
  }

 private:
  enum class Kind { Density, Scalar, Vector };

  // Places and values of all living particles, kind after kind.
  void Collect(const ParticleGroup& group, const iProperty* property) {
    kind_ = !property ? Kind::Density : TypeOf(*property) == PropertyType::Vector ? Kind::Vector : Kind::Scalar;
    constexpr std::int32_t kTemperature = 6;
    rawTemperature_ = !property || property->propertyId == kTemperature;
    const double dt = group.GetScene().GetSimulationInfo().substepDuration;
    for (std::int32_t kind = 0; kind < kParticleKinds; ++kind) {
      const ParticleList* list = group.list(kind);
      for (int chunk = 0; list && chunk < list->chunkCount(); ++chunk) CollectRows(list->Rows(chunk), property, dt);
    }
  }
  void CollectRows(const ParticleRows& rows, const iProperty* property, double dt) {
    const bool velocity = property && property->propertyId == PP::Velocity;
    const SeenVelocity velocities(rows, dt);
    PropertyView<double> reals;
    PropertyView<Vec3D> vectors;
    if (kind_ == Kind::Scalar) reals = rows.Property<double>(KeyOf(*property));
    if (kind_ == Kind::Vector && !velocity) vectors = rows.Property<Vec3D>(KeyOf(*property));
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      if ((rows.flags()[r] & ParticleFlag::Alive) == 0 || !IsFinite(rows.positions()[r])) continue;
      Vec3D value;
      if (velocity) value = velocities.Of(r);
      if (reals.Has(r)) value.x = reals.values()[r];
      if (vectors.Has(r)) value = vectors.values()[r];
      places_.push_back(rows.positions()[r]);
      if (kind_ != Kind::Density) values_.push_back(IsFinite(value) ? value : Vec3D());
    }
  }
  // 0 where there are too few.
  Vec3D MeanAt(const Vec3D& x) const {
    const SearchSlot slot(searching_);
    const std::span<const Neighbour> found = tree_.Search(x, radius_ * radius_, slot.number());
    if (static_cast<std::int64_t>(found.size()) < fewest_) return {};
    Vec3D sum;
    double weights = 0;
    for (const Neighbour& each : found) {
      const double out = each.distance / radius_, inside = 1 - out * out;
      const double w = weighted_ ? inside * inside * inside : 1;
      sum += (kind_ == Kind::Density ? Vec3D(1 - out, 0, 0) : values_[static_cast<std::size_t>(each.index)]) * w;
      weights += w;
    }
    return weights > 0 ? sum / weights : Vec3D();
  }

  bool ready_ = false, weighted_ = true, isColour_ = false, rawTemperature_ = false;
  Kind kind_ = Kind::Density;
  std::vector<Vec3D> places_, values_;
  ParticleKdTree tree_;
  WorkerPool none_{1};
  mutable std::atomic<std::uint64_t> searching_{0};
  Vec3D simPerHost_;
  double radius_ = 1, low_ = 0, high_ = 1, offset_ = 0;
  std::int64_t fewest_ = 1;
  ShaderSlot offsetShader_, texture_;
  SampledColours colours_;
};

}  // namespace

const TypeInfo kParticleSamplerType{
    .id = 1300114,
    .resource = "zq_shader_particlesampler",
    .alias = "particle_sampler",
    .className = "C4D_ParticleSampler_Shader",
    .label = "Particle Sampler",
    .text = "Colours surfaces by the particles near them: how many there are, or a property of theirs.",
    .role = TypeRole::Object,
    .kinds = kLinkHostObject | kLinkShader,
    .parameters = kParameters,
    .common = TransformParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<ParticleSampler>(); },
};

}  // namespace orlix

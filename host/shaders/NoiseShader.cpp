// Colours by procedural noise through a gradient.

#include <optional>

#include "host/noise/Noise.h"
#include "host/objects/BaseDocument.h"
#include "host/shaders/ShaderTypes.h"

namespace orlix {

namespace {

constexpr int kTypeId = 5200;
constexpr int kFeatureSize = 1100, kOctaves = 1101, kNoiseTypeId = 1102, kSpeed = 1103, kSeed = 1104, kColours = 1105;
constexpr double kTextureSize = 100;  // host units that a texture's width counts as

constexpr auto kNoiseChoices = NoiseTypeChoices<Choice>();
constexpr GradientKnot kBlackToWhite[] = {{0, {0, 0, 0}}, {1, {1, 1, 1}}};

constexpr Parameter kParameters[] = {
    FloatParameter(kFeatureSize, "feature_size", 20, "host units", "Size of the features; a texture is 100 wide")
        .Above(0),
    IntParameter(kOctaves, "octaves", 3, "", "Layers of finer and finer detail").Between(1, Noise::kMaxOctaves),
    ChoiceParameter(kNoiseTypeId, "noise_type", 13, kNoiseChoices, "Kind of noise"),
    FloatParameter(kSpeed, "speed", 0, "1/s", "How fast the pattern changes; 0 keeps it"),
    IntParameter(kSeed, "seed", 0, "", "Another seed, another pattern"),
    GradientParameter(kColours, "colours", kBlackToWhite, "Colour by the noise's value, 0 to 1"),
};

class NoiseShader final : public ObjectData, public Shader {
 public:
  const Shader* AsShader() const override { return this; }
  Status Update(BaseObject& object, const BaseTime& time) override {
    noise_.emplace(static_cast<std::uint32_t>(object.GetInt(kSeed)));
    arguments_.octaves = static_cast<int>(object.GetInt(kOctaves));
    arguments_.time = time.Seconds() * object.GetDouble(kSpeed);
    return {};
  }
  void Colours(const BaseObject& object, PlaceKind kind, std::span<const Vec3D> places,
               std::span<Vec3D> colours) const override {
    if (!noise_) return;
    const LMatrix inverse = object.GlobalMatrix().Inverse();
    const Gradient* gradient = object.GetGradient(kColours);
    const NoiseType type = NoiseTypeOf(static_cast<int>(object.GetInt(kNoiseTypeId)));
    const double scale = 1 / object.GetDouble(kFeatureSize);
    for (std::size_t i = 0; i < places.size(); ++i) {
      const Vec3D place = kind == PlaceKind::Texture ? places[i] * kTextureSize : inverse * places[i];
      const double value = noise_->Sample(type, place * scale, arguments_);
      colours[i] = gradient ? gradient->ColourAt(value) : Vec3D(value);
    }
  }

 private:
  std::optional<Noise> noise_;
  NoiseArguments arguments_;
};

}  // namespace

const TypeInfo kNoiseShaderType{
    .id = kTypeId,
    .resource = "noise_shader",
    .className = "NoiseShader",
    .label = "Noise Shader",
    .text = "Colours by procedural noise, for emitters that colour or thin out their particles.",
    .role = TypeRole::Object,
    .kinds = kLinkHostObject | kLinkShader,
    .parameters = kParameters,
    .common = TransformParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<NoiseShader>(); },
};

}  // namespace orlix

// Colours from a picture: by texture coordinates, or laid along the object's x and y axes.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/objects/BaseDocument.h"
#include "host/pictures/PictureFile.h"
#include "host/shaders/ShaderTypes.h"

namespace orlix {

namespace fs = std::filesystem;

namespace {

constexpr int kTypeId = 5201;
constexpr int kFile = 1100, kWidth = 1101, kHeight = 1102, kRepeat = 1103;

constexpr Parameter kParameters[] = {
    FileParameter(kFile, "file", "EXR or PNG file"),
    FloatParameter(kWidth, "width", 200, "host units", "Along the object's x axis, where it is laid in space").Above(0),
    FloatParameter(kHeight, "height", 200, "host units", "Along the object's y axis, where it is laid in space")
        .Above(0),
    BoolParameter(kRepeat, "repeat", true, "Repeats beyond its edges; otherwise the border's colours go on"),
};

// The two pixels about a coordinate that runs over the picture from 0 to 1, and the share of the second.
struct PixelPair {
  int low, high;
  double share;
};
PixelPair PixelsAt(double t, int count, bool repeat) {
  if (!std::isfinite(t)) t = 0;
  const double at = (repeat ? t - std::floor(t) : std::clamp(t, 0.0, 1.0)) * count - 0.5;
  const int low = static_cast<int>(std::floor(at));
  const auto wrapped = [&](int i) { return repeat ? (i + count) % count : std::clamp(i, 0, count - 1); };
  return {wrapped(low), wrapped(low + 1), at - low};
}

class PictureShader final : public ObjectData, public Shader {
 public:
  const Shader* AsShader() const override { return this; }
  Status Update(BaseObject& object, const BaseTime&) override {
    fs::path path = object.GetString(kFile);
    if (!path.empty() && path.is_relative()) path = fs::path(object.document().folder) / path;
    if (path == loaded_) return {};
    Result<Picture> picture = path.empty() ? Picture() : ReadPicture(path);
    if (!picture.ok()) {
      return Status::Fail(picture.error().kind, fmt::format("\"{}\": {}", object.Path(), picture.error().text));
    }
    picture_ = std::move(*picture);
    loaded_ = path;
    object.MarkDirty();
    return {};
  }
  void Colours(const BaseObject& object, PlaceKind kind, std::span<const Vec3D> places,
               std::span<Vec3D> colours) const override {
    const PictureChannel* channels[3] = {picture_.Find("R"), picture_.Find("G"), picture_.Find("B")};
    if (!channels[0] || !channels[1] || !channels[2]) {
      std::fill(colours.begin(), colours.end(), Vec3D(1));
      return;
    }
    const LMatrix inverse = object.GlobalMatrix().Inverse();
    const Vec3D size(object.GetDouble(kWidth), object.GetDouble(kHeight), 1);
    const bool repeat = object.GetBool(kRepeat);
    for (std::size_t i = 0; i < places.size(); ++i) {
      const Vec3D uv = kind == PlaceKind::Texture ? places[i] : inverse * places[i] / size + Vec3D(0.5, 0.5, 0);
      // Rows stand from the top.
      const PixelPair x = PixelsAt(uv.x, picture_.width(), repeat), y = PixelsAt(1 - uv.y, picture_.height(), repeat);
      for (int c = 0; c < 3; ++c) colours[i][c] = Between(channels[c]->values, x, y);
    }
  }

 private:
  double Between(const std::vector<float>& values, const PixelPair& x, const PixelPair& y) const {
    const auto row = [&](int at) {
      const float* pixels = values.data() + static_cast<std::size_t>(at) * static_cast<std::size_t>(picture_.width());
      return pixels[x.low] * (1 - x.share) + pixels[x.high] * x.share;
    };
    return row(y.low) * (1 - y.share) + row(y.high) * y.share;
  }

  Picture picture_;
  fs::path loaded_;
};

}  // namespace

const TypeInfo kPictureShaderType{
    .id = kTypeId,
    .resource = "picture_shader",
    .className = "PictureShader",
    .label = "Picture Shader",
    .text = "Colours from a picture, for emitters that colour or thin out their particles. White without one.",
    .role = TypeRole::Object,
    .kinds = kLinkHostObject | kLinkShader,
    .parameters = kParameters,
    .common = TransformParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<PictureShader>(); },
};

}  // namespace orlix

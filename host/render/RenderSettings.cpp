#include "host/render/RenderSettings.h"

#include <fmt/format.h>

#include <cmath>

#include "host/objects/BaseDocument.h"

namespace orlix {

namespace {

constexpr int kMaxSamples = 4096;

constexpr Choice kViews[] = {{ViewTransform::Linear, "linear", "As it is, without a curve"},
                             {ViewTransform::Srgb, "srgb", "The curve of sRGB; what is above white is cut off"},
                             {ViewTransform::Filmic, "filmic", "The same, but bright parts roll off towards white"}};

constexpr Parameter kRows[] = {
    IntParameter(kRenderWidthId, "width", 960, "pixels", "Width of the picture").Between(1, kMaxPictureSide),
    IntParameter(kRenderHeightId, "height", 540, "pixels", "Height of the picture").Between(1, kMaxPictureSide),
    IntParameter(kRenderSamplesId, "samples", 4, "", "Rays of each pixel").Between(1, kMaxSamples),
    IntParameter(kRenderMostSamplesId, "max_samples", 0, "",
                 "Rays of a pixel that stays noisy; up to samples, all pixels have as many")
        .Between(0, kMaxSamples),
    FloatParameter(kRenderNoiseId, "noise", 0.02, "", "Error of a pixel's brightness at which it gets no more rays")
        .Between(0.0001, 1)
        .ShownWhen(kRenderMostSamplesId, Relation::Above, 0),
    FloatParameter(kRenderShutterId, "shutter", 0.0, "frames",
                   "How long the shutter is open: motion blur; half is usual")
        .Between(0, 2),
    VectorParameter(kRenderSkyColourId, "sky_colour", {0.12, 0.14, 0.18}, "", "Colour of the sky overhead").Min(0),
    VectorParameter(kRenderSkyHorizonId, "sky_horizon", {1.6, 1.45, 1.25}, "",
                    "Factors of the sky's colour at the horizon; 1 gives one colour all around")
        .Min(0),
    LinkParameter(
        kRenderSkyId, "sky", kLinkShader,
        "A shader that is the sky instead of these colours: a picture of longitudes and latitudes around, say"),
    FloatParameter(kRenderSkyLightId, "sky_light", 1.0, "", "Factor of the light that the sky gives to surfaces")
        .Min(0),
    IntParameter(kRenderSkySamplesId, "sky_samples", 4, "",
                 "Rays of each sample that look for sky, fire and glowing surfaces around a surface; 0 for none")
        .Between(0, kMaxSamples),
    FloatParameter(kRenderHazeId, "haze", 0.0, "host units",
                   "Way through the air after which 63% of what a surface shows is the sky's colour at the horizon; 0 "
                   "for clear air")
        .Between(0, 1e9),
    FloatParameter(kRenderHazeBeginId, "haze_begin", 0.0, "host units", "How far from the camera the haze begins")
        .Between(0, 1e9)
        .ShownWhen(kRenderHazeId, Relation::Above, 0),
    BoolParameter(kRenderSkyVisibleId, "sky_visible", true, "Show the sky; otherwise transparent black"),
    IntParameter(kRenderSeedId, "seed", 0, "", "Another seed gives another grain"),
    BoolParameter(kRenderLinearInputsId, "linear_inputs", true, "Colours in simulated channels are linear already"),
    FloatParameter(kRenderExposureId, "exposure", 0.0, "stops", "Brightness of PNG pictures; 1 doubles it"),
    ChoiceParameter(kRenderViewId, "view", ViewTransform::Filmic, kViews, "From light to the values of PNG pictures"),
    BoolParameter(kRenderExrId, "exr", true, "Write an OpenEXR picture with colour, alpha and depth"),
    BoolParameter(kRenderPngId, "png", true, "Write a PNG picture"),
    BoolParameter(kRenderVelocityId, "velocity", false, "Add velocities to the OpenEXR picture"),
    BoolParameter(kRenderLayersId, "layers", false,
                  "Add gas, surfaces, emission and motion in pixels a frame to the OpenEXR picture"),
    StringParameter(kRenderFileNameId, "file_name", "picture", "Name of the pictures, before the frame number"),
    LinkParameter(kRenderCameraId, "camera", kLinkCamera, "The camera; the first one without a link"),
};

}  // namespace

const TypeInfo kRenderSettingsType = {.id = kRenderSettingsId,
                                      .resource = "render",
                                      .className = "RenderSettings",
                                      .label = "Render Settings",
                                      .text = "Size, samples and sky of the pictures, and which files they leave.",
                                      .role = TypeRole::RenderSettings,
                                      .kinds = kLinkHostObject,
                                      .parameters = kRows};

Result<RenderSettings> ReadRenderSettings(const BaseObject& object) {
  RenderSettings settings;
  const std::int64_t width = object.GetInt(kRenderWidthId), height = object.GetInt(kRenderHeightId);
  if (Status s = CheckPictureSize(width, height); !s) return s.error();
  settings.width = static_cast<int>(width), settings.height = static_cast<int>(height);
  const std::int64_t samples = object.GetInt(kRenderSamplesId), skySamples = object.GetInt(kRenderSkySamplesId);
  const std::int64_t most = object.GetInt(kRenderMostSamplesId);
  if (samples < 1 || samples > kMaxSamples || most < 0 || most > kMaxSamples || skySamples < 0 ||
      skySamples > kMaxSamples) {
    return Result<RenderSettings>::Fail(
        ErrorKind::Scene, fmt::format("\"{}\" has {} samples and {} sky samples; at most {} each, at least 1 sample",
                                      object.Path(), samples, skySamples, kMaxSamples));
  }
  settings.samples = static_cast<int>(samples), settings.skySamples = static_cast<int>(skySamples);
  settings.mostSamples = static_cast<int>(most);
  settings.noise = object.GetDouble(kRenderNoiseId);
  settings.shutter = object.GetDouble(kRenderShutterId);
  settings.frameSeconds = 1 / object.document().fps;
  settings.writeLayers = object.GetBool(kRenderLayersId);
  settings.skyColour = object.GetVector(kRenderSkyColourId);
  settings.skyHorizon = object.GetVector(kRenderSkyHorizonId);
  settings.skyLight = object.GetDouble(kRenderSkyLightId);
  settings.haze = object.GetDouble(kRenderHazeId), settings.hazeBegin = object.GetDouble(kRenderHazeBeginId);
  settings.skyVisible = object.GetBool(kRenderSkyVisibleId);
  settings.seed = static_cast<std::int32_t>(object.GetInt(kRenderSeedId));
  settings.linearInputs = object.GetBool(kRenderLinearInputsId);
  settings.view = {object.GetDouble(kRenderExposureId), object.GetChoice<ViewTransform>(kRenderViewId)};
  settings.writeExr = object.GetBool(kRenderExrId);
  settings.writePng = object.GetBool(kRenderPngId);
  settings.writeVelocity = object.GetBool(kRenderVelocityId);
  settings.name = object.GetString(kRenderFileNameId);
  if (!IsFinite(settings.skyColour) || !IsFinite(settings.skyHorizon) || !std::isfinite(settings.skyLight) ||
      !std::isfinite(settings.haze) || !std::isfinite(settings.hazeBegin) || !std::isfinite(settings.view.exposure)) {
    return Result<RenderSettings>::Fail(ErrorKind::Scene, "\"" + object.Path() + "\" has a value that is no number");
  }
  return settings;
}

}  // namespace orlix

#pragma once
// What the picture is like: size, samples, sky, and which files it leaves.

#include <cstdint>
#include <string>

#include "globals/Result.h"
#include "globals/Vec.h"
#include "host/description/TypeRegistry.h"
#include "host/objects/BaseObject.h"
#include "host/pictures/Picture.h"
#include "host/pictures/PictureView.h"

namespace orlix {

inline constexpr int kRenderSettingsId = 920030;

extern const TypeInfo kRenderSettingsType;

inline constexpr int kRenderWidthId = 1000;
inline constexpr int kRenderHeightId = 1001;
inline constexpr int kRenderSamplesId = 1002;
inline constexpr int kRenderSkyColourId = 1003;
inline constexpr int kRenderSkyLightId = 1004;
inline constexpr int kRenderSkySamplesId = 1005;
inline constexpr int kRenderSkyVisibleId = 1006;
inline constexpr int kRenderSeedId = 1007;
inline constexpr int kRenderLinearInputsId = 1008;
inline constexpr int kRenderExposureId = 1009;
inline constexpr int kRenderExrId = 1010;
inline constexpr int kRenderPngId = 1011;
inline constexpr int kRenderVelocityId = 1012;
inline constexpr int kRenderFileNameId = 1013;
inline constexpr int kRenderCameraId = 1014;
inline constexpr int kRenderSkyHorizonId = 1015;
inline constexpr int kRenderViewId = 1016;
inline constexpr int kRenderSkyId = 1017;
inline constexpr int kRenderShutterId = 1018;
inline constexpr int kRenderMostSamplesId = 1019;
inline constexpr int kRenderNoiseId = 1020;
inline constexpr int kRenderLayersId = 1021;
inline constexpr int kRenderHazeId = 1022;
inline constexpr int kRenderHazeBeginId = 1023;

struct RenderSettings {
  int width = 960, height = 540;
  int samples = 4;                    // rays of each pixel
  int mostSamples = 0;                // of a pixel that stays noisy; no more than samples: all have the same
  double noise = 0.02;                // standard error, of the brightness that is seen, at which a pixel is done
  double shutter = 0;                 // frames that it is open, about the middle of the frame; 0: nothing moves
  double frameSeconds = 1.0 / 24;     // of the document
  Vec3D skyColour{0.12, 0.14, 0.18};  // overhead
  Vec3D skyHorizon{1.6, 1.45, 1.25};  // times the colour, at the horizon and below
  double skyLight = 1;                // factor of the sky's light on surfaces
  double haze = 0, hazeBegin = 0;     // host units: behind the second, surfaces fade over the first; 0: never
  int skySamples = 4;                 // rays of each sample that look for light around a surface
  bool skyVisible = true;             // false: black and transparent behind everything
  std::int32_t seed = 0;
  bool linearInputs = true;                              // colours of scenes are linear already
  PictureView view{.transform = ViewTransform::Filmic};  // of pictures of 8 bits
  bool writeExr = true, writePng = true, writeVelocity = false, writeLayers = false;
  std::string name = "picture";  // of the files, without number and ending

  bool IsAdaptive() const { return mostSamples > samples; }
  int SamplesAtMost() const { return IsAdaptive() ? mostSamples : samples; }
  double ShutterSeconds() const { return shutter * frameSeconds; }
  bool NeedsMotion() const { return writeVelocity || writeLayers || shutter > 0; }
};

Result<RenderSettings> ReadRenderSettings(const BaseObject& object);

}  // namespace orlix

#pragma once
// From linear light to what a display shows: exposure, and what becomes of light above its white.

#include <algorithm>
#include <cmath>

#include "host/pictures/Srgb.h"

namespace orlix {

enum class ViewTransform { Linear, Srgb, Filmic };

constexpr const char* NameOf(ViewTransform transform) {
  return transform == ViewTransform::Linear ? "linear" : transform == ViewTransform::Srgb ? "srgb" : "filmic";
}

struct PictureView {
  double exposure = 0;  // stops
  ViewTransform transform = ViewTransform::Srgb;
};

// Bright parts roll off as on film instead of ending at 1. Below the knee nothing changes; above it, the extended curve
// of Reinhard et al., "Photographic Tone Reproduction for Digital Images" (2002), in which kFilmWhite becomes 1.
inline double FilmicShoulder(double v) {
  constexpr double kKnee = 0.4, kFilmWhite = 16, kSpan = 1 - kKnee, kWhite = (kFilmWhite - kKnee) / kSpan;
  if (!(v > kKnee)) return v;
  const double u = (v - kKnee) / kSpan;
  return std::min(1.0, kKnee + kSpan * u * (1 + u / (kWhite * kWhite)) / (1 + u));
}

// Of a component that the exposure has scaled, to 0 to 1.
inline double Displayed(double v, ViewTransform transform) {
  if (transform == ViewTransform::Filmic) v = FilmicShoulder(v);
  v = std::clamp(v, 0.0, 1.0);
  return transform == ViewTransform::Linear ? v : LinearToSrgb(v);
}

}  // namespace orlix

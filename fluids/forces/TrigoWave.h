#pragma once
// The displacement of a point by a wave: along an axis, around it, in rings or in a spiral.
//
// A phase phi = 2 pi frequency (speed time - x), x by the wave's type, gives two vectors; the shape mixes them.

#include "globals/Vec.h"

namespace orlix {

// Where a wave runs: along the z axis, also moving away from it, in rings about it, around it, in a spiral.
enum class WaveType { Plane, PlaneOutward, Rings, Around, Spiral };

// How the phase weighs the two vectors of a place.
enum class WaveShape {
  Rise,
  Fall,
  RiseFirst,
  FallFirst,
  Sine,
  CrossFade,
  CrossFadeBack,
  SineFirst,
  FigureFirst,
  FigureSecond,
  Ellipse
};

struct TrigoWave {
  WaveType type = WaveType::Spiral;
  WaveShape shape = WaveShape::Rise;
  double amplitude = 0;  // m
  double frequency = 0;  // 1/m; outside [-1000, 1000] there is no wave
  double travelled = 0;  // speed x time, m
  Vec3D axisX{1, 0, 0}, axisY{0, 1, 0}, axisZ{0, 0, 1};
  Vec3D offsetVector;  // (0, 0, amplitude)

  Vec3D At(const Vec3D& u) const;

 private:
  // What a type makes of a point: the phase, the two vectors, and how the shape weighs them.
  struct Terms {
    double phase = 0, factor = 1;
    Vec3D v1, v2;
    bool flag = false;
  };
  Terms Plane(double along, const Vec3D& outward) const;
  Terms Rings(double distance, const Vec3D& offAxis, const Vec3D& outward) const;
  Terms Around(const Vec3D& outward) const;
  Terms Spiral(double r, const Vec3D& outward) const;
  Vec3D Mixed(const Terms& terms) const;
  double PhaseAt(double x) const;
  // The angle whose cosine is c, in the half that side tells.
  static double AngleOf(double c, double side);
};

}  // namespace orlix

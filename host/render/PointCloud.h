#pragma once
// Particles as a picture shows them: balls that lights shine on, or flat discs with a light of their own.

#include <string>
#include <vector>

#include "globals/Vec.h"
#include "host/description/CurveData.h"

namespace orlix {

struct PointCloud {
  struct Point {
    Vec3F position;     // host units, from the cloud's origin
    float radius = 0;   // host units
    Vec3F colour;       // linear Rec. 709
    float opacity = 1;  // share of a pixel's samples that see it
  };

  Vec3D origin;  // host space, in the middle of the points so that single precision suffices
  std::vector<Point> points;
  std::vector<Vec3F> velocities;  // of each point, host units a second; empty when nobody asks
  bool lit = true;                // balls; otherwise discs
  float leastRadius = 0.5f;       // pixels; none is drawn smaller
};

// What the colours of a cloud mean, for a bar at the edge of a picture.
struct Legend {
  std::string title;  // "speed m/s"
  double low = 0, high = 1;
  Gradient colours;  // linear
};

}  // namespace orlix

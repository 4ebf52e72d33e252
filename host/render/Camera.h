#pragma once
// The camera. Its own axes are those of the scene: x to the right, y up, and it looks along -z. A point (x, y) of the
// picture is measured in pixels from the upper left corner, pixel centres at halves.

#include "globals/Result.h"
#include "globals/Vec.h"
#include "host/description/TypeRegistry.h"
#include "host/objects/RowMistake.h"

namespace orlix {

// How far from the origin a picture's contents may lie, host units: parents multiply what a parameter's range allows.
inline constexpr double kFarthest = 1e12;

inline constexpr int kCameraId = 920010;

extern const TypeInfo kCameraType;

inline constexpr int kCameraProjectionId = 1000;
inline constexpr int kCameraFocalLengthId = 1001;
inline constexpr int kCameraSensorWidthId = 1002;
inline constexpr int kCameraWidthId = 1003;
inline constexpr int kCameraNearId = 1004;
inline constexpr int kCameraFarId = 1005;
inline constexpr int kCameraLookAtId = 1006;
inline constexpr int kCameraTargetId = 1007;
inline constexpr int kCameraUpId = 1008;
inline constexpr int kCameraApertureId = 1009;
inline constexpr int kCameraFocusId = 1010;

enum class Projection : int { Perspective = 0, Parallel = 1 };

// The part of a view ray between the near and the far plane.
struct CameraRay {
  Vec3D origin;       // on the near plane, host space
  Vec3D direction;    // unit
  double length = 0;  // to the far plane
  double cosine = 1;  // between the direction and the view axis: depth = near + distance x cosine
};

// Where a point falls in the picture.
struct ProjectedPoint {
  double x = 0, y = 0;  // pixels
  double depth = 0;     // along the view axis, from the eye
};

struct Camera {
  Vec3D position, right{1, 0, 0}, up{0, 1, 0}, forward{0, 0, -1};  // host space; the axes are orthonormal
  Projection projection = Projection::Perspective;
  double halfWidth = 0.5;  // of the picture: at depth 1 for a perspective, in host units for a parallel projection
  double near = 0.1, far = 100000;
  double aperture = 0;  // width of the lens, host units; 0: all is sharp
  double focus = 10;    // depth that is sharp, host units

  // The camera between this one and another, both at the ends of a shutter: 0 is this one.
  Camera Towards(const Camera& end, double time) const;
  // The same ray through another point of the lens, in the unit disc: where the ray meets the depth in focus stays.
  CameraRay ThroughLens(const CameraRay& ray, const Vec2D& disc) const;
  CameraRay RayThrough(double x, double y, int pictureWidth, int pictureHeight) const;
  // For a perspective, the depth of a point must not be 0.
  ProjectedPoint Project(const Vec3D& point, int pictureWidth, int pictureHeight) const;
  // Turns the camera at its place. A target at the position, or up along the view, leaves a rotation to spare, which is
  // chosen.
  void LookAt(const Vec3D& target, const Vec3D& upwards);
};

// A camera that sees the whole of a box from the front, a little from above and to the right.
Camera FramingCamera(const Vec3D& low, const Vec3D& high, int pictureWidth, int pictureHeight);

Result<Camera> ReadCamera(const BaseObject& object, RowMistake* mistake = nullptr);

}  // namespace orlix

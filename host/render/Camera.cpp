#include "host/render/Camera.h"

#include <algorithm>
#include <cmath>

#include "host/objects/HostRange.h"

namespace orlix {

namespace {

constexpr Choice kProjections[] = {
    {static_cast<int>(Projection::Perspective), "perspective", "Far things look smaller"},
    {static_cast<int>(Projection::Parallel), "parallel", "All depths look the same size"},
};

constexpr Parameter kRows[] = {
    ChoiceParameter(kCameraProjectionId, "projection", 0, kProjections, "How depth is shown"),
    FloatParameter(kCameraFocalLengthId, "focal_length", 36.0, "mm", "Focal length; longer sees less")
        .Between(0.1, 1e6)
        .ShownWhen(kCameraProjectionId, Relation::Is, 0),
    FloatParameter(kCameraSensorWidthId, "sensor_width", 36.0, "mm", "Width of what the lens draws on")
        .Between(0.01, 1e4)
        .ShownWhen(kCameraProjectionId, Relation::Is, 0),
    FloatParameter(kCameraWidthId, "width", 10.0, "host units", "Width of the picture in the scene")
        .Above(0)
        .Max(kMostHostUnits)
        .ShownWhen(kCameraProjectionId, Relation::Is, 1),
    FloatParameter(kCameraNearId, "near", 0.1, "host units", "Nothing nearer to the camera is shown")
        .Above(0)
        .Max(kMostHostUnits),
    FloatParameter(kCameraFarId, "far", 100000.0, "host units", "Nothing farther from the camera is shown")
        .Above(0)
        .Max(kMostHostUnits),
    BoolParameter(kCameraLookAtId, "look_at", true, "Turn to the target instead of by the rotation"),
    VectorParameter(kCameraTargetId, "target", {0, 0, 0}, "host units", "Point in host space that is looked at")
        .Between(-kMostHostUnits, kMostHostUnits)
        .ShownWhen(kCameraLookAtId, Relation::Is, 1),
    VectorParameter(kCameraUpId, "up", {0, 1, 0}, "", "What is upwards in the picture")
        .ShownWhen(kCameraLookAtId, Relation::Is, 1),
    FloatParameter(kCameraApertureId, "aperture", 0.0, "host units",
                   "Width of the lens: what lies before and behind the focus blurs; 0 keeps all sharp")
        .Between(0, kMostHostUnits)
        .ShownWhen(kCameraProjectionId, Relation::Is, 0),
    FloatParameter(kCameraFocusId, "focus_distance", 0.0, "host units", "Depth that is sharp; 0 is that of the target")
        .Between(0, kMostHostUnits)
        .ShownWhen(kCameraApertureId, Relation::Above, 0),
};

// Some unit vector at a right angle to a unit vector.
Vec3D AnyNormalTo(const Vec3D& v) {
  return Normalized(Cross(v, std::abs(v.x) < 0.5 ? Vec3D{1, 0, 0} : Vec3D{0, 0, 1}));
}

}  // namespace

const TypeInfo kCameraType = {
    .id = kCameraId,
    .resource = "camera",
    .className = "Camera",
    .label = "Camera",
    .text = "The eye of the picture. It looks at its target, or along its own -z with y upwards.",
    .role = TypeRole::Camera,
    .kinds = kLinkCamera | kLinkHostObject,
    .parameters = kRows,
    .common = TransformParameters()};

CameraRay Camera::RayThrough(double x, double y, int pictureWidth, int pictureHeight) const {
  const double scale = 2 * halfWidth / pictureWidth;
  const double sideways = (x - 0.5 * pictureWidth) * scale, upwards = (0.5 * pictureHeight - y) * scale;
  const Vec3D across = right * sideways + up * upwards;
  CameraRay ray;
  if (projection == Projection::Parallel) {
    ray.direction = forward;
    ray.origin = position + across + forward * near;
    ray.length = far - near;
    return ray;
  }
  const Vec3D toPlane = forward + across;  // at depth 1
  const double length = Length(toPlane);
  ray.direction = toPlane / length;
  ray.cosine = 1 / length;
  ray.origin = position + toPlane * near;
  ray.length = (far - near) * length;
  return ray;
}

Camera Camera::Towards(const Camera& end, double time) const {
  const auto between = [&](const Vec3D& a, const Vec3D& b) { return a * (1 - time) + b * time; };
  Camera camera = *this;
  camera.position = between(position, end.position);
  const Vec3D ahead = Normalized(between(forward, end.forward));
  const Vec3D sideways = Normalized(Cross(ahead, between(up, end.up)));
  // A camera that turns by half a circle within the shutter has no way between.
  if (ahead == Vec3D() || sideways == Vec3D()) return camera;
  camera.forward = ahead, camera.right = sideways, camera.up = Cross(sideways, ahead);
  camera.halfWidth = halfWidth * (1 - time) + end.halfWidth * time;
  camera.focus = focus * (1 - time) + end.focus * time;
  return camera;
}

CameraRay Camera::ThroughLens(const CameraRay& ray, const Vec2D& disc) const {
  if (!(aperture > 0) || projection == Projection::Parallel) return ray;
  const Vec3D sharp = position + ray.direction * (focus / ray.cosine);
  const Vec3D lens = position + (right * disc.x + up * disc.y) * (0.5 * aperture);
  CameraRay bent;
  bent.direction = Normalized(sharp - lens);
  bent.cosine = Dot(bent.direction, forward);
  if (!(bent.cosine > 0)) return ray;
  bent.origin = lens + bent.direction * (near / bent.cosine);
  bent.length = (far - near) / bent.cosine;
  return bent;
}

ProjectedPoint Camera::Project(const Vec3D& point, int pictureWidth, int pictureHeight) const {
  const Vec3D d = point - position;
  ProjectedPoint result;
  result.depth = Dot(d, forward);
  const double scale = pictureWidth / (2 * halfWidth * (projection == Projection::Parallel ? 1.0 : result.depth));
  result.x = 0.5 * pictureWidth + Dot(d, right) * scale;
  result.y = 0.5 * pictureHeight - Dot(d, up) * scale;
  return result;
}

void Camera::LookAt(const Vec3D& target, const Vec3D& upwards) {
  const Vec3D direction = Normalized(target - position);
  if (direction == Vec3D()) return;
  forward = direction;
  right = Normalized(Cross(forward, Normalized(upwards)));
  if (right == Vec3D()) right = AnyNormalTo(forward);
  up = Cross(right, forward);
}

Camera FramingCamera(const Vec3D& low, const Vec3D& high, int pictureWidth, int pictureHeight) {
  constexpr double kMargin = 0.88;  // of the picture's sides
  Camera camera;
  const Vec3D centre = (low + high) * 0.5;
  const double radius = std::max(0.5 * Length(high - low), 1e-6);
  camera.halfWidth = 0.5;
  const double halfHeight = camera.halfWidth * pictureHeight / pictureWidth;
  camera.position = centre + Normalized(Vec3D{0.45, 0.3, 1});
  camera.LookAt(centre, {0, 1, 0});
  // As near as each corner of the box allows.
  double distance = 1.5 * radius;
  for (int corner = 0; corner < 8; ++corner) {
    const Vec3D p{corner & 1 ? low.x : high.x, corner & 2 ? low.y : high.y, corner & 4 ? low.z : high.z},
        d = p - centre;
    const double sideways =
        std::max(std::abs(Dot(d, camera.right)) / camera.halfWidth, std::abs(Dot(d, camera.up)) / halfHeight);
    distance = std::max(distance, sideways / kMargin - Dot(d, camera.forward));
  }
  camera.position = centre - camera.forward * distance;
  camera.near = std::max(distance - 2 * radius, 1e-3 * distance);
  camera.far = std::max(100 * distance, 100000.0);
  return camera;
}

Result<Camera> ReadCamera(const BaseObject& object, RowMistake* mistake) {
  const auto fail = [&](int row, const char* what) {
    if (mistake) *mistake = {object.creationNumber(), row, what};
    return Error{ErrorKind::Scene, Described(object, row, what)};
  };
  Camera camera;
  const LMatrix matrix = object.GlobalMatrix();
  camera.position = matrix.off;
  camera.forward = -Normalized(matrix.v3);
  camera.right = Normalized(Cross(camera.forward, matrix.v2));
  camera.up = Cross(camera.right, camera.forward);
  if (object.GetBool(kCameraLookAtId)) {
    camera.LookAt(object.GetVector(kCameraTargetId), object.GetVector(kCameraUpId));
  }
  if (!IsFinite(camera.right) || !IsFinite(camera.forward)) {
    return fail(kRotationId, "leads to a direction that is no number");
  }
  if (!(Length(camera.position) <= kFarthest)) return fail(kPositionId, "leads to a place beyond all pictures");
  if (camera.right == Vec3D() || camera.forward == Vec3D()) return fail(kScaleId, "must not be 0 along any axis");
  camera.projection = static_cast<Projection>(object.GetInt(kCameraProjectionId));
  camera.near = object.GetDouble(kCameraNearId);
  camera.far = object.GetDouble(kCameraFarId);
  if (!(camera.near > 0 && camera.near < camera.far) || !std::isfinite(camera.far)) {
    return fail(kCameraNearId, "must be above 0 and below far");
  }
  camera.halfWidth = camera.projection == Projection::Parallel
                         ? 0.5 * object.GetDouble(kCameraWidthId)
                         : 0.5 * object.GetDouble(kCameraSensorWidthId) / object.GetDouble(kCameraFocalLengthId);
  camera.aperture = object.GetDouble(kCameraApertureId);
  camera.focus = object.GetDouble(kCameraFocusId);
  if (!(camera.focus > 0)) {
    const bool aims = object.GetBool(kCameraLookAtId);
    camera.focus = aims ? Dot(object.GetVector(kCameraTargetId) - camera.position, camera.forward) : 0;
    if (!(camera.focus > 0)) camera.focus = 1;
  }
  if (!(camera.halfWidth > 0) || !std::isfinite(camera.halfWidth)) {
    return camera.projection == Projection::Parallel ? fail(kCameraWidthId, "must be above 0")
                                                     : fail(kCameraFocalLengthId, "and sensor_width must be above 0");
  }
  return camera;
}

}  // namespace orlix

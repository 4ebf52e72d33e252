#include "fluids/volumes/AlignmentVector3D.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "globals/Hash.h"

namespace orlix {

namespace {

constexpr std::uint32_t kSeedOffset = 234145;

}  // namespace

const TypeInfo& AlignmentVector3D::Type() {
  static constexpr Choice kModes[] = {
      {AxisX, "x", "The x axis of the object"},
      {AxisY, "y", "The y axis of the object"},
      {AxisZ, "z", "The z axis of the object"},
      {FromCentre, "from_centre", "Away from the centre"},
      {MajorAxis, "major_axis", "The axis that the vector, seen from the centre, is nearest to"},
      {AroundZ, "around_z", "Away from the object's z axis"},
      {Normal, "normal", "The normal of the linked volume's surface"},
      {Vector, "vector", "The vector"},
      {Random, "random", "A random direction at each place"},
      {BodyVelocity, "body_velocity", "The velocity of the linked volume's body"},
  };
  static constexpr Parameter kParameters[] = {
      ChoiceParameter(kModeId, "mode", AxisX, kModes, "Where the direction points"),
      BoolParameter(kInvertId, "invert", false, "Turns the direction round"),
      VectorParameter(kVectorId, "vector", {0, 1, 0}, "", "The vector of the modes that use one"),
      LinkParameter(kReferenceId, "reference", kLinkAny, "A volume, or an object whose place and turn count"),
  };
  static const TypeInfo kType = {
      .id = 1300010,
      .resource = "zq_alignment",
      .className = "C4D_AlignmentVector_Object",
      .label = "Alignment",
      .text = "Gives a direction at each place, for forces, constraints and emitters.",
      .kinds = kLinkHelper | kLinkAlignment,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
  };
  return kType;
}

bool AlignmentVector3D::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  SetFlag(NodeInvert, handler.GetBool(kInvertId));
  vector_ = handler.GetVector(kVectorId);
  SetMode(handler.GetChoice(kModeId));
  matrix_ = handler.GetMatrix();
  return true;
}

bool AlignmentVector3D::ResolveLinks() {
  volume_ = nullptr;
  if (!iBase::ResolveLinks()) return false;
  const BaseObject* link = handler.GetObjectLink(kReferenceId);
  volume_ = scene->RetrieveAs<VolumeBase>(link, NODE_VOLUME, RETRIEVE_VOLUME);
  if (volume_) {
    TakeVolumeFrame();
    return true;
  }
  if (link) matrix_ = link->GlobalMatrix();
  centre_ = matrix_.off * GetSimulationSpace().simPerVoxel;
  return true;
}

void AlignmentVector3D::ReleaseLinks() {
  volume_ = nullptr;
  iObject::ReleaseLinks();
}

void AlignmentVector3D::Prepare(iBase*) { TakeVolumeFrame(); }

void AlignmentVector3D::TakeVolumeFrame() {
  if (!volume_ || !volume_->HasLevelSet()) return;
  centre_ = volume_->centre;
  matrix_ = volume_->BodyMatrix();
}

void AlignmentVector3D::SetMode(std::int32_t mode) {
  mode_ = mode;
  if (mode_ == AxisX) vector_ = {1, 0, 0};
  if (mode_ == AxisY) vector_ = {0, 1, 0};
  if (mode_ == AxisZ) vector_ = {0, 0, 1};
}

Vec3D AlignmentVector3D::GetDirection(const Vec3D& point, const LMatrix& matrix, const Vec3D& centre) const {
  if (mode_ == Random) return RandomAt(point);
  const Vec3D direction = Unsigned(point, matrix, centre);
  return HasFlag(NodeInvert) ? -direction : direction;
}

Vec3D AlignmentVector3D::GetDirection(const Vec3D& point, MersenneTwister& random) const {
  if (mode_ == Random) return RandomDirection(random);
  const Vec3D direction = Unsigned(point, matrix_, centre_);
  return HasFlag(NodeInvert) ? -direction : direction;
}

Vec3D AlignmentVector3D::Unsigned(const Vec3D& point, const LMatrix& matrix, const Vec3D& centre) const {
  switch (mode_) {
    case FromCentre:
      return Normalized(point - centre);
    case MajorAxis:
      return matrix.Rotate(MajorAxisOf(vector_ - centre));
    case AroundZ: {
      const LMatrix inverse = matrix.Inverse();
      const Vec3D local = inverse * point - inverse * centre;
      return matrix.Rotate({local.x, local.y, 0});
    }
    case Normal: {
      if (volume_ && volume_->HasLevelSet()) return volume_->NormalLocal(point - volume_->LevelSet()->space.simMin);
      const Vec3D turned = matrix.Rotate(vector_);
      return {turned.x, turned.y, 0};
    }
    case BodyVelocity: {
      if (!volume_ || !volume_->IsEnabled() || !volume_->IsObstacle()) break;
      const Vec3D linear = volume_->LinearMotion(), angular = volume_->AngularMotion();
      if (linear == Vec3D() && angular == Vec3D()) return {};
      const double dt = simulationInfo->substepDuration;
      return dt > 0 ? (linear + Cross(angular, point - matrix.off)) / dt : Vec3D();
    }
    default:
      break;
  }
  return matrix.Rotate(vector_);
}

// The point is cut to a raster of 1/64 of a cell, so that particles in one cell differ; a quarter of that aside, so
// that cell centres, which lie on the raster, stay where they are when their container grows and their place rounds
// anew.
Vec3D AlignmentVector3D::RandomAt(const Vec3D& point) const {
  struct {
    std::int64_t place[3];
    std::int32_t seed, frame;
  } key{{}, static_cast<std::int32_t>(static_cast<std::uint32_t>(scene->seed) + kSeedOffset), simulationInfo->frame};
  const double perRaster = 64 / static_cast<double>(GetSimulationSpace().cellSize);
  constexpr double kFarthest = 9e18;
  for (int axis = 0; axis < 3; ++axis) {
    const double at = std::floor(point[axis] * perRaster + 0.25);
    key.place[axis] = at > -kFarthest && at < kFarthest ? static_cast<std::int64_t>(at) : 0;
  }
  const std::uint64_t bits = HashBytes(&key, sizeof key);
  constexpr double kUnit = 1.0 / 4294967296.0;
  return DirectionOf(static_cast<double>(bits >> 32) * kUnit, static_cast<double>(bits & 0xffffffffu) * kUnit);
}

Vec3D MajorAxisOf(const Vec3D& d) {
  const double x = std::abs(d.x), y = std::abs(d.y), z = std::abs(d.z);
  const auto sign = [](double v) { return v < 0 ? -1.0 : v > 0 ? 1.0 : 0.0; };
  if (x > y && x > z) return {sign(d.x), 0, 0};
  if (y > z) return {0, sign(d.y), 0};
  return {0, 0, sign(d.z)};
}

Vec3D RandomDirection(MersenneTwister& random) {
  const double u = random.Uniform();
  return DirectionOf(u, random.Uniform());
}

Vec3D DirectionOf(double u, double v) {
  const double z = u * 2 - 1;
  const double phi = v * 2 * std::numbers::pi;
  const double s = std::sqrt(std::max(1 - z * z, 0.0));
  return {std::cos(phi) * s, std::sin(phi) * s, z};
}

}  // namespace orlix

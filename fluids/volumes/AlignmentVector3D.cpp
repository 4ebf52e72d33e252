#include "fluids/volumes/AlignmentVector3D.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace orlix {

namespace {

constexpr std::int32_t kSeedOffset = 234145;

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
      .common = CommonNodeParameters(),
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

void AlignmentVector3D::Prepare(iBase*) {
  TakeVolumeFrame();
  if (mode_ == Random) SeedThreads(std::max(scene->threadCount, scene->HostWorkers()), 1);
}

void AlignmentVector3D::TakeVolumeFrame() {
  if (!volume_ || !volume_->HasLevelSet()) return;
  centre_ = volume_->centre;
  matrix_ = volume_->BodyMatrix();
}

void AlignmentVector3D::SeedThreads(std::int32_t count, std::int32_t fallback) {
  random_.resize(static_cast<std::size_t>(std::max(count < 1 ? fallback : count, 1)));
  for (std::size_t w = 0; w < random_.size(); ++w) {
    random_[w].Seed(static_cast<std::uint32_t>(scene->seed) + static_cast<std::uint32_t>(kSeedOffset + w));
  }
}

void AlignmentVector3D::SetMode(std::int32_t mode) {
  mode_ = mode;
  if (mode_ == AxisX) vector_ = {1, 0, 0};
  if (mode_ == AxisY) vector_ = {0, 1, 0};
  if (mode_ == AxisZ) vector_ = {0, 0, 1};
}

Vec3D AlignmentVector3D::GetDirection(const Vec3D& point, const LMatrix& matrix, const Vec3D& centre,
                                      std::int32_t threadIndex) {
  if (mode_ == Random) {
    const auto worker = static_cast<std::size_t>(threadIndex);
    return worker < random_.size() ? RandomDirection(random_[worker]) : Vec3D();
  }
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

Vec3D MajorAxisOf(const Vec3D& d) {
  const double x = std::abs(d.x), y = std::abs(d.y), z = std::abs(d.z);
  const auto sign = [](double v) { return v < 0 ? -1.0 : v > 0 ? 1.0 : 0.0; };
  if (x > y && x > z) return {sign(d.x), 0, 0};
  if (y > z) return {0, sign(d.y), 0};
  return {0, 0, sign(d.z)};
}

Vec3D RandomDirection(MersenneTwister& random) {
  const double z = random.Uniform() * 2 - 1;
  const double phi = random.Uniform() * 2 * std::numbers::pi;
  const double s = std::sqrt(std::max(1 - z * z, 0.0));
  return {std::cos(phi) * s, std::sin(phi) * s, z};
}

}  // namespace orlix

#include "fluids/particle_operators/PSurface_Properties.h"

#include <algorithm>
#include <numbers>

namespace orlix {

namespace {

constexpr std::int32_t kNeighbours = 256;
constexpr double kInnerStretch = 0.55;

// f at q = d / h, in single precision, for d above 0.
float NormalWeight(PSurface_Properties::NormalKernel kernel, float q, double h) {
  using Kernel = PSurface_Properties::NormalKernel;
  if (q > 1) return 0;
  const double cubed = h * h * h;
  const float rest = 1 - q * q;
  const auto poly6 = static_cast<float>(-945 / (32 * std::numbers::pi * cubed));
  switch (kernel) {
    case Kernel::Spiky:
      return static_cast<float>(-45 / (std::numbers::pi * cubed)) * (1 - q) * (1 - q);
    case Kernel::Steep:
      return poly6 * q * rest * rest;
    default:
      return poly6 * rest;
  }
}

}  // namespace

const TypeInfo& PSurface_Properties::Type() {
  static constexpr Choice kCurvatureModes[] = {
      {CurvatureMode::None, "none", "None"},
      {CurvatureMode::Length, "length", "The length of the raw normal, over the scale"},
      {CurvatureMode::SpreadSum, "spread_sum", "How far the neighbours' normals differ, summed, over the scale"},
      {CurvatureMode::SpreadMean, "spread_mean", "How far they differ, averaged: 0 where it is flat"}};
  static constexpr Choice kNormalKernels[] = {
      {NormalKernel::Smooth, "smooth", "945 / (32 pi h^3) (1 - q^2)"},
      {NormalKernel::Spiky, "spiky", "45 / (pi h^3) (1 - q)^2: near ones count most"},
      {NormalKernel::Steep, "steep", "945 / (32 pi h^3) q (1 - q^2)^2"}};
  static constexpr Parameter kParameters[] = {
      LinkParameter(kGroupId, "group", kLinkParticles, "Particle group; required"),
      ChoiceParameter(kKindId, "kind", PK_Liquid, kParticleKindChoices, "Kind of the particles"),
      FloatParameter(kCommonRadiusId, "common_radius", 2.5, "cells",
                     "How far neighbours count; 0 takes a radius for each purpose")
          .Between(0, 32)
          .Fallback(2.0),
      FloatParameter(kMinimumDensityId, "minimum_density", 0.05, "",
                     "Particles of a lower density count as inner ones and get no normal")
          .Fallback(0.0),
      FloatParameter(kMaximumDensityId, "maximum_density", 0.7, "", "Particles of a higher density do, too"),
      BoolParameter(kWriteNormalId, "write_normal", true, "Gives particles a normal, outwards"),
      ChoiceParameter(kNormalKernelId, "normal_kernel", NormalKernel::Smooth, kNormalKernels,
                      "How neighbours weigh in a normal"),
      FloatParameter(kNormalRadiusId, "normal_radius", 2.5, "cells", "How far neighbours count in a normal")
          .Between(0, 32)
          .Fallback(1.0)
          .ShownWhen(kCommonRadiusId, Relation::Is, 0),
      ChoiceParameter(kCurvatureModeId, "curvature_mode", CurvatureMode::Length, kCurvatureModes,
                      "Gives particles a curvature"),
      FloatParameter(kCurvatureRadiusId, "curvature_radius", 2.5, "cells", "How far neighbours count in a curvature")
          .Between(0, 32)
          .Fallback(1.0)
          .ShownWhen(kCommonRadiusId, Relation::Is, 0),
      FloatParameter(kCurvatureScaleId, "curvature_scale", 1000, "", "Divides the curvature").Above(0),
      BoolParameter(kWriteAnisotropyId, "write_anisotropy", false,
                    "Gives particles the stretch by which a surface of stretched balls is made"),
      FloatParameter(kAnisotropyRadiusId, "anisotropy_radius", 2.5, "cells", "How far neighbours count in the stretch")
          .Between(0, 32)
          .Fallback(1.0)
          .ShownWhen(kCommonRadiusId, Relation::Is, 0),
  };
  static const TypeInfo kType = {
      .id = 1300079,
      .resource = "zq_psurfaceproperty",
      .className = "C4D_ParticleSurface_Properties_Object",
      .label = "POP::Surface Properties",
      .text =
          "Gives particles near a surface its normal, its curvature and the stretch of their balls. It tells them from "
          "inner ones by their density (POP::Volume Properties).",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool PSurface_Properties::ReadParameters() {
  if (!ParticleOperator::ReadParameters()) return false;
  const double cell = GetSimulationSpace().cellSize, common = handler.GetDouble(kCommonRadiusId);
  const auto radius = [&](int id) { return cell * (common > 0 ? common : handler.GetDouble(id)); };
  normalRadius_ = radius(kNormalRadiusId);
  curvatureRadius_ = radius(kCurvatureRadiusId);
  anisotropyRadius_ = radius(kAnisotropyRadiusId);
  minimumDensity_ = handler.GetDouble(kMinimumDensityId);
  maximumDensity_ = handler.GetDouble(kMaximumDensityId);
  writeNormal_ = handler.GetBool(kWriteNormalId);
  curvatureMode_ = handler.GetChoice<CurvatureMode>(kCurvatureModeId);
  writeAnisotropy_ = handler.GetBool(kWriteAnisotropyId);
  kind_ = KindOrLiquid(handler.GetChoice(kKindId));
  normalKernel_ = handler.GetChoice<NormalKernel>(kNormalKernelId);
  curvatureScale_ = handler.GetDouble(kCurvatureScaleId);
  if (!(curvatureScale_ > 0)) curvatureScale_ = 1;
  return true;
}

bool PSurface_Properties::ResolveLinks() {
  if (!ParticleOperator::ResolveLinks()) return false;
  group_ = LinkedGroup(kGroupId);
  return group_ != nullptr;
}

void PSurface_Properties::ReleaseLinks() {
  group_ = nullptr;
  ParticleOperator::ReleaseLinks();
}

void PSurface_Properties::Advise() {
  if (!group_) Warn("no-group", "no particle group is linked: nothing gets a normal; link one under group");
  if (!WantsNormals() && !writeAnisotropy_) {
    Warn("nothing-wanted", "neither normals nor curvature nor anisotropy are wanted; turn one of them on");
  }
}

void PSurface_Properties::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (!group_ || !(WantsNormals() || writeAnisotropy_)) return;
  if (!group_->EnsureTree(kind_, false, kNeighbours)) return;
  PrepareConstraints();
  SetFlag(NodeActive, true);
}

void PSurface_Properties::Process(ProcessData&) {
  if (!IsActive()) return;
  ParticleList& list = *group_->list(kind_);
  const ParticleKdTree& tree = *group_->Tree(kind_);
  Tag(list);
  FindInner(list);
  if (WantsNormals()) {
    FindNormals(list, tree);
    FinishNormals();
    if (Spreads()) SpreadNormals(tree);
  }
  if (writeAnisotropy_) FindAnisotropies(list, tree);
  Write(list);
  normals_ = {}, curvatures_ = {}, anisotropies_ = {}, parts_ = {};
}

void PSurface_Properties::Tag(ParticleList& list) {
  std::vector<double> amounts;
  WeighAll(list, 1, amounts);
  parts_.assign(amounts.size(), Surface);
  ForRows(list, [&](const ParticleRows& rows, int) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      const bool out = amounts[std::size_t(rows.first + r)] == 0;
      std::uint16_t& bits = rows.TagFlags()[r];
      bits = static_cast<std::uint16_t>(out ? bits | ParticleFlag::Excluded : bits & ~ParticleFlag::Excluded);
      if (out) parts_[std::size_t(rows.first + r)] = Excluded;
    }
  });
}

void PSurface_Properties::FindInner(const ParticleList& list) {
  std::atomic<bool> carried{false};
  ForRows(list, [&](const ParticleRows& rows, int) {
    const auto density = rows.Property<double>(PP::Density);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      Part& part = parts_[std::size_t(rows.first + r)];
      const double d = density.Get(r, 1);
      if (part == Surface && (d < minimumDensity_ || d > maximumDensity_)) part = Inner;
      if (density.Has(r)) carried.store(true, std::memory_order_relaxed);
    }
  });
  if (!carried.load() && maximumDensity_ < 1) {
    Warn("no-density",
         "no particle carries a density: all count as inner ones and none gets a normal; add POP::Volume Properties "
         "before this node, or set maximum_density to 1");
  }
}

// Each pair counts half from either side, and only from those that take part.
void PSurface_Properties::FindNormals(const ParticleList& list, const ParticleKdTree& tree) {
  normals_.assign(parts_.size(), Vec3D());
  ForEachNeighbourhood(
      tree, scene->pool(), normalRadius_, [&](std::int32_t i, std::span<const Neighbour> near, std::int32_t) {
        if (parts_[std::size_t(i)] == Excluded || near.size() < 2) return;
        const Vec3D& x = list.Position(i);
        Vec3D sum;
        for (const Neighbour& n : near) {
          if (n.index == i || !(n.distance > 0)) continue;
          const auto q = static_cast<float>(n.distance / normalRadius_);
          const double share = parts_[std::size_t(n.index)] == Excluded ? 0.5 : 1;
          sum -= (x - list.Position(n.index)) * (share * NormalWeight(normalKernel_, q, normalRadius_));
        }
        normals_[std::size_t(i)] = sum;
      });
}

void PSurface_Properties::FinishNormals() {
  curvatures_.assign(parts_.size(), 0.0);
  const bool unit = writeNormal_ || Spreads();
  ParallelRange(scene->pool(), 0, static_cast<int>(parts_.size()), [&](int from, int to, int) {
    for (auto n = std::size_t(from); n < std::size_t(to); ++n) {
      const double length = Length(normals_[n]);
      if (parts_[n] != Surface || !(length > 0)) {
        normals_[n] = {};
        continue;
      }
      if (unit) normals_[n] = normals_[n] / length;
      curvatures_[n] = curvatureMode_ == CurvatureMode::Length ? length / curvatureScale_ : length;
    }
  });
}

void PSurface_Properties::SpreadNormals(const ParticleKdTree& tree) {
  ForEachNeighbourhood(
      tree, scene->pool(), curvatureRadius_, [&](std::int32_t i, std::span<const Neighbour> near, std::int32_t) {
        const auto at = std::size_t(i);
        if (parts_[at] == Excluded || near.size() < 2) {
          curvatures_[at] = 0;
          return;
        }
        if (normals_[at] == Vec3D()) return;
        double spread = 0, weights = 0;
        for (const Neighbour& n : near) {
          if (n.index == i) continue;
          const double w = std::max(0.0, 1 - n.distanceSquared / (curvatureRadius_ * curvatureRadius_));
          spread += (1 - Dot(normals_[at], normals_[std::size_t(n.index)])) * w, weights += w;
        }
        if (curvatureMode_ == CurvatureMode::SpreadSum) {
          curvatures_[at] = spread / curvatureScale_;
        } else if (weights > 0) {
          curvatures_[at] = spread / weights;
        }
      });
}

void PSurface_Properties::FindAnisotropies(const ParticleList& list, const ParticleKdTree& tree) {
  SheetAnisotropy inner;
  inner.stretches = Vec3D(kInnerStretch);
  anisotropies_.assign(parts_.size(), inner);
  ForEachNeighbourhood(tree, scene->pool(), anisotropyRadius_,
                       [&](std::int32_t i, std::span<const Neighbour> near, std::int32_t) {
                         if (parts_[std::size_t(i)] != Surface) return;
                         anisotropies_[std::size_t(i)] = SheetAnisotropyAt(list, near, anisotropyRadius_);
                       });
}

// Of a particle that the constraints leave out, the normal and the curvature are 0 and a stretch stays.
void PSurface_Properties::Write(ParticleList& list) {
  ForRows(list, [&](const ParticleRows& rows, int) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      const auto n = std::size_t(rows.first + r);
      const bool out = parts_[n] == Excluded;
      if (WantsNormals() && (!out || rows.Property<Vec3D>(PP::Normal).Has(r))) {
        rows.NeedProperty<Vec3D>(PP::Normal).Put(r, normals_[n]);
      }
      const auto curvature = rows.Property<double>(PP::Curvature);
      if (curvatureMode_ != CurvatureMode::None && (!out || curvature.Has(r))) {
        rows.NeedProperty<double>(PP::Curvature).Put(r, curvatures_[n]);
      }
      if (writeAnisotropy_ && !out) WriteAnisotropy(rows, r, anisotropies_[n]);
    }
  });
}

}  // namespace orlix

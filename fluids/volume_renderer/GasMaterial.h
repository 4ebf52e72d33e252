#pragma once
// The gas material (C4D_GasRenderer_Material) between the host's renderer and the marcher: which rays see the gas,
// where they meet its box, what becomes of the light.

#include <memory>

#include "fluids/scene/OrlixHook.h"
#include "fluids/volume_renderer/GasGlow.h"
#include "fluids/volume_renderer/RayMarcher.h"

namespace orlix {

class FluidSolver;

class GasMaterial final : public VolumeShader {
 public:
  // The object is a material of GasMaterialType; it and the hook outlive this.
  GasMaterial(const BaseObject& object, const OrlixHook& hook) : object_(object), hook_(hook) {}

  Status RenderStart(const RenderContext& context) override;
  void RenderEnd() override;
  int GlowPoints() const override { return glow_.empty() ? 0 : settings_.glowPoints; }
  GlowPoint GlowAt(const Vec3D& draws) const override {
    GlowPoint point = glow_.PointAt(draws);
    point.colour *= settings_.gatherBoost;
    return point;
  }
  bool Bounds(Vec3D& low, Vec3D& high) const override;
  // Of the cells that hold more than a fiftieth of the most; false where there is nothing.
  // mean: of what these cells hold; may be null.
  bool ContentBounds(Vec3D& low, Vec3D& high, double* mean = nullptr) const;
  bool Sees(std::uint32_t kind) const override;
  void Volume(const VolumeRay& ray, VolumeSample& sample) const override;
  Vec3D Transparency(const VolumeRay& ray) const override;

  // What of its settings shows nothing, or more than is meant.
  void Advise(Warnings& warnings, std::int32_t frame) const;
  std::string Path() const { return object_.Path(); }
  const RayMarcher* marcher() const { return marcher_.get(); }

 private:
  GasChannels FindChannels() const;
  // The solver of the scene that the gas belongs to; null when there is none.
  const FluidSolver* FindSolver() const;
  RayMarcher::Input MakeInput(const RenderContext& context) const;
  Vec3D ScatteredLight(const MarchRay& march, const VolumeRay& ray) const;
  void PostStep(Vec3D& colour, Vec3D& transmittance) const;

  const BaseObject& object_;
  const OrlixHook& hook_;
  GasSettings settings_;
  Gradient postGradient_;
  GasChannels channels_;
  std::unique_ptr<RayMarcher> marcher_;
  std::vector<Constraint*> constraints_;  // of the filters, from RenderStart to RenderEnd
  GasGlow glow_;
  bool wantsVelocity_ = false;
};

// One for each gas material of the document, in the order of creation.
std::vector<std::unique_ptr<GasMaterial>> CollectGasMaterials(const BaseDocument& document, const OrlixHook& hook);

}  // namespace orlix

#pragma once
// The channels of a scene as pictures see them: at a resolution of their own, with noise, filters and blurs worked in.
// Made once a frame, before the first ray. A channel that pictures see as it stands isn't copied.

#include <array>
#include <memory>
#include <vector>

#include "fluids/constraints/Constraint.h"
#include "fluids/volume_renderer/GasNoise.h"
#include "fluids/volume_renderer/GasSettings.h"
#include "host/render/ShaderSlot.h"
#include "host/render/VolumeShader.h"

namespace orlix {

// What the material links, as far as it is there. The grids stay the scene's.
struct GasChannels {
  const ScalarGrid* density = nullptr;
  const ScalarGrid* temperature = nullptr;
  const ScalarGrid* third = nullptr;
  std::array<const ScalarGrid*, 3> colour{};
  std::array<const ScalarGrid*, 3> velocity{}, fireVelocity{};
  std::array<const ScalarGrid*, 3> ownVelocity{};  // of the scene's solver, for motion blur without a link

  bool HasGas() const { return density || temperature || third; }
};

using ConstraintChain = std::vector<Constraint*>;

// The scene's own grid, until something is worked into it. Nothing may step the scene while it is looked at.
class RenderGrid {
 public:
  RenderGrid() = default;
  explicit RenderGrid(const ScalarGrid* seen) : seen_(seen) {}
  explicit RenderGrid(std::unique_ptr<ScalarGrid> own) : own_(std::move(own)), seen_(own_.get()) {}
  explicit operator bool() const { return seen_ != nullptr; }
  const ScalarGrid& operator*() const { return *seen_; }
  const ScalarGrid* operator->() const { return seen_; }
  // To write to: a copy, made by the first call. Throws std::bad_alloc.
  ScalarGrid& Own() {
    if (!own_) seen_ = (own_ = std::make_unique<ScalarGrid>(*seen_)).get();
    return *own_;
  }

 private:
  std::unique_ptr<ScalarGrid> own_;
  const ScalarGrid* seen_ = nullptr;
};

struct RenderCopies {
  RenderGrid density, temperature, third;
  std::array<RenderGrid, 3> colour;

  // The lattice that rays are clipped to: the density's, or the first of the others'.
  const GridSpace& Space() const;
};

struct CopyInput {
  const GasChannels& channels;
  const GasSettings& settings;
  const std::array<ConstraintChain, kGasFilters>& filters;
  const GasNoise* noise = nullptr;  // null without noise
  bool linearInputs = true;         // the colour channel holds linear colours
  WorkerPool& pool;
  const BaseThread* thread = nullptr;
  ShaderSlot colourShader{}, densityShader{};
};

// An error when memory doesn't suffice; a break leaves copies that nothing should be made of.
Status MakeRenderCopies(const CopyInput& input, RenderCopies& copies);

}  // namespace orlix

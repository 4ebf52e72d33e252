// The grid sampler (C4D_GridSampler_Shader): a channel's, a solver's or a level set's value at a place as a colour.

#include <algorithm>
#include <array>
#include <cmath>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/level_sets/iLevelSet.h"
#include "fluids/volume_renderer/RayMarcher.h"
#include "fluids/volume_renderer/SceneSampler.h"

namespace orlix {

namespace {

constexpr int kNode = 3000, kGradient = 3001, kSolverGrid = 3002, kInputLow = 3003, kInputHigh = 3004,
              kOutputLow = 3005, kOutputHigh = 3006, kOwnPosition = 3007, kShift = 3008, kColourMode = 3009,
              kPreview = 3010, kSystem = 3011, kWhite = 3012, kFactor = 3013, kPreviewScale = 3014;

enum class SolverGrid { Velocity, Surface };
constexpr Choice kSolverGrids[] = {{SolverGrid::Velocity, "velocity", "The velocity: colours by speed"},
                                   {SolverGrid::Surface, "surface", "The distance from a liquid's surface"}};
constexpr GradientKnot kBlackToWhite[] = {{0, {0, 0, 0}}, {1, {1, 1, 1}}};

constexpr Parameter kParameters[] = {
    LinkParameter(kNode, "source", kLinkChannel | kLinkSolver | kLinkVolume,
                  "A channel, a solver, a volume or a reconstruction"),
    GradientParameter(kGradient, "gradient", kBlackToWhite, "Colour by value"),
    ChoiceParameter(kSolverGrid, "solver_grid", SolverGrid::Velocity, kSolverGrids, "Of a solver: which of its grids"),
    FloatParameter(kInputLow, "input_low", 0.0, "", "Speed or distance in cells that takes the gradient's start"),
    FloatParameter(kInputHigh, "input_high", 1.0, "", "Speed or distance in cells that takes its end"),
    FloatParameter(kOutputLow, "output_low", 0.0, "", "Least of a component of the colour"),
    FloatParameter(kOutputHigh, "output_high", 1.0, "", "Most of a component"),
    BoolParameter(kOwnPosition, "own_position", false, "Look at the shader's own position, for one colour everywhere"),
    FloatParameter(kShift, "shift", 0.0, "s", "Kept; no step reads it").Hidden().Unread(),
    ChoiceParameter(kColourMode, "colour_by", SampledColour::Gradient, kSampledColours, "Where colours come from"),
    ButtonParameter(kPreview, "preview_black_body", "Draws the colours of hot bodies"),
    IntParameter(kSystem, "colour_system", 4, "", "Primaries of black-body colours: 0 NTSC to 5 Rec. 709")
        .Between(0, 5)
        .ShownWhen(kColourMode, Relation::Is, 1),
    VectorParameter(kWhite, "white_balance", {1, 1, 1}, "", "Factors of X, Y, Z")
        .Min(0)
        .ShownWhen(kColourMode, Relation::Is, 1),
    FloatParameter(kFactor, "temperature_factor", 1.0, "", "Factor of the temperature in the table")
        .Min(0)
        .ShownWhen(kColourMode, Relation::Is, 1),
    FloatParameter(kPreviewScale, "preview_scale", 1.0, "", "Of an interface's preview").Hidden().Unread(),
};

class GridSampler final : public SceneSampler {
 public:
  void Start(const BaseObject& object, const OrlixHook& hook, WorkerPool&) override {
    End();
    BaseObject* link = object.GetLink(kNode);
    if (iBase* node = link ? hook.FindNode(link) : nullptr) Choose(*node, object);
    if (!samplers_[0]) return;
    low_ = object.GetDouble(kInputLow), high_ = object.GetDouble(kInputHigh);
    own_ = object.GetBool(kOwnPosition), ownPlace_ = object.GlobalMatrix().off;
    colours_.hot = object.GetChoice<SampledColour>(kColourMode) == SampledColour::BlackBody;
    colours_.least = object.GetDouble(kOutputLow), colours_.most = object.GetDouble(kOutputHigh);
    colours_.Build(object, kGradient, object.GetDouble(kFactor), object.GetVector(kWhite),
                   static_cast<int>(object.GetInt(kSystem)));
  }
  void End() override { samplers_ = {}; }

  Vec3D ColourAt(const BaseObject&, const SurfacePlace& place) const override {
    if (!samplers_[0]) return Vec3D(1.0);
    const Vec3D x = own_ ? ownPlace_ : place.point;
    const Vec3D voxel = space_.VoxelOfHost(x), n(space_.dims);
    if (!(voxel.x >= 0 && voxel.y >= 0 && voxel.z >= 0 && voxel.x < n.x && voxel.y < n.y && voxel.z < n.z))
      return colours_.Of(0, 0);
    double temperature = 0;
    const double value = ValueAt(x, temperature);
    return colours_.Of(value, temperature);
  }

 private:
  enum class Kind { Speed, Distance, Vector, Scalar, Temperature };

  void Take(const ScalarGrid* grid, int component) {
    if (!grid || grid->count < 2) return;
    const Vec3D offset = kind_ == Kind::Distance ? Vec3D() : CellSampleOffset(grid->gridType);
    samplers_[static_cast<std::size_t>(component)] = HostSampler<double>(*grid, grid->space, offset);
    space_ = grid->space;
    least_ = grid->valueOffset, most_ = grid->valueScale;
  }
  void Choose(iBase& node, const BaseObject& object) {
    if (auto* solver = dynamic_cast<FluidSolver*>(&node)) {
      const bool speed = object.GetChoice<SolverGrid>(kSolverGrid) == SolverGrid::Velocity;
      kind_ = speed ? Kind::Speed : Kind::Distance;
      for (int c = 0; c < (speed ? 3 : 1); ++c)
        Take(speed ? solver->velocity.grids[c].get() : solver->GetSurfaceGrid(), c);
    } else if (auto* vector = dynamic_cast<ChannelBase_Vector*>(&node)) {
      kind_ = Kind::Vector;
      for (int c = 0; c < 3; ++c) Take(vector->grids[c].get(), c);
    } else if (auto* levelSet = dynamic_cast<iLevelSet*>(&node)) {
      kind_ = Kind::Distance;
      Take(levelSet->LevelSet(), 0);
    } else if (auto* channel = dynamic_cast<ChannelBase_Scalar*>(&node)) {
      const ScalarGrid* grid = channel->grid.get();
      kind_ = grid && grid->gridType == kGridTemperature ? Kind::Temperature : Kind::Scalar;
      Take(grid, 0);
    }
  }
  // From 0 to 1, and the temperature that goes with it, above the coldest.
  double ValueAt(const Vec3D& x, double& temperature) const {
    const double h = space_.cellSize;
    double value = 0;
    if (kind_ == Kind::Speed || kind_ == Kind::Vector) {
      const Vec3D v(samplers_[0](x), samplers_[1] ? samplers_[1](x) : 0, samplers_[2] ? samplers_[2](x) : 0);
      value = kind_ == Kind::Speed ? MapToUnit(Dot(v, v), high_ * high_ * h, low_ * low_ * h)
                                   : MapToUnit(Dot(v, v), most_, least_);
    } else {
      const double v = samplers_[0](x);
      value = kind_ == Kind::Distance ? MapToUnit(std::fabs(v), high_ * h, low_ * h)
                                      : MapToUnit(std::fabs(v), most_, least_);
      if (kind_ == Kind::Temperature) {
        temperature = v;
        return value;
      }
    }
    temperature = value * SampledColours::kHottest;
    return value;
  }

  Kind kind_ = Kind::Scalar;
  std::array<HostSampler<double>, 3> samplers_;
  GridSpace space_;
  double least_ = 0, most_ = 1, low_ = 0, high_ = 1;
  bool own_ = false;
  Vec3D ownPlace_;
  SampledColours colours_;
};

}  // namespace

const TypeInfo kGridSamplerType{
    .id = 1023637,
    .resource = "zq_shader_gridsampler",
    .alias = "grid_sampler",
    .className = "C4D_GridSampler_Shader",
    .label = "Grid Sampler",
    .text =
        "Colours by the value of a channel, the speed of a solver or the distance from a volume, on surfaces and in "
        "gas.",
    .role = TypeRole::Object,
    .kinds = kLinkHostObject | kLinkShader,
    .parameters = kParameters,
    .common = TransformParameters(),
    .createData = []() -> std::unique_ptr<ObjectData> { return std::make_unique<GridSampler>(); },
};

}  // namespace orlix

#include "fluids/caches/CacheRows.h"
#include "fluids/caches/GridCacher.h"

namespace orlix {

const TypeInfo& GridCacher::Type() {
  using namespace cache_rows;
  static constexpr Choice kInterpolations[] = {
      {Interpolation::Trilinear, "trilinear", "Eight nodes"},
      {Interpolation::Cosine, "cosine", "Eight nodes, eased"},
      {Interpolation::Cubic, "cubic", "Lagrange through 64 nodes"},
      {Interpolation::MonotoneCubic, "monotone_cubic", "64 nodes, without overshoot"},
      {Interpolation::QuadraticBSpline, "quadratic", "Quadratic B-spline, 27 nodes; blurs"},
  };

  static constexpr Parameter kParameters[] = {
      ListParameter(kNodesId, "nodes", kLinkChannel | kLinkSolver | kLinkVolume,
                    "Whose grids are cached; a file's grids go by their place in this list"),
      ButtonParameter(1017, "collect_nodes", "Enters all channels in the list"),
      kMode,
      kRenderOnly,
      kFolderSource,
      kChooseFolder,
      kFolder,
      Stem("What file names begin with; orlix_grid_c4d when empty"),
      Digits(kDigitsId),
      ChoiceParameter(kFormatId, "format", Format::Cache, kCacheFormat, "Kind of the files"),
      CompressionRow("How grids are stored"),
      cache_rows::kNumbering,
      kFrame,
      kFrameOffset,
      kReverse,
      ChoiceParameter(kInterpolationId, "interpolation", Interpolation::Trilinear, kInterpolations,
                      "How played grids get onto a lattice that differs from theirs"),
      ActiveIn(kActiveInId),
      ButtonParameter(1019, "add_duration", "Adds a duration beneath the object and links it"),
      BoolParameter(1005, "stored", false, "Kept with the scene, without an effect").Hidden().Unread(),
      kFrameText,
      kFolderText,
      DeleteButton(1016),
  };
  static const TypeInfo kType = {
      .id = 1300098,
      .resource = "zq_cache",
      .className = "C4D_Operator_GridCache_Object",
      .label = "GOP::Cacher",
      .text =
          "Records the grids of channels, solvers and volumes, one file a frame, and plays them back in place of the "
          "computation.",
      .kinds = kLinkCache,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
  };
  return kType;
}

}  // namespace orlix

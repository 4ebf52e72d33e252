#include "fluids/caches/GridCacher.h"

namespace orlix {

const TypeInfo& GridCacher::Type() {
  static constexpr Choice kModes[] = {
      {CacheMode::Playback, "playback", "Frames are read, in place of the computation"},
      {CacheMode::Record, "record", "Each frame is written when it has been computed"},
  };
  static constexpr Choice kCompressions[] = {
      {Compression::None, "none", "Grids as they are"},
      {Compression::Packed, "packed", "Grids compressed without loss"},
  };
  static constexpr Choice kFormats[] = {{Format::Cache, "cache", "The engine's own frame files"}};
  static constexpr Choice kNumberings[] = {
      {Numbering::Simulation, "simulation", "Frames count from the simulation's start"},
      {Numbering::Document, "document", "The document's frames"},
  };
  static constexpr Choice kFolderSources[] = {
      {FolderSource::Document, "document", "The folder of the scene file"},
      {FolderSource::Own, "own", "The folder of this object"},
  };
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
      ChoiceParameter(kModeId, "mode", CacheMode::Playback, kModes, "Whether frames are read or written"),
      BoolParameter(kRenderOnlyId, "render_only", false, "Acts only while the scene is rendering"),
      ChoiceParameter(kFolderSourceId, "folder_source", FolderSource::Document, kFolderSources,
                      "Which folder holds the frames"),
      ButtonParameter(1002, "choose_folder", "Please specify a cache folder..."),
      StringParameter(kFolderId, "folder", "",
                      "Folder of the frames, relative to the scene file; taken when folder_source is own"),
      StringParameter(kStemId, "stem", "", "What file names begin with; orlix_grid_c4d when empty"),
      IntParameter(kDigitsId, "digits", 5, "", "Width of the frame number in file names; padded from 2 to 6"),
      ChoiceParameter(kFormatId, "format", Format::Cache, kFormats, "Kind of the files"),
      ChoiceParameter(kCompressionId, "compression", Compression::None, kCompressions, "How grids are stored"),
      ChoiceParameter(kNumberingId, "numbering", Numbering::Simulation, kNumberings, "How recorded frames are counted"),
      IntParameter(kFrameId, "frame", -1, "frames",
                   "Plays this frame instead of the current one; -1 plays the current one"),
      IntParameter(kFrameOffsetId, "frame_offset", 0, "frames", "Added to the played frame"),
      BoolParameter(kReverseId, "reverse", false, "Plays backwards from the last frame that is there"),
      ChoiceParameter(kInterpolationId, "interpolation", Interpolation::Trilinear, kInterpolations,
                      "How played grids get onto a lattice that differs from theirs"),
      LinkParameter(kActiveInId, "active_in", kLinkDuration, "When the cache acts; without one, always"),
      ButtonParameter(1019, "add_duration", "Adds a duration beneath the object and links it"),
      BoolParameter(1005, "stored", false, "Kept with the scene, without an effect").Hidden().Unread(),
      StringParameter(kFrameTextId, "frame_text", "", "What the frame's file holds; written by the cache"),
      StringParameter(kFolderTextId, "folder_text", "", "What the folder holds; written by the cache"),
      ButtonParameter(1016, "delete_cache", "Really? Deletion cannot be undone! Choose wisely.."),
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

#include "fluids/caches/GridCacher.h"

namespace orlix {

namespace {

constexpr Choice kModes[] = {
    {0, "playback", "Frames are read, in place of the computation"},
    {1, "record", "Each frame is written when it has been computed"},
};
constexpr Choice kCompressions[] = {
    {0, "none", "Grids as they are"},
    {1, "packed", "Grids compressed without loss"},
};
constexpr Choice kFormats[] = {{0, "cache", "The engine's own frame files"}};
constexpr Choice kNumberings[] = {
    {0, "simulation", "Frames count from the simulation's start"},
    {1, "document", "The document's frames"},
};
constexpr Choice kFolderSources[] = {
    {0, "document", "The folder of the scene file"},
    {1, "own", "The folder of this object"},
};
constexpr Choice kInterpolations[] = {
    {0, "trilinear", "Eight nodes"},
    {1, "cosine", "Eight nodes, eased"},
    {2, "cubic", "Lagrange through 64 nodes"},
    {3, "monotone_cubic", "64 nodes, without overshoot"},
    {4, "quadratic", "Quadratic B-spline, 27 nodes; blurs"},
};

constexpr Parameter kParameters[] = {
    ListParameter(GridCacher::kNodesId, "nodes", kLinkChannel | kLinkSolver | kLinkVolume,
                  "Whose grids are cached; a file's grids go by their place in this list"),
    ButtonParameter(1017, "collect_nodes", "Enters all channels in the list"),
    ChoiceParameter(Cache_OperatorBase::kModeId, "mode", 0, kModes, "Whether frames are read or written"),
    BoolParameter(Cache_OperatorBase::kRenderOnlyId, "render_only", false, "Acts only while the scene is rendering"),
    ChoiceParameter(Cache_OperatorBase::kFolderSourceId, "folder_source", 0, kFolderSources,
                    "Which folder holds the frames"),
    ButtonParameter(1002, "choose_folder", "Please specify a cache folder..."),
    StringParameter(Cache_OperatorBase::kFolderId, "folder", "",
                    "Folder of the frames, relative to the scene file; taken when folder_source is own"),
    StringParameter(Cache_OperatorBase::kStemId, "stem", "", "What file names begin with; orlix_grid_c4d when empty"),
    IntParameter(1021, "digits", 5, "", "Width of the frame number in file names; padded from 2 to 6"),
    ChoiceParameter(Cache_OperatorBase::kFormatId, "format", 0, kFormats, "Kind of the files"),
    ChoiceParameter(Cache_OperatorBase::kCompressionId, "compression", 0, kCompressions, "How grids are stored"),
    ChoiceParameter(Cache_OperatorBase::kNumberingId, "numbering", 0, kNumberings, "How recorded frames are counted"),
    IntParameter(Cache_OperatorBase::kFrameOverrideId, "frame", -1, "frames",
                 "Plays this frame instead of the current one; -1 plays the current one"),
    IntParameter(Cache_OperatorBase::kFrameOffsetId, "frame_offset", 0, "frames", "Added to the played frame"),
    BoolParameter(Cache_OperatorBase::kReverseId, "reverse", false,
                  "Plays backwards from the last frame that is there"),
    ChoiceParameter(GridCacher::kInterpolationId, "interpolation", 0, kInterpolations,
                    "How played grids get onto a lattice that differs from theirs"),
    LinkParameter(1018, "active_in", kLinkDuration, "When the cache acts; without one, always"),
    ButtonParameter(1019, "add_duration", "Adds a duration beneath the object and links it"),
    BoolParameter(1005, "stored", false, "Kept with the scene, without an effect").Hidden(),
    StringParameter(1008, "frame_text", "", "What the frame's file holds; written by the cache"),
    StringParameter(1015, "folder_text", "", "What the folder holds; written by the cache"),
    ButtonParameter(1016, "delete_cache", "Really? Deletion cannot be undone! Choose wisely.."),
};

}  // namespace

const TypeInfo& GridCacher::Type() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 1300098;
    type.resource = "zq_cache";
    type.className = "C4D_Operator_GridCache_Object";
    type.label = "GOP::Cacher";
    type.text =
        "Records the grids of channels, solvers and volumes, one file a frame, and plays them back in place of the "
        "computation.";
    type.kinds = kLinkCache;
    type.parameters = kParameters;
    type.common = CommonNodeParameters();
    return type;
  }();
  return kType;
}

}  // namespace orlix

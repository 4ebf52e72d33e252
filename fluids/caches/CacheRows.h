#pragma once
// The rows that the three cache nodes share.

#include "fluids/caches/Cache_OperatorBase.h"

namespace orlix::cache_rows {

using Base = Cache_OperatorBase;

inline constexpr Choice kModes[] = {
    {Base::CacheMode::Playback, "playback", "Frames are read, in place of the computation"},
    {Base::CacheMode::Record, "record", "Each frame is written when it has been computed"},
};
inline constexpr Choice kNumberings[] = {
    {Base::Numbering::Simulation, "simulation", "Frames count from the simulation's start"},
    {Base::Numbering::Document, "document", "The document's frames"},
};
inline constexpr Choice kFolderSources[] = {
    {Base::FolderSource::Document, "document", "The folder of the scene file"},
    {Base::FolderSource::Own, "own", "The folder of this object"},
};
inline constexpr Choice kCompressions[] = {
    {Base::Compression::None, "none", "Numbers as they are"},
    {Base::Compression::Packed, "packed", "Compressed without loss"},
};
inline constexpr Choice kCacheFormat[] = {{Base::Format::Cache, "cache", "The engine's own frame files"}};

inline constexpr Parameter kMode =
    ChoiceParameter(Base::kModeId, "mode", Base::CacheMode::Playback, kModes, "Whether frames are read or written");
inline constexpr Parameter kRenderOnly =
    BoolParameter(Base::kRenderOnlyId, "render_only", false, "Acts only while the scene is rendering");
inline constexpr Parameter kFolderSource =
    ChoiceParameter(Base::kFolderSourceId, "folder_source", Base::FolderSource::Document, kFolderSources,
                    "Which folder holds the frames");
inline constexpr Parameter kChooseFolder = ButtonParameter(1002, "choose_folder", "Please specify a cache folder...");
inline constexpr Parameter kFolder =
    StringParameter(Base::kFolderId, "folder", "", "Folder of the frames, relative to the scene file")
        .ShownWhen(Base::kFolderSourceId, Relation::Is, Base::FolderSource::Own);
inline constexpr Parameter kNumbering = ChoiceParameter(Base::kNumberingId, "numbering", Base::Numbering::Simulation,
                                                        kNumberings, "How recorded frames are counted");
inline constexpr Parameter kFrame = IntParameter(
    Base::kFrameId, "frame", -1, "frames", "Plays this frame instead of the current one; -1 plays the current one");
inline constexpr Parameter kFrameOffset =
    IntParameter(Base::kFrameOffsetId, "frame_offset", 0, "frames", "Added to the played frame");
inline constexpr Parameter kReverse =
    BoolParameter(Base::kReverseId, "reverse", false, "Plays backwards from the last frame that is there");
inline constexpr Parameter kFrameText =
    StringParameter(Base::kFrameTextId, "frame_text", "", "What the frame's file holds; written by the cache");
inline constexpr Parameter kFolderText =
    StringParameter(Base::kFolderTextId, "folder_text", "", "What the folder holds; written by the cache");

constexpr Parameter Stem(const char* text) { return StringParameter(Base::kStemId, "stem", "", text); }
constexpr Parameter Digits(int id) {
  return IntParameter(id, "digits", 5, "", "Width of the frame number in file names; padded from 2 to 6");
}
constexpr Parameter ActiveIn(int id) {
  return LinkParameter(id, "active_in", kLinkDuration, "When the cache acts; without one, always");
}
constexpr Parameter CompressionRow(const char* text) {
  return ChoiceParameter(Base::kCompressionId, "compression", Base::Compression::None, kCompressions, text);
}
constexpr Parameter DeleteButton(int id) {
  return ButtonParameter(id, "delete_cache", "Really? Deletion cannot be undone! Choose wisely..");
}

}  // namespace orlix::cache_rows

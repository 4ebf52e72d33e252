#include "fluids/caches/C4D_Operator_GridCache_Object.h"

#include <fmt/format.h>

namespace orlix {

using FolderSource = Cache_OperatorBase::FolderSource;

std::string CacheFolderText(const CacheInfo& info) {
  const std::int64_t length = std::int64_t(info.lastFrame) - info.firstFrame + 1;
  return fmt::format("Length: {} ({} - {})\nSize: {}\nMissing Frames: {}\n", length, info.firstFrame, info.lastFrame,
                     FormatSize(info.size), CountFrames(info.missing));
}

std::string GridFrameText(const GridCacheInfo& info) {
  std::string text = fmt::format("Grids: {}\nMax. cell count: {}\n", info.gridTypes.size(), CellCount(info.maxDims));
  for (std::size_t i = 0; i < info.gridTypes.size(); i++) {
    text += fmt::format("Grid Type ({}): {}\n", i + 1, GridTypeText(info.gridTypes[i]));
  }
  return text;
}

void UpdateGridCacheDescription(GridCacher& cacher) {
  C4D_InterfaceHandler& handler = cacher.handler;
  handler.SetString(Cache_OperatorBase::kStemId, cacher.name().Stem());
  if (handler.GetChoice<FolderSource>(Cache_OperatorBase::kFolderSourceId) == FolderSource::Document) {
    handler.SetString(Cache_OperatorBase::kFolderId, cacher.name().folder.string());
  }
  handler.SetString(GridCacher::kFrameTextId, GridFrameText(cacher.ReadFrameInfo()));
  handler.SetString(GridCacher::kFolderTextId, CacheFolderText(cacher.GetCacheInfo()));
}

}  // namespace orlix

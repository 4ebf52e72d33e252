#include "fluids/caches/C4D_Operator_GridCache_Object.h"

#include <fmt/format.h>

namespace orlix {

using FolderSource = Cache_OperatorBase::FolderSource;

std::string CacheFolderText(const CacheInfo& info) {
  const std::int64_t length = std::int64_t(info.lastFrame) - info.firstFrame + 1;
  return fmt::format("Length: {} ({} - {})\nSize: {}\nMissing Frames: {}\n", length, info.firstFrame, info.lastFrame,
                     FormatSize(info.size), CountFrames(info.missing));
}

void UpdateCacheDescription(Cache_OperatorBase& cacher) {
  C4D_InterfaceHandler& handler = cacher.handler;
  handler.SetString(Cache_OperatorBase::kStemId, cacher.name().Stem());
  if (handler.GetChoice<FolderSource>(Cache_OperatorBase::kFolderSourceId) == FolderSource::Document) {
    handler.SetString(Cache_OperatorBase::kFolderId, cacher.name().folder.string());
  }
  handler.SetString(Cache_OperatorBase::kFrameTextId, cacher.FrameText());
  handler.SetString(Cache_OperatorBase::kFolderTextId, CacheFolderText(cacher.GetCacheInfo()));
}

}  // namespace orlix

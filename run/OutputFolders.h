#pragma once
// The folders that a run writes into, made and locked against a second run.

#include <filesystem>
#include <vector>

#include "host/files/FolderLock.h"
#include "host/objects/BaseDocument.h"

namespace orlix {

// Two names of one folder are one. What dead runs left half-written there is removed. Output, with the other's process
// id, when another run holds one of them.
Result<std::vector<FolderLock>> LockOutputFolders(const std::vector<std::filesystem::path>& folders);

// Output when a cache that records has files of frames first to last already: what lies there may be a night's work.
Status RefuseToRecordOver(const BaseDocument& document, int first, int last);

}  // namespace orlix

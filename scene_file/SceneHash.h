#pragma once
// A number for all that decides a simulation's course: the scene as it was understood, overrides included, the files
// that it reads, and the libraries of the plug-ins whose types it has. Not the range
// of frames, nor what only pictures show.

#include "globals/Result.h"
#include "host/objects/BaseDocument.h"

namespace orlix {

// Taken right after reading, before keyframes were set. InputFile when a file that the scene names can't be read.
Result<std::uint64_t> HashScene(const BaseDocument& document);

}  // namespace orlix

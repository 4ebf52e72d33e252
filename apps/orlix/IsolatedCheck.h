#pragma once
// A check by a library that trusts its input runs in a process of its own, with bounded time and memory: a file that
// makes it crash is a broken file, not the end of the program.

#include <filesystem>

#include "globals/Result.h"

namespace orlix {

// What check says of the path; InputFile when it crashed or took more than 5 s of work and 1 s for each 20 MB, or more
// than 2 GB of memory and 16 times the file's size. Only from a program without other threads.
Status RunIsolated(Status (*check)(const std::filesystem::path& path), const std::filesystem::path& path);

}  // namespace orlix

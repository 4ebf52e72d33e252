#pragma once
// The grids of a grid cache's frame file, under names for other programs.

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "exchange/GridNames.h"
#include "exchange/vdb/VdbFile.h"

namespace orlix {

struct CachedFields {
  std::vector<std::unique_ptr<ScalarGrid>> grids;  // what the fields show
  std::vector<VdbField> fields;
};

// A frame file holds lattices and types, no names. The velocity, temperature, fuel, flame and level sets are known by
// their types; any other entry is a "density" unless given names it. given is empty, or has a name for each entry of
// the file, in its order; an empty one leaves an entry its own. Usage for another count.
Result<CachedFields> ReadCachedFields(const std::filesystem::path& path, VdbNames names,
                                      std::span<const std::string> given);

}  // namespace orlix

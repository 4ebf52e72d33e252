#pragma once
// A lattice as cache files hold it.

#include "fluids/grids/GridSpace.h"
#include "host/files/HyperFile.h"

namespace orlix {

bool WriteGridSpace(HyperFileWriter& file, const GridSpace& space);

// A lattice from a file is built anew from its dims, size, cell and origin, so that its derived fields agree. Fails
// when the file does, and on a lattice that can't be: no cells or more than an index counts, a count that disagrees
// with the dims, sizes that aren't above 0, values that are no numbers.
Status ReadGridSpace(HyperFileReader& file, const std::string& fileName, GridSpace& space);

}  // namespace orlix

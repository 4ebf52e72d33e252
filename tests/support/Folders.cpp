#include "tests/support/Folders.h"

namespace orlix {

// The one source that knows paths, so that a compiler cache serves every checkout.
std::string SourceFolder() { return ORLIX_SOURCE_DIR; }
std::string ProgramFolder() { return ORLIX_BINARY_DIR; }

}  // namespace orlix

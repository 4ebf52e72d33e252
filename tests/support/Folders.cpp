#include "tests/support/Folders.h"

#include "tests/support/Sanitized.h"

namespace orlix {

// The one source that knows paths, so that a compiler cache serves every checkout.
std::string SourceFolder() { return ORLIX_SOURCE_DIR; }
std::string ProgramFolder() { return ORLIX_BINARY_DIR; }

namespace test {
const bool kSanitized = ORLIX_SANITIZED;
}

}  // namespace orlix

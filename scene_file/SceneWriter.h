#pragma once
// A document as one scene file: what differs from the defaults, links as the shortest name that is theirs alone.

#include <string>

#include "globals/Result.h"
#include "host/objects/BaseDocument.h"

namespace orlix {

// Reading the text gives the same document. Internal when a value is no number, which a scene file can't hold.
Result<std::string> WriteScene(const BaseDocument& document);

}  // namespace orlix

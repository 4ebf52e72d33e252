#pragma once
// A gas material for scenes that have none, so that a first picture shows something: which channels it shows, and how,
// follows from their types, their ranges and the size of the container in cells.

#include "host/objects/BaseDocument.h"

namespace orlix {

// Adds the material at the end of the document; null, and nothing is added, where the scene has one or has no channel
// that a picture could show.
BaseObject* AddDefaultLook(BaseDocument& document);

// density: the mean of what the channel holds where it holds something, as a run before has seen it; 0 when nothing is
// known.
void FitDefaultLook(BaseObject& look, double density);

}  // namespace orlix

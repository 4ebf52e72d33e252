#pragma once
// What a constraint tells when it confines nothing.

#include "fluids/constraints/Constraint.h"

namespace orlix {

// Tells that nothing is linked by the row of this key, where link is null: then all that list the constraint act in
// full. Between ResolveLinks and ReleaseLinks.
void AdviseMissingLink(const Constraint& constraint, const void* link, const char* key);
// Of a constraint that looks at particles: tells of a node that lists it and asks it about cells alone, which pass it.
void AdviseListsOfCells(const Constraint& constraint);

}  // namespace orlix

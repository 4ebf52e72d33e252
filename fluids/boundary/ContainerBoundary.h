#pragma once
// The velocity at the faces of a container.

#include <array>
#include <cstdint>

#include "fluids/grids/Grid.h"

namespace orlix {

class WorkerPool;

// On the staggered components u, v, w: no flow through the wall of a closed face (ClosedFace bits), which stands one
// cell inside the grid; the ghost layer behind it, and behind an open face, copies the component normal to the face;
// behind a closed one the tangential components are slip times those beside it (1 free slip, 0 no slip).
void ApplyContainerVelocity(const std::array<GridView<double>, 3>& velocity, std::uint8_t closedFaces, float slip,
                            WorkerPool& pool);

}  // namespace orlix

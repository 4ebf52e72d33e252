#pragma once

namespace orlix {

class NodeFactory;

// Surfaces: level sets from particles and from other level sets, their smoothing, meshes and what works on them.
void RegisterSurfacingTypes(NodeFactory& factory);

}  // namespace orlix

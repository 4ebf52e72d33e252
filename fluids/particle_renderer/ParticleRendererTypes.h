#pragma once

namespace orlix {

class NodeFactory;

// The material of particles.
void RegisterParticleRendererTypes(NodeFactory& factory);

}  // namespace orlix

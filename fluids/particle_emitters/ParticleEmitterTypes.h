#pragma once

namespace orlix {

class NodeFactory;

// Emitters of particles and their settings.
void RegisterParticleEmitterTypes(NodeFactory& factory);

}  // namespace orlix

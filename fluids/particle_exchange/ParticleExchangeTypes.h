#pragma once

namespace orlix {

class NodeFactory;

// What carries values between grids and particles.
void RegisterParticleExchangeTypes(NodeFactory& factory);

}  // namespace orlix

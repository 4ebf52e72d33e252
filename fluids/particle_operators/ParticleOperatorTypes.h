#pragma once

namespace orlix {

class NodeFactory;

void RegisterParticleOperatorTypes(NodeFactory& factory);

}  // namespace orlix

#pragma once

namespace orlix {

class NodeFactory;
void RegisterParticleTypes(NodeFactory& factory);

}  // namespace orlix

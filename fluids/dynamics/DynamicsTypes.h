#pragma once

namespace orlix {

class NodeFactory;

// The solvers.
void RegisterDynamicsTypes(NodeFactory& factory);

}  // namespace orlix

#pragma once

namespace orlix {

class NodeFactory;

// The liquid solvers.
void RegisterLiquidTypes(NodeFactory& factory);

}  // namespace orlix

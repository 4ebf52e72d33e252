#pragma once

namespace orlix {

class NodeFactory;

// Durations, properties, kernels.
void RegisterHelperTypes(NodeFactory& factory);

}  // namespace orlix

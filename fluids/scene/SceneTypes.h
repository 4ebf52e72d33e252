#pragma once

namespace orlix {

class NodeFactory;

// The root object, durations, properties, kernels.
void RegisterSceneTypes(NodeFactory& factory);

}  // namespace orlix

#pragma once

namespace orlix {

class NodeFactory;

// The gas material.
void RegisterVolumeRendererTypes(NodeFactory& factory);

}  // namespace orlix

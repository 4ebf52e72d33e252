#pragma once

namespace orlix {

class NodeFactory;

// The volumes and the Obstacle tag.
void RegisterVolumeTypes(NodeFactory& factory);

}  // namespace orlix

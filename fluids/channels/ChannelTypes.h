#pragma once

namespace orlix {

class NodeFactory;

// The channels and the settings that name them.
void RegisterChannelTypes(NodeFactory& factory);

}  // namespace orlix

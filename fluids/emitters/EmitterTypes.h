#pragma once

namespace orlix {

class NodeFactory;

// Emitters and their settings.
void RegisterEmitterTypes(NodeFactory& factory);

}  // namespace orlix

#pragma once

namespace orlix {

class NodeFactory;

// Grid emitters and their settings.
void RegisterEmitterTypes(NodeFactory& factory);

}  // namespace orlix

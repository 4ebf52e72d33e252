#pragma once

namespace orlix {

class NodeFactory;

void RegisterForceTypes(NodeFactory& factory);

}  // namespace orlix

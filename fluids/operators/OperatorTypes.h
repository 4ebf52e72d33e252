#pragma once

namespace orlix {

class NodeFactory;

void RegisterOperatorTypes(NodeFactory& factory);

}  // namespace orlix

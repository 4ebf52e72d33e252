#pragma once

namespace orlix {

class NodeFactory;

void RegisterConstraintTypes(NodeFactory& factory);

}  // namespace orlix

#pragma once

namespace orlix {

class NodeFactory;

void RegisterFoamTypes(NodeFactory& factory);

}  // namespace orlix

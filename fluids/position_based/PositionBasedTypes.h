#pragma once

namespace orlix {

class NodeFactory;

void RegisterPositionBasedTypes(NodeFactory& factory);

}  // namespace orlix

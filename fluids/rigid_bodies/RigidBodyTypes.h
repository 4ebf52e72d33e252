#pragma once
// The nodes of this folder.

namespace orlix {

class NodeFactory;

void RegisterRigidBodyTypes(NodeFactory& factory);

}  // namespace orlix

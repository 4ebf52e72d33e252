#pragma once

namespace orlix {

class NodeFactory;

// The root object.
void RegisterSceneTypes(NodeFactory& factory);

}  // namespace orlix

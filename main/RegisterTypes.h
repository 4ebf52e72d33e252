#pragma once
// Registration of every type, and the names of those that are not built yet.

namespace orlix {

class NodeFactory;

// Fills the factory and its type registry.
void RegisterTypes(NodeFactory& factory);

}  // namespace orlix

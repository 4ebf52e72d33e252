#pragma once

namespace orlix {

class NodeFactory;

// The caches.
void RegisterCacheTypes(NodeFactory& factory);

}  // namespace orlix

#pragma once
// Of two nodes that get in each other's way the later one tells.

#include "fluids/scene/OrlixScene.h"

namespace orlix {

// f(other) for each enabled node of T in the node's list whose object was made before the node's own.
template <class T, class F>
void ForEachEarlier(const T& node, F&& f) {
  const std::int32_t list = node.GetNodeBaseType();
  node.GetScene().ForEachNode(list, list, [&](const iBase& each) {
    const auto* other = dynamic_cast<const T*>(&each);
    if (!other || !other->IsEnabled()) return;
    if (other->handler.hostObject()->creationNumber() < node.handler.hostObject()->creationNumber()) f(*other);
  });
}

}  // namespace orlix

#pragma once
// Builds the node of a host object by its type id. A node class has a static Type() with its id and parameter table.

#include <map>
#include <memory>

#include "fluids/scene/iBase.h"

namespace orlix {

class iRigidWorld;

class NodeFactory {
 public:
  explicit NodeFactory(TypeRegistry& types) : types_(types) {}

  // Registers the class's type and its constructor.
  template <class Node>
  void Add() {
    AddAs<Node>(Node::Type());
  }
  // The same class under a further type: two types may build one class.
  template <class Node>
  void AddAs(const TypeInfo& type) {
    types_.Add(type);
    AddBase<Node>(type.id);
  }
  // The class of all types with this base; no object is of the base itself.
  template <class Node>
  void AddBase(int id) {
    creators_[id] = [](BaseObject& object, OrlixScene& scene) -> std::unique_ptr<iBase> {
      return std::make_unique<Node>(&object, scene);
    };
  }
  // A type that builds no node.
  void AddTypeOnly(const TypeInfo& type) { types_.Add(type); }

  // Null for an unknown id.
  std::unique_ptr<iBase> Create(int id, BaseObject& object, OrlixScene& scene) const {
    const auto found = creators_.find(id);
    return found == creators_.end() ? nullptr : found->second(object, scene);
  }
  TypeRegistry& types() const { return types_; }

  // Makes the world of each scene's bodies.
  std::unique_ptr<iRigidWorld> (*makeRigidWorld)() = nullptr;

 private:
  using Creator = std::unique_ptr<iBase> (*)(BaseObject&, OrlixScene&);
  TypeRegistry& types_;
  std::map<int, Creator> creators_;
};

}  // namespace orlix

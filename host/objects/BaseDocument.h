#pragma once
// A document: trees of objects, its time, and the keyframes of its parameters.

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/objects/BaseObject.h"

namespace orlix {

// One parameter over time. Vectors have three curves, one a component. Knots stand at frames.
struct KeyTrack {
  std::uint64_t object = 0;
  int parameter = 0;
  std::vector<SplineData> components;  // 1 or 3
};

class BaseDocument {
 public:
  explicit BaseDocument(const TypeRegistry& types) : types_(&types) {}
  BaseDocument(const BaseDocument&) = delete;
  BaseDocument& operator=(const BaseDocument&) = delete;

  const TypeRegistry& types() const { return *types_; }

  double fps = 30;
  BaseTime minTime, maxTime{90, 30};
  std::string folder;  // files named in the scene are relative to it

  // Makes an object and puts it last: among the children of parent, or at the top when parent is null.
  BaseObject& AddObject(const TypeInfo& type, BaseObject* parent = nullptr);
  BaseObject& AddTag(const TypeInfo& type, BaseObject& owner);
  // Removes the object with all that is beneath it. Links to it find nothing from then on.
  void RemoveObject(BaseObject& object);
  // Puts the object, with all that is beneath it, under another parent, last.
  void MoveObject(BaseObject& object, BaseObject* newParent);

  const std::vector<std::unique_ptr<BaseObject>>& objects() const { return objects_; }
  // By creation number; null when there is none (any more).
  BaseObject* FindObject(std::uint64_t creationNumber) const;
  // By name where it is unique, otherwise by a path "Plume/smoke" that ends the object's own, or by its whole path with
  // a slash before it; null when none or several fit, and count tells which.
  BaseObject* FindByPath(std::string_view path, int* count = nullptr) const;
  // Every object, depth first, in tree order; tags follow their object.
  void ForEachObject(const std::function<void(BaseObject&)>& visit) const;
  std::vector<BaseObject*> ObjectsOfType(int typeId) const;  // depth first

  const BaseTime& time() const { return time_; }
  // Moves the time, sets the keyframed parameters and brings generated geometry up to date.
  Status SetTime(const BaseTime& time);
  void AddTrack(KeyTrack track) { tracks_.push_back(std::move(track)); }
  void RemoveTracks(std::uint64_t object, int parameter);
  const std::vector<KeyTrack>& tracks() const { return tracks_; }
  // The value of a tracked parameter at a time, without setting it.
  Value ValueOfTrack(const KeyTrack& track, const BaseTime& time) const;

 private:
  const TypeRegistry* types_;
  std::vector<std::unique_ptr<BaseObject>> objects_;
  std::unordered_map<std::uint64_t, BaseObject*> byNumber_;
  std::uint64_t lastNumber_ = 0;
  BaseTime time_;
  std::vector<KeyTrack> tracks_;

  std::unique_ptr<BaseObject> Detach(BaseObject& object);
  void Forget(BaseObject& object);
};

}  // namespace orlix

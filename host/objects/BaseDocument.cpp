#include "host/objects/BaseDocument.h"

#include <algorithm>
#include <atomic>
#include <new>

#include "host/threads/WorkerPool.h"

namespace orlix {

BaseObject& BaseDocument::AddObject(const TypeInfo& type, BaseObject* parent) {
  auto object = std::make_unique<BaseObject>(type, *this, ++lastNumber_);
  BaseObject& made = *object;
  made.parent_ = parent;
  byNumber_.emplace(made.creationNumber(), &made);
  (parent ? parent->children_ : objects_).push_back(std::move(object));
  return made;
}

BaseObject& BaseDocument::AddTag(const TypeInfo& type, BaseObject& owner) {
  auto tag = std::make_unique<BaseObject>(type, *this, ++lastNumber_);
  BaseObject& made = *tag;
  made.parent_ = &owner;
  byNumber_.emplace(made.creationNumber(), &made);
  owner.tags_.push_back(std::move(tag));
  return made;
}

std::unique_ptr<BaseObject> BaseDocument::Detach(BaseObject& object) {
  const auto take = [&](auto& list) -> std::unique_ptr<BaseObject> {
    const auto at = std::find_if(list.begin(), list.end(), [&](const auto& entry) { return entry.get() == &object; });
    if (at == list.end()) return nullptr;
    std::unique_ptr<BaseObject> taken = std::move(*at);
    list.erase(at);
    return taken;
  };
  if (!object.parent_) return take(objects_);
  std::unique_ptr<BaseObject> taken = take(object.parent_->children_);
  return taken ? std::move(taken) : take(object.parent_->tags_);
}

void BaseDocument::Forget(BaseObject& object) {
  for (const auto& child : object.children_) Forget(*child);
  for (const auto& tag : object.tags_) Forget(*tag);
  byNumber_.erase(object.creationNumber());
}

void BaseDocument::RemoveObject(BaseObject& object) {
  const std::unique_ptr<BaseObject> taken = Detach(object);
  Forget(object);
}

void BaseDocument::MoveObject(BaseObject& object, BaseObject* newParent) {
  for (BaseObject* up = newParent; up; up = up->parent()) {
    if (up == &object) return;
  }
  std::unique_ptr<BaseObject> taken = Detach(object);
  taken->parent_ = newParent;
  (newParent ? newParent->children_ : objects_).push_back(std::move(taken));
}

BaseObject* BaseDocument::FindObject(std::uint64_t creationNumber) const {
  const auto found = byNumber_.find(creationNumber);
  return found == byNumber_.end() ? nullptr : found->second;
}

namespace {

void Visit(BaseObject& object, const std::function<void(BaseObject&)>& visit) {
  visit(object);
  for (const auto& tag : object.tags()) Visit(*tag, visit);
  for (const auto& child : object.children()) Visit(*child, visit);
}

}  // namespace

void BaseDocument::ForEachObject(const std::function<void(BaseObject&)>& visit) const {
  for (const auto& object : objects_) Visit(*object, visit);
}

BaseObject* BaseDocument::FindByPath(std::string_view path, int* count) const {
  BaseObject* found = nullptr;
  int matches = 0;
  ForEachObject([&](BaseObject& object) {
    if (object.name != path) {
      if (path.find('/') == std::string_view::npos) return;
      const std::string own = "/" + object.Path();
      if (path.starts_with('/') ? own != path : !own.ends_with("/" + std::string(path))) return;
    }
    ++matches;
    found = &object;
  });
  if (count) *count = matches;
  return matches == 1 ? found : nullptr;
}

std::vector<BaseObject*> BaseDocument::ObjectsOfType(int typeId) const {
  std::vector<BaseObject*> found;
  ForEachObject([&](BaseObject& object) {
    if (object.typeId() == typeId) found.push_back(&object);
  });
  return found;
}

void BaseDocument::RemoveTracks(std::uint64_t object, int parameter) {
  std::erase_if(tracks_, [&](const KeyTrack& t) { return t.object == object && t.parameter == parameter; });
}

Value BaseDocument::ValueOfTrack(const KeyTrack& track, const BaseTime& time) const {
  const double frame = time.Seconds() * fps;
  if (track.components.size() == 3) {
    return Vec3D(track.components[0].ValueAt(frame), track.components[1].ValueAt(frame),
                 track.components[2].ValueAt(frame));
  }
  const double value = track.components.empty() ? 0 : track.components[0].ValueAt(frame);
  const BaseObject* object = FindObject(track.object);
  const Parameter* row = object ? object->type().Find(track.parameter) : nullptr;
  if (row && row->type != ParameterType::Float) return AsInt(Value(value), 0);
  return value;
}

namespace {

// Several at once, as some read files of many megabytes. Gives the first failure in the objects' order.
Status UpdateAll(const std::vector<BaseObject*>& objects, const BaseTime& time) {
  std::vector<Status> outcomes(objects.size());
  std::atomic<std::size_t> next{0};
  WorkerPool pool(static_cast<int>(std::min(objects.size(), std::size_t(HostWorkerCount()))));
  pool.Run(pool.count(), [&](int) {
    for (std::size_t i = next++; i < objects.size(); i = next++) {
      try {
        outcomes[i] = objects[i]->data()->Update(*objects[i], time);
      } catch (const std::bad_alloc&) {
        outcomes[i] = Status::Fail(ErrorKind::Memory, "\"" + objects[i]->Path() + "\": not enough memory");
      }
    }
  });
  const auto failed = std::ranges::find_if(outcomes, [](const Status& outcome) { return !outcome.ok(); });
  return failed == outcomes.end() ? Status() : *failed;
}

}  // namespace

Status BaseDocument::SetTime(const BaseTime& time) {
  time_ = time;
  for (const KeyTrack& track : tracks_) {
    if (BaseObject* object = FindObject(track.object)) object->Set(track.parameter, ValueOfTrack(track, time));
  }
  std::vector<BaseObject*> objects;
  ForEachObject([&](BaseObject& object) {
    if (object.data()) objects.push_back(&object);
  });
  return UpdateAll(objects, time);
}

}  // namespace orlix

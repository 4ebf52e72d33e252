#include "fluids/api/PluginContext.h"

#include <algorithm>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

PluginHandle* PluginContext::FindHandle(iBase* node) {
  if (!node) return nullptr;
  const std::lock_guard lock(mutex_);
  const auto found =
      std::find_if(handles_.begin(), handles_.end(), [&](const PluginHandle& handle) { return handle.node == node; });
  return found != handles_.end() ? &*found : &handles_.emplace_back(*node, *this);
}

void PluginContext::VisitWritten(StateVisitor& visitor) {
  for (PluginHandle& handle : handles_) {
    if (!handle.written.load(std::memory_order_relaxed)) continue;
    if (auto* scalar = dynamic_cast<ChannelBase_Scalar*>(handle.node)) {
      visitor.VisitGrid("grid", scalar->grid);
    } else if (auto* vector = dynamic_cast<ChannelBase_Vector*>(handle.node)) {
      for (auto& grid : vector->grids) visitor.VisitGrid("grid", grid);
    } else if (auto* group = dynamic_cast<ParticleGroup*>(handle.node)) {
      group->VisitOutputs(visitor);
    }
  }
}

void PluginContext::NoteFault(ErrorKind kind, std::string text) {
  const std::lock_guard lock(mutex_);
  if (!fault_) fault_ = Error{kind, "\"" + self.DisplayName() + "\": " + std::move(text)};
  faulty_.store(true, std::memory_order_relaxed);
}

void PluginContext::TellFault() {
  if (!HasFault()) return;
  scene.Fail(fault_->kind, fault_->text);
  fault_.reset();
  faulty_.store(false, std::memory_order_relaxed);
}

}  // namespace orlix

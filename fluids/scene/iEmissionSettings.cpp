#include "fluids/scene/iEmissionSettings.h"

#include "fluids/scene/OrlixScene.h"

namespace orlix {

bool iEmissionSettings::ResolveLinks() {
  if (!iBase::ResolveLinks()) return false;
  rate = scene->Retrieve(handler.GetLink(RateLinkId()), NODE_SETTINGS, RETRIEVE_ANY, RETRIEVE_ANY);
  return true;
}

void iEmissionSettings::ReleaseLinks() {
  iBase::ReleaseLinks();
  rate = nullptr;
}

void iEmissionSettings::CheckDirty() {
  iBase::CheckDirty();
  if (rate && rate->IsDirty()) MarkDirty(false);
}

}  // namespace orlix

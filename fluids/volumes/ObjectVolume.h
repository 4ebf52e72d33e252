#pragma once
// The base of emitters that fill a linked volume.

#include "fluids/volumes/iVolume.h"

namespace orlix {

class ObjectVolume : public iObject {
 public:
  using iObject::iObject;
  void ReleaseLinks() override {
    volume = nullptr;
    iObject::ReleaseLinks();
  }

  iVolume* volume = nullptr;  // not owned; between ResolveLinks and ReleaseLinks
};

}  // namespace orlix

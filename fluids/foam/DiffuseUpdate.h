#pragma once
// What becomes of diffuse particles as they leave their zone: spray that lands turns to foam, foam that sinks to
// bubbles, bubbles that rise to foam or spray, foam that is thrown up to spray.
//
//        spray
//   -------------- o + h / 2
//        foam          drawn onto o, the height of its layer
//   -------------- o - h
//        bubbles

#include "fluids/foam/FoamSettings.h"
#include "fluids/foam/FoamSurface.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

// Rows of one chunk of a diffuse list. Without a level set the liquid's particles about one tell where it is; its tree
// is there then, and where settings.carried says so.
void UpdateDiffuse(const FoamSettings& settings, const FoamSurface& surface, const ParticleGroup& liquid,
                   const ParticleRows& rows, std::int32_t thread);

}  // namespace orlix
